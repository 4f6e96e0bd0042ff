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

// Measures as the wave-audio device does: data chunk bytes * 1000 / average bytes per
// second, rounded down. Walks the RIFF chunks, skipping unknown ones and their pad byte.
std::optional<qint64> measureRiffWaveMilliseconds(QIODevice &device);

// Reads the file itself; what this platform offers in place of the multimedia device.
class RiffWaveAudioDevice final : public WaveAudioDevice
{
public:
    std::optional<qint64> lengthMilliseconds(const QString &path) override;
};

} // namespace klangor
