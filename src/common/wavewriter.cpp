#include "common/wavewriter.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <QtEndian>

namespace klangor {

QByteArray waveFileBytes(const WaveFormat &format, const QByteArray &data)
{
    const auto dataBytes = static_cast<quint32>(data.size());
    const auto blockAlign =
        static_cast<quint16>(std::max(1, format.channels * format.bitsPerSample / 8));
    QByteArray image(44, '\0');
    char *h = image.data();
    std::memcpy(h, "RIFF", 4);
    qToLittleEndian<quint32>(36 + dataBytes + (dataBytes & 1), h + 4);
    std::memcpy(h + 8, "WAVEfmt ", 8);
    qToLittleEndian<quint32>(16, h + 16);
    qToLittleEndian<quint16>(format.floating ? 3 : 1, h + 20); // IEEE float or PCM
    qToLittleEndian<quint16>(static_cast<quint16>(format.channels), h + 22);
    qToLittleEndian<quint32>(static_cast<quint32>(format.sampleRate), h + 24);
    qToLittleEndian<quint32>(static_cast<quint32>(format.sampleRate) * blockAlign, h + 28);
    qToLittleEndian<quint16>(blockAlign, h + 32);
    qToLittleEndian<quint16>(static_cast<quint16>(format.bitsPerSample), h + 34);
    std::memcpy(h + 36, "data", 4);
    qToLittleEndian<quint32>(dataBytes, h + 40);
    image += data;
    if (dataBytes & 1)
        image += '\0';
    return image;
}

QByteArray waveSampleBytes(const WaveFormat &format, const std::vector<double> &samples)
{
    const int bytes = format.bitsPerSample / 8;
    QByteArray data(static_cast<qsizetype>(samples.size()) * bytes, '\0');
    char *out = data.data();
    const double scale = std::ldexp(1.0, format.bitsPerSample - 1);
    for (const double sample : samples) {
        if (format.floating) {
            qToLittleEndian<float>(static_cast<float>(sample), out);
        } else {
            const qint64 value = std::llround(std::clamp(sample * scale, -scale, scale - 1));
            // Little-endian two's complement, low bytes first; 8 bits are unsigned around 128.
            const qint64 stored = bytes == 1 ? value + 128 : value;
            for (int b = 0; b < bytes; ++b)
                out[b] = static_cast<char>((stored >> (8 * b)) & 0xFF);
        }
        out += bytes;
    }
    return data;
}

} // namespace klangor
