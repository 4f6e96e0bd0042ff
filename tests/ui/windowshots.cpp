// Renders the main window in a few typical states to PNG files, for looking at the layout
// without a display: klangor_windowshots <output folder>
#include "support/fakeservices.h"
#include "support/wavwriter.h"
#include "ui/aboutdialog.h"
#include "ui/mainwindow.h"
#include "ui/widgets.h"

#include <QApplication>
#include <QDir>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>
#include <QTemporaryDir>

using namespace klangor;

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const QString out = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QDir::currentPath();
    QDir().mkpath(out);

    QTemporaryDir program, sounds;
    const QString bin = QString::fromLocal8Bit(qgetenv("KLANGOR_BIN_DIR"));
    for (const char *cv : {"cvdiesele.dat", "cvdampf.dat", "cvselectrix.dat"})
        QFile::copy(QDir(bin.isEmpty() ? QCoreApplication::applicationDirPath() : bin)
                        .filePath(QString::fromUtf8(cv)),
                    program.filePath(QString::fromUtf8(cv)));
    for (const char *name :
         {"Anfahren.wav", "Bremsen.wav", "Glocke.wav", "Pfiff lang.wav", "Zischen.wav"})
        test::writeFile(sounds.filePath(QString::fromUtf8(name)), test::makeWav({}));

    test::FakeServices fakes;
    Form1Services services = fakes.fakeServices(program.path(), sounds.path());
    Form1 window(services);
    window.show();

    const auto shoot = [&](const char *name) {
        QApplication::processEvents();
        window.grab().save(QDir(out).filePath(QString::fromUtf8(name)));
    };
    shoot("1-start.png");

    window.list3()->setCurrentRow(13);
    const char *picks[] = {"Pfiff lang.wav", "Glocke.wav", "Zischen.wav"};
    for (int k = 1; k <= 3; ++k) {
        window.list1()->setCurrentItem(
            window.list1()->findItems(QString::fromUtf8(picks[k - 1]), Qt::MatchExactly).value(0));
        window.Slot_DblClick(k);
    }
    window.test(2)->click();
    shoot("2-slots-loop.png");

    window.selectrix()->click();
    shoot("3-selectrix.png");

    window.menuInfo()->trigger();
    QApplication::processEvents();
    if (frmAbout *about = window.aboutBox())
        about->grab().save(QDir(out).filePath(QStringLiteral("4-about.png")));
    return 0;
}
