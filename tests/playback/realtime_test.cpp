#include "support/printers.h"
#include "support/standinfolder.h"

#include <functional>
#include <gtest/gtest.h>
#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace klangor {
namespace {

// Runs the probe, which asks for real time as an ordinary user, against the system bus at
// address; whileAsking runs once the probe's call is back. Returns the lines it printed. One
// that leaves right after asking must be gone within 10 s.
QStringList probe(
    const QString &address, const std::function<void()> &whileAsking = [] {}, bool leave = false)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DBUS_SYSTEM_BUS_ADDRESS", address);
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(test::StandInFolder::binPath("klangor_realtime_probe"),
                  leave ? QStringList{"leave"} : QStringList{});
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return process.canReadLine() || process.state() == QProcess::NotRunning; }, 30000));
    QByteArray output = process.readLine();
    whileAsking();
    EXPECT_TRUE(process.state() == QProcess::NotRunning ||
                process.waitForFinished(leave ? 10000 : 90000));
    EXPECT_TRUE(process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0);
    output += process.readAll();
    return QString::fromUtf8(output).split('\n', Qt::SkipEmptyParts);
}

// A system bus of the test's own with the real RealtimeKit and polkit on it; a rule grants
// RealtimeKit's actions to everyone, as a desktop's active session does for its user. polkit
// reads its rules only from /etc, so it gets the rule in a mount namespace of its own.
class RealtimeKit : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (::geteuid() != 0)
            GTEST_SKIP() << "needs root to start RealtimeKit and polkit and to ask as another user";
        QProcess unshare;
        unshare.setProcessChannelMode(QProcess::MergedChannels);
        unshare.start("unshare", {"--mount", "true"});
        if (!unshare.waitForFinished(20000) || unshare.exitCode() != 0)
            GTEST_SKIP() << "polkit's rule needs a mount namespace, which is not allowed here: "
                         << unshare.readAll().toStdString();
        ASSERT_EQ(::chmod(qPrintable(m_dir.path()), 0755), 0); // for the user to reach the bus
        const QString rules = m_dir.filePath("rules");
        m_address = "unix:path=" + m_dir.filePath("system_bus_socket");
        ASSERT_TRUE(test::writeFile(
            m_dir.filePath("bus.conf"),
            "<busconfig><type>system</type><listen>" + m_address.toUtf8() +
                "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                "<allow user=\"*\"/><allow own=\"*\"/><allow send_destination=\"*\"/>"
                "<allow receive_sender=\"*\"/>"
                "</policy></busconfig>"));
        ASSERT_TRUE(QDir().mkdir(rules));
        ASSERT_TRUE(
            test::writeFile(rules + "/10-realtime.rules",
                            "polkit.addRule(function(action) {\n"
                            "    if (action.id.indexOf('org.freedesktop.RealtimeKit1.') == 0)\n"
                            "        return polkit.Result.YES;\n"
                            "});\n"));
        start(m_bus, "dbus-daemon",
              {"--config-file=" + m_dir.filePath("bus.conf"), "--nofork", "--print-address"},
              "unix:path=");
        // The daemons' logs go to pipes: RealtimeKit limits its file sizes to nothing.
        start(m_rtkit, "/usr/libexec/rtkit-daemon", {"--stderr", "--no-canary"}, "Running.");
        start(m_polkit, "unshare",
              {"--mount", "sh", "-c",
               "mount --bind \"$0\" /etc/polkit-1/rules.d && exec /usr/lib/polkit-1/polkitd",
               rules},
              "Acquired the name");
    }
    void start(QProcess &process, const QString &program, const QStringList &arguments,
               const QByteArray &ready)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("DBUS_SYSTEM_BUS_ADDRESS", m_address);
        process.setProcessEnvironment(environment);
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(program, arguments);
        const bool started = QTest::qWaitFor(
            [&] {
                return process.state() == QProcess::NotRunning ||
                       process.peek(1 << 20).contains(ready);
            },
            20000);
        ASSERT_TRUE(started && process.state() == QProcess::Running)
            << qPrintable(program) << ": " << process.readAll().toStdString();
    }
    void TearDown() override
    {
        for (QProcess *process : {&m_polkit, &m_rtkit, &m_bus}) {
            process->kill();
            process->waitForFinished();
        }
    }
    std::string logs() { return (m_rtkit.readAll() + m_polkit.readAll()).toStdString(); }

    QTemporaryDir m_dir;
    QString m_address;
    QProcess m_bus, m_rtkit, m_polkit;
};

// An ordinary user's writer thread gets real time from RealtimeKit, at the priority asked for.
TEST_F(RealtimeKit, GrantsTheWriterThreadRealTime)
{
    EXPECT_EQ(probe(m_address).mid(1), QStringList{"rr 5"}) << logs();
}

// A bus that takes the connection and never answers: the writer's call is back with the request
// still out, a program that asked and leaves is not held up by it, and once the bus is gone
// the thread runs on at its old priority.
TEST(Realtime, StalledBusNeverHoldsTheCallerAndLeavesItsPriority)
{
    QTemporaryDir dir;
    ASSERT_EQ(::chmod(qPrintable(dir.path()), 0755), 0);
    const QByteArray path = dir.filePath("system_bus_socket").toLocal8Bit();
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::copy(path.begin(), path.end(), address.sun_path);
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(listener, 4), 0);
    ASSERT_EQ(::chmod(path.constData(), 0777), 0);
    EXPECT_EQ(probe(
                  "unix:path=" + path, [] {}, true),
              QStringList{"returned pending"});
    EXPECT_EQ(probe("unix:path=" + path, [&] { ::close(listener); }),
              QStringList({"returned pending", "other 0"}));
}

} // namespace
} // namespace klangor
