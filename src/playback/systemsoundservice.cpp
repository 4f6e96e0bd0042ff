#include "playback/soundservice.h"

namespace klangor {

namespace {

// Placeholder until the audio engine lands: hears nothing.
class SilentSoundService final : public SoundService
{
public:
    void PlaySoundOnce(const QString &) override {}
    void PlaySoundLoop(const QString &) override {}
    void PlaySoundWait(const QString &) override {}
    void StopSound(const QByteArray &) override {}
};

} // namespace

std::unique_ptr<SoundService> createSystemSoundService(const QString &)
{
    return std::make_unique<SilentSoundService>();
}

} // namespace klangor
