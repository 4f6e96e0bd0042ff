#include "support/killedwork.h"

#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace klangor::test {
namespace {

// Kills at exact steps: a child dies by SIGKILL right before its n-th rename, the moment at
// which a file changes from old to new.
std::atomic<int> g_renames{0};
std::atomic<int> g_killAtRename{-1};

} // namespace
} // namespace klangor::test

extern "C" int rename(const char *from, const char *to)
{
    if (klangor::test::g_renames++ == klangor::test::g_killAtRename)
        ::kill(::getpid(), SIGKILL);
    return static_cast<int>(::syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

namespace klangor::test {
namespace {

// Runs work in a child process that is killed right before its atRename-th rename or, with
// atRename < 0, after the given time unless it ended first. Returns how many renames the child
// made (at most 255), or -1 when the kill came first.
int runAndKill(const std::function<void()> &work, int atRename, std::chrono::microseconds after)
{
    const pid_t child = ::fork();
    if (child == 0) {
        g_renames = 0;
        g_killAtRename = atRename;
        const long us = static_cast<long>(after.count()) + 1; // 0 would disarm the timer
        const itimerval timer{{0, 0}, {us / 1000000, us % 1000000}};
        ::signal(SIGALRM, [](int) { ::kill(::getpid(), SIGKILL); });
        if (atRename < 0)
            ::setitimer(ITIMER_REAL, &timer, nullptr);
        work();
        ::_exit(std::min<int>(g_renames, 255));
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

void setFolder(const QString &folder, const QMap<QString, QByteArray> &files)
{
    QDir(folder).removeRecursively();
    QDir().mkpath(folder);
    for (auto it = files.begin(); it != files.end(); ++it) {
        QFile file(QDir(folder).filePath(it.key()));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(it.value()) == it->size());
    }
}

void expectOldOrNewAfterKills(const std::function<void()> &work, const QString &folder,
                              const QMap<QString, QByteArray> &old,
                              const std::function<QMap<QString, QByteArray>()> &state,
                              const std::function<void()> &nextRun)
{
    setFolder(folder, old);
    const auto before = state();
    const auto start = std::chrono::steady_clock::now();
    const int renames = runAndKill(work, -1, std::chrono::minutes(1));
    const auto whole = std::chrono::steady_clock::now() - start;
    const auto after = state();
    ASSERT_GT(renames, 0);
    ASSERT_NE(after, before);
    constexpr int Kills = 50;
    for (int kill = 0; kill < Kills; ++kill) {
        setFolder(folder, old);
        const int atRename = kill % 2 == 0 ? kill / 2 * renames / (Kills / 2) : -1;
        const auto at = std::chrono::duration_cast<std::chrono::microseconds>(
            whole * 1.2 * QRandomGenerator::global()->generateDouble());
        const bool interrupted = runAndKill(work, atRename, at) < 0;
        ASSERT_TRUE(interrupted || atRename < 0) << "kill " << kill;
        nextRun();
        const auto now = state();
        ASSERT_TRUE(now == before || now == after) << "kill " << kill;
    }
}

ExfatDisk::ExfatDisk()
{
    QProcess shell;
    shell.setWorkingDirectory(dir.path());
    shell.start(
        "sh",
        {"-ec",
         "PATH=$PATH:/usr/sbin:/sbin; [ -e /dev/fuse ] || { echo no /dev/fuse >&2; exit 1; }\n"
         "truncate -s 16M stick.img && mkdir stick\n"
         "mkfs.exfat stick.img >/dev/null\n"
         "losetup -f --show stick.img\n"
         "mount.exfat-fuse \"$(losetup -j stick.img | cut -d: -f1)\" stick"});
    shell.waitForFinished(60000);
    loop = shell.readAllStandardOutput().trimmed();
    why = shell.readAllStandardError().trimmed();
    path = shell.exitStatus() == QProcess::NormalExit && shell.exitCode() == 0
               ? dir.filePath("stick")
               : "";
}

ExfatDisk::~ExfatDisk()
{
    QProcess::execute("sh", {"-c",
                             "PATH=$PATH:/usr/sbin:/sbin; [ -z \"$1\" ] || umount \"$1\"; "
                             "[ -z \"$2\" ] || losetup -d \"$2\"",
                             "sh", path, loop});
}

} // namespace klangor::test
