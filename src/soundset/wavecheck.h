#pragma once

#include "common/result.h"
#include "platform/waveaudiodevice.h"

#include <optional>
#include <QByteArray>

namespace klangor {

// The decoder's limit, compared by greater-than: 5.9 s itself passes.
inline constexpr double MaxWaveSeconds = 5.9;
// The first refused rule, judged on the first 36 header bytes (fewer means unreadable) and
// the measured length; a length the device could not measure passes.
Status judgeWaveHeader(const QByteArray &header, std::optional<double> lengthSeconds);
// The first 36 bytes of the file at path the rules judge; fewer, or none, when it cannot be read.
QByteArray readWaveHeader(const QString &path);

// Judges WAV files against the decoder's rules.
class WaveChecker
{
public:
    explicit WaveChecker(WaveAudioDevice &device);

    // The message of the first rule the file breaks.
    Status CheckWaveFile(const QString &path);
    // Seconds; none when the device cannot open the file.
    std::optional<double> GetWaveLength(const QString &shortPath);

private:
    WaveAudioDevice &m_device;
};

} // namespace klangor
