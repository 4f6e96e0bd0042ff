#include "support/wavwriter.h"

#include <QDataStream>
#include <QFile>
#include <QtEndian>

namespace klangor::test {

QByteArray makeWav(const WavLayout &layout)
{
    const int blockAlign = std::max(1, layout.channels * layout.bitsPerSample / 8);
    QByteArray image;
    QDataStream out(&image, QIODevice::WriteOnly);
    out.setByteOrder(QDataStream::LittleEndian);
    const auto tag = [&](const char *id) {
        out.writeRawData(id, 4);
    };
    tag("RIFF");
    out << quint32(0); // filled in below
    tag("WAVE");
    if (layout.chunkBeforeFormat) {
        tag("LIST");
        out << quint32(5);
        out.writeRawData("INFOx\0", 6); // with the pad byte of the odd-sized chunk
    }
    tag("fmt ");
    out << quint32(16) << quint16(1) << quint16(layout.channels) << quint32(layout.sampleRate)
        << quint32(layout.sampleRate * blockAlign) << quint16(blockAlign)
        << quint16(layout.bitsPerSample);
    tag("data");
    out << quint32(layout.dataBytes);
    for (qint64 i = 0; i < layout.dataBytes; ++i)
        out << quint8(layout.bitsPerSample == 8 ? 128 + (i % 16) - 8 : (i % 7));
    if (layout.dataBytes & 1)
        out << quint8(0);
    qToLittleEndian(quint32(image.size() - 8), image.data() + 4);
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
