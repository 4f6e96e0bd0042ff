#include "platform/waveaudiodevice.h"

#include <QFile>
#include <QtEndian>

namespace klangor {

namespace {

std::optional<quint32> readLe32(QIODevice &device)
{
    char bytes[4];
    if (device.read(bytes, 4) != 4)
        return std::nullopt;
    return qFromLittleEndian<quint32>(bytes);
}

} // namespace

std::optional<qint64> measureRiffWaveMilliseconds(QIODevice &device)
{
    const QByteArray riff = device.read(12);
    if (riff.size() != 12 || riff.left(4).toUpper() != "RIFF" || riff.mid(8, 4).toUpper() != "WAVE")
        return std::nullopt;

    std::optional<quint32> avgBytesPerSecond;
    while (!device.atEnd()) {
        const QByteArray id = device.read(4);
        const auto size = readLe32(device);
        if (id.size() != 4 || !size)
            break;
        const qint64 bodyStart = device.pos();
        if (id == "fmt ") {
            if (*size < 16)
                return std::nullopt;
            const QByteArray fmt = device.read(16);
            if (fmt.size() != 16)
                return std::nullopt;
            avgBytesPerSecond = qFromLittleEndian<quint32>(fmt.constData() + 8);
        } else if (id == "data") {
            if (!avgBytesPerSecond || *avgBytesPerSecond == 0)
                return std::nullopt;
            // A data chunk cut short counts only the bytes that are really there.
            const qint64 available = device.size() - bodyStart;
            const qint64 dataBytes = std::min<qint64>(*size, std::max<qint64>(available, 0));
            return dataBytes * 1000 / *avgBytesPerSecond;
        }
        // Chunks are word aligned: an odd-sized chunk is followed by one pad byte.
        const qint64 next = bodyStart + *size + (*size & 1u);
        if (next > device.size() || !device.seek(next))
            break;
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

QString shortPathName(const QString &path)
{
    // No 8.3 names here: the device takes the long path as it is.
    return path;
}

} // namespace klangor
