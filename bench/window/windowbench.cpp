// How long the window's event loop stands still in a scripted session: opening a full project,
// playing, converting a 10-minute 48 kHz sound and opening each hostile input. A timer that
// should fire every 2 ms records the longest gap between two of its runs; that gap is the
// longest time the window could not have answered. Target: under 100 ms.
#include "common/wavewriter.h"
#include "hostileinputs.h"
#include "platform/safefile.h"
#include "platform/waveaudiodevice.h"
#include "playback/soundservice.h"
#include "project/arrayfile.h"
#include "project/soundprojectfile.h"
#include "ui/mainwindow.h"
#include "ui/qtmessagepresenter.h"
#include "ui/qtprojectdialogs.h"

#include <cmath>
#include <cstdio>
#include <QAbstractButton>
#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QListWidget>
#include <QMessageBox>
#include <QTemporaryDir>
#include <QTimer>

using namespace klangor;

namespace {

constexpr qint64 TargetMs = 100;

// The longest time between two runs of a 2 ms timer since the last reset.
class StallMeter
{
public:
    StallMeter()
    {
        m_timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&m_timer, &QTimer::timeout,
                         [this] { m_longest = std::max(m_longest, m_clock.restart()); });
        m_timer.start(2);
        m_clock.start();
    }
    void reset()
    {
        m_start.restart();
        m_clock.restart();
        m_longest = 0;
    }
    qint64 sinceReset() const { return m_start.elapsed(); }
    qint64 longest() const { return std::max(m_longest, m_clock.elapsed()); }

private:
    QTimer m_timer;
    QElapsedTimer m_clock, m_start;
    qint64 m_longest = 0;
};

