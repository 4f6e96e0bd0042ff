#pragma once

#include "platform/fakeplatform.h"
#include "platform/waveaudiodevice.h"
#include "playback/soundservice.h"
#include "project/fakeprojectdialogs.h"
#include "ui/mainwindow.h"

#include <gtest/gtest.h>
#include <QAbstractButton>
#include <QListWidget>
#include <QTest>
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
    std::unique_ptr<Form1> m_window; // made by the test once the services are filled in

    template <typename T = QWidget> T *control(const QString &name) const
    {
        T *found = m_window->findChild<T *>(name);
        EXPECT_NE(found, nullptr) << name.toStdString();
        return found;
    }
    void click(const QString &name) { control<QAbstractButton>(name)->click(); }
    // Selects name in the file list, then double-clicks slot k.
    void assign(int k, const QString &name)
    {
        auto *list = control<QListWidget>("List1");
        list->setCurrentItem(list->findItems(name, Qt::MatchExactly).value(0));
        QTest::mouseDClick(control(QStringLiteral("Slot%1").arg(k)), Qt::LeftButton);
    }
};

} // namespace klangor::test
