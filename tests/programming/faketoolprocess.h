#pragma once

#include "platform/toolprocess.h"

#include <functional>
#include <memory>
#include <optional>
#include <QPointer>
#include <QTimer>

namespace klangor::test {

// How the next fake tools behave.
struct FakeToolScript
{
    std::optional<ToolProcess::StartError> refuse; // start() fails with this error
    QString message;                               // and tells this
    bool failLaterToStart = false;                 // start() accepts, then the system refuses
    std::optional<int> finishAfterMs = 0;          // nullopt: runs until terminated
    int exitCode = 0;
    std::function<void()> whileRunning; // called from the event loop, once the tool runs
};

// What the run asked of a fake tool, kept after the tool object is gone.
struct FakeToolRecord
{
    QString commandLine; // program and arguments, then the working folder
    ToolPort port;
    int terminateCalls = 0;
};

// A tool that ends when told to, with any exit code. The real process cannot cover 258: Linux
// keeps only the low 8 bits of an exit status, so 258 would arrive as 2.
class FakeToolProcess final : public ToolProcess
{
public:
    FakeToolProcess(FakeToolScript script, std::shared_ptr<FakeToolRecord> record)
        : m_script(std::move(script)), m_record(std::move(record))
    {}

    bool start(const QString &program, const QStringList &arguments, const QString &workingFolder,
               const ToolPort &port) override
    {
        m_record->commandLine = (QStringList{program} + arguments << workingFolder).join(' ');
        m_record->port = port;
        m_error = m_script.refuse.value_or(m_script.failLaterToStart ? StartError::NotStartable
                                                                     : StartError::None);
        m_running = !m_script.refuse;
        // Timers fire only once the test waits for the run. No context object: the call may
        // delete this tool.
        if (m_running && m_script.whileRunning)
            QTimer::singleShot(0, m_script.whileRunning);
        if (m_running && m_script.failLaterToStart) {
            QTimer::singleShot(0, this, [this] {
                m_running = false;
                emit startFailed();
            });
        } else if (m_running && m_script.finishAfterMs) {
            QTimer::singleShot(*m_script.finishAfterMs, this,
                               [this] { finish(m_script.exitCode); });
        }
        return m_running;
    }
    StartError startError() const override { return m_error; }
    QString startMessage() const override { return m_script.message; }
    bool isRunning() const override { return m_running; }
    void terminate() override
    {
        ++m_record->terminateCalls;
        // Like the real process: the end is reported from the event loop, not from here.
        QTimer::singleShot(0, this, [this] { finish(TerminatedExitCode); });
    }

    void finish(int exitCode)
    {
        if (std::exchange(m_running, false))
            emit finished(exitCode);
    }

private:
    FakeToolScript m_script;
    std::shared_ptr<FakeToolRecord> m_record;
    StartError m_error = StartError::None;
    bool m_running = false;
};

// Makes fake tools from a script and keeps a record of each.
struct FakeToolFactory
{
    FakeToolScript script;
    QList<std::shared_ptr<FakeToolRecord>> records;
    QPointer<FakeToolProcess> latest;

    std::function<std::unique_ptr<ToolProcess>()> factory()
    {
        return [this] {
            records.append(std::make_shared<FakeToolRecord>());
            auto tool = std::make_unique<FakeToolProcess>(script, records.last());
            latest = tool.get();
            return std::unique_ptr<ToolProcess>(std::move(tool));
        };
    }
};

} // namespace klangor::test
