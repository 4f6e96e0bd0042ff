#include "platform/programfolder.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <unistd.h>

namespace klangor {
namespace {

TEST(ProgramFolder, WritableFolderWithTheDefaultsBesideIsUsedAsItIs)
{
    QTemporaryDir exe, user;
    ASSERT_TRUE(test::writeFile(QDir(exe.path()).filePath(QStringLiteral("cvdiesele.dat")), "D"));
    EXPECT_EQ(resolveProgramFolder(exe.path(), user.filePath(QStringLiteral("k")), {exe.path()}),
              exe.path());
    EXPECT_FALSE(QDir(user.filePath(QStringLiteral("k"))).exists());
}

TEST(ProgramFolder, InstalledLayoutUsesTheUserFolderEvenWhenWritable)
{
    // bin/klangor with the defaults in share/klangor: writable for root, but a system folder.
    QTemporaryDir prefix, user;
    ASSERT_TRUE(QDir(prefix.path()).mkpath(QStringLiteral("bin")));
    ASSERT_TRUE(QDir(prefix.path()).mkpath(QStringLiteral("share/klangor")));
    const QString bin = prefix.filePath(QStringLiteral("bin"));
    const QString share = prefix.filePath(QStringLiteral("share/klangor"));
    for (const QString &name : cvDefaultFileNames())
        ASSERT_TRUE(test::writeFile(QDir(share).filePath(name), name.toUtf8()));
    const QString userFolder = user.filePath(QStringLiteral("Klangor"));

    EXPECT_EQ(resolveProgramFolder(bin, userFolder, {bin, share}), userFolder);
    for (const QString &name : cvDefaultFileNames())
        EXPECT_EQ(test::readFile(QDir(userFolder).filePath(name)), name.toUtf8());
    EXPECT_EQ(QDir(bin).entryList(QDir::Files), QStringList());
}

TEST(ProgramFolder, UnwritableFolderFallsBackToASeededUserFolder)
{
    QTemporaryDir exe, share, user;
    // Where root may write anywhere, a missing folder stands in for an unwritable one.
    const QString installed = exe.filePath(QStringLiteral("missing"));
    ASSERT_TRUE(
        test::writeFile(QDir(share.path()).filePath(QStringLiteral("cvdiesele.dat")), "D\r\n"));
    ASSERT_TRUE(
        test::writeFile(QDir(share.path()).filePath(QStringLiteral("cvdampf.dat")), "S\r\n"));
    const QString userFolder = user.filePath(QStringLiteral("Klangor"));
    ASSERT_TRUE(QDir().mkpath(userFolder));
    ASSERT_TRUE(test::writeFile(QDir(userFolder).filePath(QStringLiteral("cvdampf.dat")), "mine"));

    EXPECT_EQ(resolveProgramFolder(installed, userFolder, {installed, share.path()}), userFolder);
    EXPECT_EQ(test::readFile(QDir(userFolder).filePath(QStringLiteral("cvdiesele.dat"))), "D\r\n");
    EXPECT_EQ(test::readFile(QDir(userFolder).filePath(QStringLiteral("cvdampf.dat"))), "mine");
    EXPECT_FALSE(QFile::exists(QDir(userFolder).filePath(QStringLiteral("cvselectrix.dat"))));
}

TEST(ProgramFolder, ReadOnlyFolderIsNotWritable)
{
    if (geteuid() == 0)
        GTEST_SKIP() << "root writes into read-only folders";
    QTemporaryDir dir;
    ASSERT_TRUE(QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::ExeOwner));
    EXPECT_FALSE(isWritableFolder(dir.path()));
    QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

} // namespace
} // namespace klangor
