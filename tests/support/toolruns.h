#pragma once

#include "support/standinfolder.h"

#include <fcntl.h>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTest>
#include <QUuid>
#include <unistd.h>

namespace klangor::test {

// Marks the processes of the tools started meanwhile through their environment, which every
// process they start inherits, wine's included.
struct RunMark
{
    QByteArray value = "KLANGOR_TEST_RUN=" + QUuid::createUuid().toByteArray(QUuid::Id128);
    ScopedEnv env{"KLANGOR_TEST_RUN", value.mid(17)};

    // Processes with the mark that are not dead yet.
    int liveProcesses() const
    {
        int live = 0;
        for (const QString &pid : QDir("/proc").entryList(QDir::Dirs)) {
            const QString folder = "/proc/" + pid + "/";
            live += !readFile(folder + "stat").contains(") Z ") &&
                    readFile(folder + "environ").contains(value);
        }
        return live;
    }
};

// A pseudo serial device pair made by socat: a tool opens the end that device() names, the
// test reads what arrives at the other one.
class PtyPair
{
public:
    explicit PtyPair(const QString &folder) : m_folder(folder)
    {
        QDir().mkpath(folder);
        m_socat.start("socat", {"pty,raw,echo=0,link=" + folder + "/tool",
                                "pty,raw,echo=0,link=" + folder + "/test"});
        EXPECT_TRUE(QTest::qWaitFor([&] { return QFileInfo::exists(folder + "/test"); }, 30000));
        m_fd = ::open(QFile::encodeName(folder + "/test").constData(), O_RDONLY | O_NONBLOCK);
    }
    ~PtyPair() { ::close(m_fd); }
    QString device() const { return QFileInfo(m_folder + "/tool").canonicalFilePath(); }
    // What arrived, once it holds size bytes or nothing more comes.
    QByteArray received(qsizetype size)
    {
        QByteArray bytes(1 << 16, '\0');
        qsizetype got = 0;
        static_cast<void>(QTest::qWaitFor(
            [&] {
                got += std::max<ssize_t>(::read(m_fd, bytes.data() + got, bytes.size() - got), 0);
                return got >= size;
            },
            120000)); // a tool may wait for wine to set its prefix up first
        return bytes.left(got);
    }

private:
    QString m_folder;
    QProcess m_socat;
    int m_fd = -1;
};

} // namespace klangor::test
