#include "platform/systeminfo.h"
#include "support/standinfolder.h"

#include <gtest/gtest.h>
#include <QTemporaryDir>
#include <QTest>

namespace klangor {
namespace {

TEST(SystemInfo, StartsOnlyTheFirstInstalledProgramOfTheList)
{
    QTemporaryDir bin;
    test::ScopedEnv onlyThere("PATH", bin.path().toUtf8());
    SystemProgramLauncher launcher;
    EXPECT_FALSE(startSystemInfo(launcher)); // nothing installed

    // Each program notes its name in "ran".
    const QString ran = bin.filePath(QStringLiteral("ran"));
    for (const QString name : {"gnome-system-monitor", "hardinfo2", "msinfo32.exe"}) {
        const QString program = bin.filePath(name);
        ASSERT_TRUE(test::writeFile(program, "#!/bin/sh\necho " + name.toUtf8() + " >> '" +
                                                 ran.toUtf8() + "'\n"));
        ASSERT_TRUE(QFile::setPermissions(program, QFile::ReadOwner | QFile::ExeOwner));
    }
    EXPECT_TRUE(startSystemInfo(launcher));
    EXPECT_TRUE(QTest::qWaitFor([&] { return !test::readFile(ran).isEmpty(); }, 60000));
    EXPECT_EQ(test::readFile(ran), "hardinfo2\n");
}

} // namespace
} // namespace klangor
