#pragma once

#include "platform/fakeplatform.h"
#include "platform/waveaudiodevice.h"
#include "playback/soundservice.h"
#include "project/fakeprojectdialogs.h"
#include "ui/mainwindow.h"

namespace klangor::test {

// Records every call as "once:<path>", "loop:<path>", "wait:<name>", "stop".
class FakeSoundService final : public SoundService
{
public:
    void PlaySoundOnce(const QString &path) override { calls << QStringLiteral("once:") + path; }
    void PlaySoundLoop(const QString &path) override { calls << QStringLiteral("loop:") + path; }
    void PlaySoundWait(const QString &bareName) override
    {
        calls << QStringLiteral("wait:") + bareName;
    }
    void WhenSoundsHeard(std::function<void()> heard) override { heard(); }
    void StopSound() override { calls << QStringLiteral("stop"); }
    QStringList calls;
};

// Every outside service of the window, faked; the test fills in the folders and the tool maker.
struct FakeServices
{
    FakeSoundService m_sound;
    RecordingMessages m_messages;
    RiffWaveAudioDevice m_wave;
    FakeProjectDialogs m_dialogs;
    FakeProgramLauncher m_launcher;
    WindowServices m_services{{}, {}, &m_sound, &m_messages, &m_wave, &m_dialogs, &m_launcher, {}};
};

} // namespace klangor::test
