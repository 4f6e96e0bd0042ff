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
    ASSERT_TRUE(test::writeFile(share.filePath(QStringLiteral("cvdiesele.dat")), "D\r\n"));
    ASSERT_TRUE(test::writeFile(share.filePath(QStringLiteral("cvdampf.dat")), "S\r\n"));
    ASSERT_TRUE(test::writeFile(user.filePath(QStringLiteral("cvdampf.dat")), "eigene"));

    EXPECT_EQ(resolveProgramFolder(bin.path(), user.path(), {bin.path(), share.path()}),
              user.path());
    EXPECT_EQ(test::readFile(user.filePath(QStringLiteral("cvdiesele.dat"))), "D\r\n");
    EXPECT_EQ(test::readFile(user.filePath(QStringLiteral("cvdampf.dat"))), "eigene");
    EXPECT_TRUE(QDir(bin.path()).isEmpty());

    // A build or an unpacked copy: the defaults beside the program, which can write there.
    ASSERT_TRUE(test::writeFile(bin.filePath(QStringLiteral("cvdampf.dat")), "S\r\n"));
    EXPECT_EQ(resolveProgramFolder(bin.path(), user.filePath(QStringLiteral("x")), {}), bin.path());
}

} // namespace
} // namespace klangor
