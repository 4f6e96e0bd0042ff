#include "support/wavwriter.h"

#include <QFile>
#include <QtEndian>

namespace klangor::test {

namespace {

void put16(QByteArray &out, quint16 v)
{
    char b[2];
    qToLittleEndian(v, b);
    out.append(b, 2);
}

void put32(QByteArray &out, quint32 v)
{
    char b[4];
    qToLittleEndian(v, b);
    out.append(b, 4);
}

} // namespace

QByteArray makeWav(const WavLayout &layout)
{
    const int blockAlign = std::max(1, layout.channels * layout.bitsPerSample / 8);
    QByteArray body("WAVE");
    if (layout.chunkBeforeFormat) {
        body.append("LIST");
        put32(body, 5);
        body.append("INFOx");
        body.append('\0'); // pad byte of the odd-sized chunk
    }
    body.append("fmt ");
    put32(body, 16);
    put16(body, 1); // PCM
    put16(body, static_cast<quint16>(layout.channels));
    put32(body, static_cast<quint32>(layout.sampleRate));
    put32(body, static_cast<quint32>(layout.sampleRate * blockAlign));
    put16(body, static_cast<quint16>(blockAlign));
    put16(body, static_cast<quint16>(layout.bitsPerSample));
    body.append("data");
    put32(body, static_cast<quint32>(layout.dataBytes));
    QByteArray samples(layout.dataBytes, '\0');
    for (qint64 i = 0; i < layout.dataBytes; ++i)
        samples[i] = static_cast<char>(layout.bitsPerSample == 8 ? 128 + (i % 16) - 8 : (i % 7));
    body.append(samples);
    if (layout.dataBytes & 1)
        body.append('\0');

    QByteArray out("RIFF");
    put32(out, static_cast<quint32>(body.size()));
    out.append(body);
    return out;
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
