#pragma once

#include <QByteArray>
#include <vector>

namespace klangor {

// The sample format of a WAV file: PCM of 8 (unsigned), 16, 24 or 32 bits, or 32-bit float.
struct WaveFormat
{
    int channels = 1;
    int sampleRate = 11025;
    int bitsPerSample = 16;
    bool floating = false;
};

// A WAV file as the program writes it: the canonical 44-byte header, the data and, for an odd
// size, the data chunk's pad byte. The header's fields follow from format whatever they mean.
QByteArray waveFileBytes(const WaveFormat &format, const QByteArray &data);

// Interleaved samples, full scale at 1.0, as the data of format: rounded and clipped to the
// PCM range, or as floats.
QByteArray waveSampleBytes(const WaveFormat &format, const std::vector<double> &samples);

} // namespace klangor
