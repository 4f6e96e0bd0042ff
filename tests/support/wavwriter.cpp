#include "support/wavwriter.h"

#include "common/wavewriter.h"

#include <QFile>
#include <QtEndian>

namespace klangor::test {

QByteArray makeWav(const WavLayout &layout)
{
    QByteArray data(layout.dataBytes, '\0');
    for (qint64 i = 0; i < layout.dataBytes; ++i)
        data[i] = static_cast<char>(layout.bitsPerSample == 8 ? 128 + (i % 16) - 8 : (i % 7));
    QByteArray image =
        waveFileBytes({layout.channels, layout.sampleRate, layout.bitsPerSample}, data);
    if (layout.chunkBeforeFormat) {
        // Odd-sized, with its pad byte.
        image.insert(12, QByteArray("LIST\x05\0\0\0INFOx\0", 14));
        qToLittleEndian(quint32(image.size() - 8), image.data() + 4);
    }
    return image;
}

qint64 bytesForMilliseconds(qint64 ms, quint32 avgBytesPerSecond)
{
    // The smallest byte count that measures as ms: ceil(ms * avg / 1000).
    return (ms * avgBytesPerSecond + 999) / 1000;
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
           file.write(bytes) == bytes.size();
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace klangor::test
