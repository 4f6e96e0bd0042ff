// Renders the main window in a few typical states to PNG files, for looking at the layout
// without a display: klangor_windowshots <output folder>
#include "platform/messagebox.h"
#include "platform/systeminfo.h"
#include "platform/waveaudiodevice.h"
#include "playback/soundservice.h"
#include "project/projectdialogs.h"
#include "ui/aboutdialog.h"
#include "ui/mainwindow.h"

#include <QAction>
#include <QApplication>
#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>
#include <QTemporaryDir>
#include <QTextStream>

using namespace klangor;

namespace {

// Nothing may play or pop up while the pictures are taken.
class SilentSound final : public SoundService
{
public:
    void PlaySoundOnce(const QString &) override {}
    void PlaySoundLoop(const QString &) override {}
    void PlaySoundWait(const QString &) override {}
    void WaitUntilHeard() override {}
    void StopSound() override {}
};

class ConsoleMessages final : public MessagePresenter
{
public:
    void show(const UserMessage &message) override
    {
        QTextStream(stderr) << message.title << ": " << message.text << '\n';
    }
};

class NoDialogs final : public ProjectDialogs
{
public:
    QString ShowOpenDialog(const QString &, const QString &, const QString &) override
    {
        return {};
    }
    QString ShowSaveDialog(const QString &, const QString &, const QString &) override
    {
        return {};
    }
};

// One second of silence, 8-bit mono at 11025 Hz.
QByteArray silentWave()
{
    constexpr quint32 DataBytes = 11025;
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out.setByteOrder(QDataStream::LittleEndian);
    out.writeRawData("RIFF", 4);
    out << quint32(36 + DataBytes);
    out.writeRawData("WAVEfmt ", 8);
    out << quint32(16) << quint16(1) << quint16(1) << quint32(11025) << quint32(11025) << quint16(1)
        << quint16(8);
    out.writeRawData("data", 4);
    out << DataBytes;
    return bytes + QByteArray(DataBytes, '\x80');
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const QString out = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QDir::currentPath();
    QDir().mkpath(out);

    // The CV default files lie beside this program in the build's program folder.
    QTemporaryDir program, sounds;
    for (const char *cv : {"cvdiesele.dat", "cvdampf.dat", "cvselectrix.dat"})
        QFile::copy(QDir(QCoreApplication::applicationDirPath()).filePath(QString::fromUtf8(cv)),
                    program.filePath(QString::fromUtf8(cv)));
    for (const char *name :
         {"Anfahren.wav", "Bremsen.wav", "Glocke.wav", "Pfiff lang.wav", "Zischen.wav"}) {
        QFile file(sounds.filePath(QString::fromUtf8(name)));
        if (!file.open(QIODevice::WriteOnly) || file.write(silentWave()) < 0)
            return 1;
    }

    SilentSound sound;
    ConsoleMessages messages;
    RiffWaveAudioDevice waveDevice;
    NoDialogs dialogs;
    SystemProgramLauncher launcher;
    WindowServices services;
    services.programFolder = program.path();
    services.startFolder = sounds.path();
    services.sound = &sound;
    services.messages = &messages;
    services.waveDevice = &waveDevice;
    services.dialogs = &dialogs;
    services.launcher = &launcher;
    Form1 window(services);
    window.show();

    const auto shoot = [&](QWidget &widget, const char *name) {
        QApplication::processEvents();
        widget.grab().save(QDir(out).filePath(QString::fromUtf8(name)));
    };
    shoot(window, "1-start.png");

    window.findChild<QListWidget *>(QStringLiteral("List3"))->setCurrentRow(13);
    auto *files = window.findChild<QListWidget *>(QStringLiteral("List1"));
    const char *picks[] = {"Pfiff lang.wav", "Glocke.wav", "Zischen.wav"};
    for (int k = 1; k <= 3; ++k) {
        files->setCurrentItem(
            files->findItems(QString::fromUtf8(picks[k - 1]), Qt::MatchExactly).value(0));
        window.Slot_DblClick(k);
    }
    window.findChild<QPushButton *>(QStringLiteral("Test2"))->click();
    shoot(window, "2-slots-loop.png");

    window.findChild<QRadioButton *>(QStringLiteral("Selectrix"))->click();
    shoot(window, "3-selectrix.png");

    window.findChild<QAction *>(QStringLiteral("Info"))->trigger();
    if (auto *about = window.findChild<frmAbout *>())
        shoot(*about, "4-about.png");
    return 0;
}
