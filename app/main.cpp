#include "cli/commandline.h"
#include "common/version.h"
#include "platform/filebatch.h"
#include "platform/programfiles.h"
#include "platform/programfolder.h"
#include "platform/systeminfo.h"
#include "platform/toolprocess.h"
#include "platform/waveaudiodevice.h"
#include "playback/soundservice.h"
#include "ui/germanqttexts.h"
#include "ui/mainwindow.h"
#include "ui/qtmessagepresenter.h"
#include "ui/qtprojectdialogs.h"

#include <cstdio>
#include <cstdlib>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTimer>

namespace {

bool g_starting = true;
QtMessageHandler g_qtHandler = nullptr;

// Without a display Qt aborts with a page of English; the user gets one line instead.
void onQtMessage(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (g_starting && type == QtFatalMsg) {
        std::fputs("Klangor braucht eine grafische Sitzung: es ist kein Bildschirm erreichbar.\n",
                   stderr);
        std::_Exit(1);
    }
    if (g_starting && QByteArray(context.category).startsWith("qt.qpa"))
        return; // the reason follows as the fatal message
    if (g_qtHandler)
        g_qtHandler(type, context, text);
}

} // namespace

int main(int argc, char *argv[])
{
    // Qt's own options (-session from a session manager, -platform, -style) and a project to
    // open (a double-click in a file manager) mean the window; anything else is the command line.
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    const std::optional<QString> project = klangor::windowProject(arguments);
    if (!project)
        return klangor::runCommandLine(argc, argv);
    g_qtHandler = qInstallMessageHandler(onQtMessage);
    QApplication app(argc, argv);
    g_starting = false;
    QApplication::setApplicationName(QStringLiteral("Klangor"));
    QApplication::setApplicationVersion(klangor::programVersion());
    klangor::installGermanQtTexts(); // without them Qt's dialogs stay English, nothing worse

    // An installed program cannot write beside itself: it works in a folder of the user's,
    // seeded with the CV default files installed under share/klangor.
    const QString executableFolder = QCoreApplication::applicationDirPath();
    const klangor::Result<QString> resolved = klangor::resolveProgramFolder(
        executableFolder, QStandardPaths::writableLocation(QStandardPaths::AppDataLocation),
        {executableFolder, QDir(executableFolder).filePath(QStringLiteral("../share/klangor"))});
    const QString programFolder = resolved ? resolved.value() : executableFolder;
    // Finishes or clears what a run that was killed while writing left in the folder.
    klangor::recoverInterruptedWrites(programFolder);
    klangor::QtMessagePresenter messages;
    const auto sound = klangor::createSystemSoundService(
        programFolder,
        [&messages](const klangor::UserMessage &message) { messages.show(message); });
    klangor::QtProjectDialogs dialogs;
    klangor::RiffWaveAudioDevice waveDevice;
    klangor::SystemProgramLauncher launcher;

    klangor::WindowServices services;
    services.programFolder = programFolder;
    services.startFolder = QDir::currentPath();
    services.sound = sound.get();
    services.messages = &messages;
    services.waveDevice = &waveDevice;
    services.dialogs = &dialogs;
    services.launcher = &launcher;
    // Windows tools run in a wine prefix of the program's own, in the user's folder, never in
    // the user's ~/.wine; the launcher lies beside the program or, installed, under lib/.
    klangor::ToolSetup toolSetup;
    toolSetup.winePrefix = QDir(QStandardPaths::writableLocation(QStandardPaths::AppDataLocation))
                               .filePath(QStringLiteral("wine"));
    for (const QString &folder :
         {executableFolder, QDir(executableFolder).filePath(QStringLiteral("../lib/klangor"))}) {
        const QString candidate = QDir(folder).filePath(klangor::LauncherFileName);
        if (toolSetup.launcher.isEmpty() && QFile::exists(candidate))
            toolSetup.launcher = candidate;
    }
    services.makeToolProcess = [toolSetup] {
        return klangor::createSystemToolProcess(toolSetup);
    };

    klangor::Form1 window(services);
    messages.setParent(&window);
    dialogs.setParent(&window);
    window.show();
    if (!resolved)
        QTimer::singleShot(0, &window, [&] { messages.show(resolved.error()); });
    if (!project->isEmpty()) // relative to where it was started
        QTimer::singleShot(0, &window, [&window, path = QFileInfo(*project).absoluteFilePath()] {
            window.openProject(path);
        });
    return QApplication::exec();
}
