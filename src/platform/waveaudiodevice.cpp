#include "platform/waveaudiodevice.h"

#include "common/riffchunks.h"

#include <QFile>
#include <QtEndian>

namespace klangor {

std::optional<qint64> measureRiffWaveMilliseconds(QIODevice &device)
{
    const QByteArray riff = device.read(12);
    if (riff.size() != 12 || riff.left(4).toUpper() != "RIFF" || riff.mid(8, 4).toUpper() != "WAVE")
        return std::nullopt;

    std::optional<quint32> avgBytesPerSecond;
    RiffChunks chunks(device);
    while (const auto chunk = chunks.next()) {
        if (chunk->id == "fmt ") {
            if (chunk->size < 16)
                return std::nullopt;
            const QByteArray fmt = device.read(16);
            if (fmt.size() != 16)
                return std::nullopt;
            avgBytesPerSecond = qFromLittleEndian<quint32>(fmt.constData() + 8);
        } else if (chunk->id == "data") {
            if (!avgBytesPerSecond || *avgBytesPerSecond == 0)
                return std::nullopt;
            // A data chunk cut short counts only the bytes that are really there.
            const qint64 dataBytes = chunk->cut ? device.size() - chunk->bodyOffset : chunk->size;
            return dataBytes * 1000 / *avgBytesPerSecond;
        }
    }
    return std::nullopt;
}

std::optional<qint64> RiffWaveAudioDevice::lengthMilliseconds(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return measureRiffWaveMilliseconds(file);
}

} // namespace klangor
