#pragma once

#include "platform/toolprocess.h"

#include <memory>
#include <optional>
#include <QDir>
#include <QFile>
#include <QList>
#include <QPointer>
#include <QTimer>

namespace klangor::test {

// How the next fake tools behave.
struct FakeToolScript
{
    bool startSucceeds = true;
    ToolProcess::StartError startError = ToolProcess::StartError::NotFound;
    std::optional<int> finishAfterMs; // nullopt: runs until terminated
    int exitCode = 0;
    bool failLaterToStart = false; // start() accepts, then the system refuses
};

// What the run asked of a fake tool, kept after the tool object is gone.
struct FakeToolRecord
{
    QString program;
    QStringList arguments;
    QString workingFolder;
    QByteArray soundListAtStart; // what "soundlist.dat" held when the tool started
    int terminateCalls = 0;
    bool destroyedWhileRunning = false;
};

// A tool that ends when told to, with any exit code. The real process cannot cover 258: Linux
// keeps only the low 8 bits of an exit status, so 258 would arrive as 2.
class FakeToolProcess final : public ToolProcess
{
public:
    FakeToolProcess(FakeToolScript script, std::shared_ptr<FakeToolRecord> record)
        : m_script(script), m_record(std::move(record))
    {}
    ~FakeToolProcess() override { m_record->destroyedWhileRunning = m_running; }

    bool start(const QString &program, const QStringList &arguments,
               const QString &workingFolder) override
    {
        m_record->program = program;
        m_record->arguments = arguments;
        m_record->workingFolder = workingFolder;
        QFile list(QDir(workingFolder).filePath(QStringLiteral("soundlist.dat")));
        if (list.open(QIODevice::ReadOnly))
            m_record->soundListAtStart = list.readAll();
        if (!m_script.startSucceeds) {
            m_error = m_script.startError;
            return false;
        }
        m_running = true;
        if (m_script.failLaterToStart) {
            QTimer::singleShot(0, this, [this] {
                m_running = false;
                m_error = StartError::NotStartable;
                emit startFailed();
            });
        } else if (m_script.finishAfterMs) {
            QTimer::singleShot(*m_script.finishAfterMs, this,
                               [this] { finish(m_script.exitCode); });
        }
        return true;
    }
    StartError startError() const override { return m_error; }
    bool isRunning() const override { return m_running; }
    void terminate() override
    {
        ++m_record->terminateCalls;
        if (!m_running)
            return;
        // Like the real process: the end is reported from the event loop, not from here.
        QTimer::singleShot(0, this, [this] { finish(TerminatedExitCode); });
    }

    void finish(int exitCode)
    {
        if (!m_running)
            return;
        m_running = false;
        emit finished(exitCode);
    }

private:
    FakeToolScript m_script;
    std::shared_ptr<FakeToolRecord> m_record;
    StartError m_error = StartError::None;
    bool m_running = false;
};

// Makes fake tools from a script and keeps a record of each.
class FakeToolFactory
{
public:
    FakeToolScript script;
    QList<std::shared_ptr<FakeToolRecord>> records;
    QPointer<FakeToolProcess> latest;

    std::function<std::unique_ptr<ToolProcess>()> factory()
    {
        return [this]() -> std::unique_ptr<ToolProcess> {
            records.append(std::make_shared<FakeToolRecord>());
            auto tool = std::make_unique<FakeToolProcess>(script, records.last());
            latest = tool.get();
            return tool;
        };
    }
};

} // namespace klangor::test
