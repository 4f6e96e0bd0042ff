#pragma once

#include <QByteArray>
#include <QString>

namespace klangor::test {

// The header fields and data size of a generated WAV image.
struct WavLayout
{
    int channels = 1;
    int sampleRate = 11025;
    int bitsPerSample = 8;
    qint64 dataBytes = 1000;
    // Puts a LIST chunk (odd-sized, with its pad byte) between the RIFF header and "fmt ".
    bool chunkBeforeFormat = false;
};

// A WAV image with the given header fields; samples are a quiet ramp.
QByteArray makeWav(const WavLayout &layout);
// Data bytes of an 8-bit mono 11025 Hz file that the device measures as ms milliseconds.
qint64 bytesForMilliseconds(qint64 ms, quint32 avgBytesPerSecond = 11025);

bool writeFile(const QString &path, const QByteArray &bytes);
QByteArray readFile(const QString &path);

} // namespace klangor::test
