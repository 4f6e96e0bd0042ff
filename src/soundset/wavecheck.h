#pragma once

#include "platform/messagebox.h"
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

// Judges WAV files against the decoder's rules and tells the user the first rule a file breaks.
class WaveChecker
{
public:
    WaveChecker(WaveAudioDevice &device, MessagePresenter &messages);

    // 0 when the file is accepted, 1 when refused (the refusal has been shown).
    quint8 CheckWaveFile(const QString &path);
    // Seconds, or -1 when the device cannot open the file.
    double GetWaveLength(const QString &shortPath);

private:
    WaveAudioDevice &m_device;
    MessagePresenter &m_messages;
};

} // namespace klangor
