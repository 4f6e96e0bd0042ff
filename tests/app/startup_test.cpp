#include <gtest/gtest.h>
#include <QCoreApplication>
#include <QDir>
#include <QProcess>

namespace klangor {
namespace {

// Without a display the program says in one German line why it cannot start.
TEST(Startup, WithoutADisplayOneLineAndExitCodeOne)
{
    QProcess program;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        environment.remove(QString::fromLatin1(name));
    program.setProcessEnvironment(environment);
    // The tests are built beside the program.
    program.start(QDir(QCoreApplication::applicationDirPath()).filePath("klangor"), {});
    ASSERT_TRUE(program.waitForFinished(60000));
    EXPECT_EQ(program.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(program.exitCode(), 1);
    EXPECT_EQ(QString::fromUtf8(program.readAllStandardError()),
              QStringLiteral("Klangor braucht eine grafische Sitzung: es ist kein Bildschirm "
                             "erreichbar.\n"));
}

} // namespace
} // namespace klangor
