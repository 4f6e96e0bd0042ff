#pragma once

#include "platform/fakeplatform.h"
#include "platform/waveaudiodevice.h"
#include "playback/soundservice.h"
#include "project/fakeprojectdialogs.h"
#include "ui/mainwindow.h"

#include <QTimer>
#include <utility>

namespace klangor::test {

// Records every call as "once:<path>", "loop:<path>", "wait:<name>", "heard", "stop". The sounds
// are heard from the event loop, after whileHeard has looked at the window.
class FakeSoundService final : public SoundService
{
public:
    void PlaySoundOnce(const QString &path) override { calls << QStringLiteral("once:") + path; }
    void PlaySoundLoop(const QString &path) override { calls << QStringLiteral("loop:") + path; }
    void PlaySoundWait(const QString &bareName) override
    {
        calls << QStringLiteral("wait:") + bareName;
    }
    void WhenSoundsHeard(std::function<void()> heard) override
    {
        calls << QStringLiteral("heard");
        QTimer::singleShot(0, [this, heard = std::move(heard)] {
            if (whileHeard)
                whileHeard();
            heard();
        });
    }
    void StopSound() override { calls << QStringLiteral("stop"); }
    std::function<void()> whileHeard;
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
