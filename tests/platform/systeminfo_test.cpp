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

    // Each program notes its path in the file "ran".
    const QByteArray script = "#!/bin/sh\necho $0 >> '" + bin.filePath("ran").toUtf8() + "'\n";
    for (const QString name : {"gnome-system-monitor", "hardinfo2", "msinfo32.exe"}) {
        ASSERT_TRUE(test::writeFile(bin.filePath(name), script));
        ASSERT_TRUE(QFile::setPermissions(bin.filePath(name), QFile::ReadOwner | QFile::ExeOwner));
    }
    const QByteArray started = bin.filePath("hardinfo2").toUtf8() + "\n";
    EXPECT_TRUE(startSystemInfo(launcher));
    EXPECT_TRUE(QTest::qWaitFor([&] { return test::readFile(bin.filePath("ran")) == started; }));
}

} // namespace
} // namespace klangor