void settle(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

QByteArray tone(int channels, int rate, double seconds)
{
    const auto frames = static_cast<std::size_t>(rate * seconds);
    std::vector<double> samples(frames * static_cast<std::size_t>(channels));
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = 0.5 * std::sin(static_cast<double>(i / static_cast<std::size_t>(channels)) *
                                    2 * M_PI * 440 / rate);
    const WaveFormat format{channels, rate, 16, false};
    return waveFileBytes(format, waveSampleBytes(format, samples));
}

// A project whose 88 sound numbers all hold a 5.9-second sound.
bool writeFullProject(const QString &folder, const QString &project)
{
    const QByteArray sound = tone(1, 11025, 5.9);
    SlotFileNames names;
    StringArray array = StringArray::oneDimensional(0, SlotFileNames::UpperBound);
    for (int i = 0; i <= SlotFileNames::UpperBound; ++i) {
        names.set(i, QStringLiteral("sound%1.wav").arg(i));
        array.setElement(i, names.at(i));
        if (!writeFileSafely(QDir(folder).filePath(QStringLiteral("%1.wav").arg(i)), sound))
            return false;
    }
    if (!WriteArrayFile(QDir(folder).filePath(QStringLiteral("sound.arr")), array) ||
        !writeFileSafely(QDir(folder).filePath(QStringLiteral("cvlist.dat")), "CV1=3\r\n"))
        return false;
    const Result<ProjectRecords> records = collectProjectRecords(folder, names, false);
    return records && writeProjectFile(project, records.value());
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QTemporaryDir program, files, full;
    const QString project = QDir(files.path()).filePath(QStringLiteral("voll.spj"));
    const QList<HostileInput> hostile = writeHostileInputs(files.path());
    const QString longSound = QDir(files.path()).filePath(QStringLiteral("zehn-minuten.wav"));
    if (!writeFullProject(full.path(), project) || hostile.isEmpty() ||
        !writeFileSafely(longSound, tone(2, 48000, 600))) {
        std::fprintf(stderr, "Die Dateien der Messung lassen sich nicht schreiben.\n");
        return 1;
    }
    for (const char *cv : {"cvdiesele.dat", "cvdampf.dat", "cvselectrix.dat"})
        QFile::copy(QDir(QCoreApplication::applicationDirPath()).filePath(QString::fromLatin1(cv)),
                    QDir(program.path()).filePath(QString::fromLatin1(cv)));

    const std::unique_ptr<SoundService> sound = createSystemSoundService(program.path());
    QtMessagePresenter messages;
    RiffWaveAudioDevice wave;
    QtProjectDialogs dialogs; // never shown: projects are opened by path
    const WindowServices services{program.path(), files.path(), sound.get(), &messages,
                                  &wave,          &dialogs,     nullptr,     {}};
    Form1 window(services);
    window.show();
    messages.setParent(&window);
    // Boxes and dialogs are answered as a user would: OK, and "Umwandeln" as the dialog offers
    // it (the whole sound is measured, 5.9 s of it converted).
    QTimer answer;
    QObject::connect(&answer, &QTimer::timeout, [] {
        if (auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget())) {
            std::printf("    Meldung: %s\n",
                        qPrintable(box->text().left(100).replace(QLatin1Char('\n'), u' ')));
            box->done(QMessageBox::Ok);
        } else if (auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
                   dialog && dialog->objectName() == QStringLiteral("ConversionDialog")) {
            dialog->accept();
        }
    });
    answer.start(20);
    settle(200);

    const auto button = [&window](const char *name) {
        return window.findChild<QAbstractButton *>(QString::fromLatin1(name));
    };
    const auto select = [&window](const QString &path) {
        auto *list = window.findChild<QListWidget *>(QStringLiteral("List1"));
        list->setCurrentItem(
            list->findItems(QFileInfo(path).fileName(), Qt::MatchExactly).value(0));
    };
    StallMeter meter;
    qint64 longest = 0, conversion = 0;
    const auto step = [&](const QString &name, const std::function<void()> &action,
                          bool converting = false) {
        settle(50);
        meter.reset();
        action();
        settle(50);
        const qint64 stalled = meter.longest(), took = meter.sinceReset() - 50;
        (converting ? conversion : longest) = std::max(converting ? conversion : longest, stalled);
        std::printf("%-50s %5lld ms  (Schritt: %lld ms)\n", qPrintable(name),
                    static_cast<long long>(stalled), static_cast<long long>(took));
        std::fflush(stdout);
    };

    std::printf("Längster Stillstand der Ereignisschleife je Schritt:\n");
    step(QStringLiteral("Volles Projekt öffnen"), [&] {
        window.openProject(project);
        if (window.slotFileNames().at(87) != QStringLiteral("sound87.wav"))
            std::printf("    Das volle Projekt wurde nicht geöffnet.\n");
    });
    step(QStringLiteral("Loop und Stop"), [&] {
        button("Test1")->click();
        settle(300);
        button("Test1")->click();
    });
    step(QStringLiteral("Soundgruppe abspielen"), [&] { button("Command2")->click(); });
    step(QStringLiteral("10 Minuten 48 kHz im Dateifenster anhören"), [&] {
        select(longSound);
        window.List1_DblClick();
    });
    step(
        QStringLiteral("10 Minuten 48 kHz umwandeln"),
        [&] {
            select(longSound);
            window.Umwandeln_Click();
            const QFileInfo converted(
                QDir(files.path()).filePath(QStringLiteral("zehn-minuten_decoder.wav")));
            if (converted.size() != 44 + 2 * 65047) // 5.9 s, 16 bit
                std::printf("    Der Sound wurde nicht umgewandelt.\n");
        },
        true);
    for (const HostileInput &input : hostile) {
        step(input.name, [&] {
            if (input.kind == HostileInput::Kind::Project) {
                window.openProject(input.path);
                button("Test1")->click();
            } else {
                select(input.path);
                window.Slot_DblClick(1);
                window.List1_DblClick();
            }
        });
    }
    std::printf("\nohne Umwandeln: %lld ms, Umwandeln: %lld ms (Ziel: unter %lld ms) %s\n",
                static_cast<long long>(longest), static_cast<long long>(conversion),
                static_cast<long long>(TargetMs),
                std::max(longest, conversion) < TargetMs ? "erreicht" : "NICHT ERREICHT");
    return 0;
}
