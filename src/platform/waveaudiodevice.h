#pragma once

#include <memory>
#include <optional>
#include <QIODevice>
#include <QString>

namespace klangor {

// The wave-audio device that measures a WAV file's playing time.
class WaveAudioDevice
{
public:
    virtual ~WaveAudioDevice() = default;
    // The playing time in whole milliseconds, or nullopt when the device cannot open the file.
    virtual std::optional<qint64> lengthMilliseconds(const QString &path) = 0;
};

// What the format and data chunks of a WAV file state.
struct RiffWaveData
{
    qint64 dataBytes = 0; // a data chunk cut short counts only the bytes really there
    quint32 avgBytesPerSecond = 0;
    quint16 bitsPerSample = 0;

    // As the wave-audio device measures: data bytes * 1000 / average bytes per second,
    // rounded down.
    qint64 milliseconds() const { return dataBytes * 1000 / avgBytesPerSecond; }
};

// Walks the RIFF chunks up to the data chunk, skipping unknown ones and their pad byte;
// nullopt when there is no format chunk before it or it states no bytes per second.
std::optional<RiffWaveData> readRiffWaveData(QIODevice &device);
std::optional<qint64> measureRiffWaveMilliseconds(QIODevice &device);

// Reads the file itself; what this platform offers in place of the multimedia device.
class RiffWaveAudioDevice final : public WaveAudioDevice
{
public:
    std::optional<qint64> lengthMilliseconds(const QString &path) override;
};

} // namespace klangor
