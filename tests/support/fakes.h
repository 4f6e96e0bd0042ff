#pragma once

#include "platform/messagebox.h"
#include "platform/systeminfo.h"
#include "platform/waveaudiodevice.h"
#include "playback/soundservice.h"
#include "project/projectdialogs.h"

#include <functional>
#include <QList>
#include <QStringList>

namespace klangor::test {

// Records the messages instead of showing a modal box.
class RecordingMessages final : public MessagePresenter
{
public:
    void show(const UserMessage &message) override { shown.append(message); }
    QList<UserMessage> shown;
};

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
    void WaitUntilHeard() override
    {
        calls << QStringLiteral("heard");
        if (whileHeard)
            whileHeard();
    }
    void StopSound() override { calls << QStringLiteral("stop"); }
    std::function<void()> whileHeard;
    QStringList calls;
};

// Answers the dialogs from a queue of paths ("" is a cancel) and records what was asked.
class FakeProjectDialogs final : public ProjectDialogs
{
public:
    struct Request
    {
        bool save;
        QString filter, title, initialFolder;
    };
    QString ShowOpenDialog(const QString &filter, const QString &title,
                           const QString &folder) override
    {
        requests.append({false, filter, title, folder});
        return answers.isEmpty() ? QString() : answers.takeFirst();
    }
    QString ShowSaveDialog(const QString &filter, const QString &title,
                           const QString &folder) override
    {
        requests.append({true, filter, title, folder});
        return answers.isEmpty() ? QString() : answers.takeFirst();
    }
    QStringList answers;
    QList<Request> requests;
};

// Programs count as installed when named in `installed`; every start asked for is recorded.
class FakeProgramLauncher final : public ProgramLauncher
{
public:
    bool startInstalled(const QString &name) override
    {
        asked << name;
        return installed.contains(name);
    }
    QStringList installed;
    QStringList asked;
};

} // namespace klangor::test
