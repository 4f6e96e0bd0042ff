#pragma once

#include "common/result.h"
#include "platform/waveaudiodevice.h"

#include <optional>
#include <QByteArray>

namespace klangor {

// The decoder's limit, compared by greater-than: 5.9 s itself passes.
inline constexpr double MaxWaveSeconds = 5.9;
// The length of a file the device cannot open: unknown, and it passes the length test.
inline constexpr double UnknownWaveLength = -1.0;

// The first refused rule, judged on the first 36 header bytes (fewer means unreadable) and
// the measured length; nullopt when the file is accepted.
std::optional<UserMessage> judgeWaveHeader(const QByteArray &header, double lengthSeconds);

// Judges WAV files against the decoder's rules.
class WaveChecker
{
public:
    explicit WaveChecker(WaveAudioDevice &device);

    // The message of the first rule the file breaks.
    Status CheckWaveFile(const QString &path);
    // Seconds, or -1 when the device cannot open the file.
    double GetWaveLength(const QString &shortPath);

private:
    WaveAudioDevice &m_device;
};

} // namespace klangor
