#include "platform/programfolder.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QTemporaryDir>

namespace klangor {
namespace {

TEST(ProgramFolder, BesideTheProgramOnlyWithTheDefaultsThereElseASeededUserFolder)
{
    // bin/ without the defaults, which lie in share/ (an installed program).
    QTemporaryDir bin, share, user;
    ASSERT_TRUE(test::writeFile(share.filePath("cvdiesele.dat"), "D\r\n"));
    ASSERT_TRUE(test::writeFile(share.filePath("cvdampf.dat"), "S\r\n"));
    ASSERT_TRUE(test::writeFile(user.filePath("cvdampf.dat"), "eigene"));
    EXPECT_EQ(resolveProgramFolder(bin.path(), user.path(), {bin.path(), share.path()}).value(),
              user.path());
    EXPECT_EQ(test::readFile(user.filePath("cvdiesele.dat")), "D\r\n");
    EXPECT_EQ(test::readFile(user.filePath("cvdampf.dat")), "eigene");
    // A user folder that cannot be made (here: below a file) is told, with the reason.
    const QString blocked = share.filePath("cvdampf.dat/Klangor");
    const Result<QString> refused = resolveProgramFolder(bin.path(), blocked, {});
    ASSERT_FALSE(refused);
    EXPECT_TRUE(refused.error().text.contains(QStringLiteral("„%1“").arg(blocked)));

    // A build or an unpacked copy: the defaults beside the program, which can write there.
    ASSERT_TRUE(test::writeFile(bin.filePath("cvdampf.dat"), "S\r\n"));
    EXPECT_EQ(resolveProgramFolder(bin.path(), user.filePath("x"), {}).value(), bin.path());
}

} // namespace
} // namespace klangor
