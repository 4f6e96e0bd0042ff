#include "platform/waveaudiodevice.h"

#include "common/riffchunks.h"
#include "platform/regularfile.h"

#include <QtEndian>

namespace klangor {

std::optional<RiffWaveData> readRiffWaveData(QIODevice &device)
{
    const QByteArray riff = device.read(12);
    if (riff.size() != 12 || riff.left(4).toUpper() != "RIFF" || riff.mid(8, 4).toUpper() != "WAVE")
        return std::nullopt;

    std::optional<RiffWaveData> wave;
    RiffChunks chunks(device);
    while (const auto chunk = chunks.next()) {
        if (chunk->id == "fmt ") {
            if (chunk->size < 16)
                return std::nullopt;
            const QByteArray fmt = device.read(16);
            if (fmt.size() != 16)
                return std::nullopt;
            wave = RiffWaveData{0, qFromLittleEndian<quint32>(fmt.constData() + 8),
                                qFromLittleEndian<quint16>(fmt.constData() + 14)};
        } else if (chunk->id == "data") {
            if (!wave || wave->avgBytesPerSecond == 0)
                return std::nullopt;
            wave->dataBytes = chunk->cut ? device.size() - chunk->bodyOffset : chunk->size;
            return wave;
        }
    }
    return std::nullopt;
}

std::optional<qint64> measureRiffWaveMilliseconds(QIODevice &device)
{
    const std::optional<RiffWaveData> wave = readRiffWaveData(device);
    if (!wave)
        return std::nullopt;
    return wave->milliseconds();
}

std::optional<qint64> RiffWaveAudioDevice::lengthMilliseconds(const QString &path)
{
    // Opening a FIFO would wait for a writer; only regular files are measured.
    RegularFile file;
    if (!file.openFile(path))
        return std::nullopt;
    return measureRiffWaveMilliseconds(file);
}

} // namespace klangor
