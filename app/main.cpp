#include "platform/programfolder.h"
#include "platform/safefile.h"
#include "platform/systeminfo.h"
#include "platform/toolprocess.h"
#include "platform/waveaudiodevice.h"
#include "playback/soundservice.h"
#include "ui/mainwindow.h"
#include "ui/qtmessagepresenter.h"
#include "ui/qtprojectdialogs.h"

#include <QApplication>
#include <QDir>
#include <QStandardPaths>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Klangor"));
    QApplication::setApplicationVersion(QStringLiteral("%1.%2.%3")
                                            .arg(KLANGOR_VERSION_MAJOR)
                                            .arg(KLANGOR_VERSION_MINOR)
                                            .arg(KLANGOR_VERSION_PATCH));

    // An installed program cannot write beside itself: it works in a folder of the user's,
    // seeded with the CV default files installed under share/klangor.
    const QString executableFolder = QCoreApplication::applicationDirPath();
    const QString programFolder = klangor::resolveProgramFolder(
        executableFolder, QStandardPaths::writableLocation(QStandardPaths::AppDataLocation),
        {executableFolder, QDir(executableFolder).filePath(QStringLiteral("../share/klangor"))});
    // Finishes or clears what a run that was killed while writing left in the folder.
    klangor::recoverInterruptedWrites(programFolder);
    const auto sound = klangor::createSystemSoundService(programFolder);
    klangor::QtMessagePresenter messages;
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
    services.makeToolProcess = [] {
        return klangor::createSystemToolProcess();
    };

    klangor::Form1 window(services);
    messages.setParent(&window);
    dialogs.setParent(&window);
    window.show();
    return QApplication::exec();
}
