#include "platform/programlauncher.h"
#include "platform/registry.h"
#include "platform/waveaudiodevice.h"
#include "playback/soundservice.h"
#include "ui/mainwindow.h"
#include "ui/qtmessagepresenter.h"
#include "ui/qtprojectdialogs.h"

#include <QApplication>
#include <QDir>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Klangor"));
    QApplication::setApplicationVersion(QStringLiteral("%1.%2.%3")
                                            .arg(KLANGOR_VERSION_MAJOR)
                                            .arg(KLANGOR_VERSION_MINOR)
                                            .arg(KLANGOR_VERSION_PATCH));

    const QString programFolder = QCoreApplication::applicationDirPath();
    const auto sound = klangor::createSystemSoundService(programFolder);
    klangor::QtMessagePresenter messages;
    klangor::QtProjectDialogs dialogs;
    klangor::RiffWaveAudioDevice waveDevice;
    const auto registry = klangor::createSystemRegistry();
    klangor::SystemProgramLauncher launcher;

    klangor::Form1Services services;
    services.programFolder = programFolder;
    services.startFolder = QDir::currentPath();
    services.sound = sound.get();
    services.messages = &messages;
    services.waveDevice = &waveDevice;
    services.dialogs = &dialogs;
    services.registry = registry.get();
    services.launcher = &launcher;

    klangor::Form1 window(services);
    messages.setParent(&window);
    dialogs.setParent(&window);
    window.show();
    return QApplication::exec();
}
