#include "platform/programfolder.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QTemporaryDir>

namespace klangor {
namespace {

TEST(ProgramFolder, BesideTheProgramOnlyWithTheDefaultsThereElseASeededUserFolder)
{
    // bin/ without the defaults, which lie in share/ (an installed program).
    QTemporaryDir bin, share, user;
    const QDir mine(user.filePath(QStringLiteral("Klangor")));
    ASSERT_TRUE(test::writeFile(share.filePath(QStringLiteral("cvdiesele.dat")), "D\r\n"));
    ASSERT_TRUE(test::writeFile(share.filePath(QStringLiteral("cvdampf.dat")), "S\r\n"));
    ASSERT_TRUE(mine.mkpath(QStringLiteral(".")));
    ASSERT_TRUE(test::writeFile(mine.filePath(QStringLiteral("cvdampf.dat")), "eigene"));

    EXPECT_EQ(resolveProgramFolder(bin.path(), mine.path(), {bin.path(), share.path()}),
              mine.path());
    EXPECT_EQ(test::readFile(mine.filePath(QStringLiteral("cvdiesele.dat"))), "D\r\n");
    EXPECT_EQ(test::readFile(mine.filePath(QStringLiteral("cvdampf.dat"))), "eigene");
    EXPECT_FALSE(mine.exists(QStringLiteral("cvselectrix.dat")));
    EXPECT_TRUE(QDir(bin.path()).isEmpty());

    // A build or an unpacked copy: the defaults beside the program, which can write there.
    ASSERT_TRUE(test::writeFile(bin.filePath(QStringLiteral("cvdampf.dat")), "S\r\n"));
    const QString unused = user.filePath(QStringLiteral("unbenutzt"));
    EXPECT_EQ(resolveProgramFolder(bin.path(), unused, {}), bin.path());
    EXPECT_FALSE(QDir(unused).exists());
}

} // namespace
} // namespace klangor
