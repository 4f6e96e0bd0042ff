#pragma once

#include "platform/toolprocess.h"

#include <memory>
#include <QProcess>

namespace klangor {

// Runs the tool through QProcess. A Windows executable (an "MZ" file) goes through wine when
// wine is installed; anything else is executed directly.
class LinuxToolProcess final : public ToolProcess
{
    Q_OBJECT

public:
    explicit LinuxToolProcess(QObject *parent = nullptr);
    // A tool that still runs is left running, as when the program ends on Windows.
    ~LinuxToolProcess() override;

    bool start(const QString &program, const QStringList &arguments,
               const QString &workingFolder) override;
    StartError startError() const override { return m_startError; }
    bool isRunning() const override;
    void terminate() override;

    // How a crash is reported: shells' convention, 128 + signal, never 0 or 258.
    static int crashExitCode(int signal) { return 128 + signal; }

private:
    void onFinished(int exitCode, QProcess::ExitStatus status);
    void onErrorOccurred(QProcess::ProcessError error);

    std::unique_ptr<QProcess> m_process;
    StartError m_startError = StartError::None;
    bool m_inStart = false;
    bool m_terminateRequested = false;
};

} // namespace klangor
