#include <gtest/gtest.h>
#include <QCoreApplication>
#include <QDir>
#include <QProcess>

namespace klangor {
namespace {

// Runs the program (built beside the tests) as in a session without any display.
void runWithoutDisplay(QProcess &program, const QStringList &arguments)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        environment.remove(QString::fromLatin1(name));
    program.setProcessEnvironment(environment);
    program.start(QDir(QCoreApplication::applicationDirPath()).filePath("klangor"), arguments);
    ASSERT_TRUE(program.waitForFinished(60000));
    EXPECT_EQ(program.exitStatus(), QProcess::NormalExit);
}

// Without a display the window says in one German line why it cannot start; Qt's own options
// (a session manager's -session) mean the window too.
TEST(Startup, WithoutADisplayOneLineAndExitCodeOne)
{
    for (const QStringList &arguments : {QStringList(), QStringList{"-session", "s1"}}) {
        QProcess program;
        runWithoutDisplay(program, arguments);
        EXPECT_EQ(program.exitCode(), 1);
        EXPECT_EQ(QString::fromUtf8(program.readAllStandardError()),
                  QStringLiteral("Klangor braucht eine grafische Sitzung: es ist kein Bildschirm "
                                 "erreichbar.\n"));
    }
}

// The command line needs no display and writes UTF-8.
TEST(Startup, CommandLineRunsWithoutADisplay)
{
    QProcess program;
    runWithoutDisplay(program, {"check", "/fehlt/ä.wav"});
    EXPECT_EQ(program.exitCode(), 1);
    EXPECT_EQ(program.readAllStandardError(), QByteArray());
    EXPECT_EQ(program.readAllStandardOutput(),
              "/fehlt/\xC3\xA4.wav\tDie ausgew\xC3\xA4hlte Sound-Datei hat einen ung\xC3\xBCltigen "
              "Format.\n");
}

} // namespace
} // namespace klangor
