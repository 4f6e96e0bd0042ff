#pragma once

#include "platform/messagebox.h"
#include "platform/systeminfo.h"

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
