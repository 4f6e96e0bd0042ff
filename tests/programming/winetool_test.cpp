// Windows tools through real wine, in a prefix of the build's own that the first start sets up
// (hence the long failsafes), on pseudo serial devices where USB adapters would appear.
#include "programming/programmingrun.h"
#include "programming/soundlist.h"
#include "support/toolruns.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <QSignalSpy>
#include <QStandardPaths>
#include <sys/stat.h>

namespace klangor {
namespace {

using Outcome = ProgrammingRun::Outcome;
using test::PtyPair;
using test::StandInFolder;

// Set when this test program runs again as a user outside the group dialout.
const QString AsNobody = qEnvironmentVariable("KLANGOR_TEST_DEVICE_ROOT");

class WineTool : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (QStandardPaths::findExecutable("wine").isEmpty() ||
            QStandardPaths::findExecutable("socat").isEmpty() || !QFile::exists(m_setup.launcher))
            GTEST_SKIP() << "needs wine, socat and the Windows programs (x86_64-w64-mingw32-g++)";
        m_folder.copyFromBin("windows/sndburn.exe", "sndburn.exe");
        ASSERT_TRUE(QDir().mkpath(m_devices.filePath("serial/by-id")));
        m_sent = soundListBytes({}, 16) + test::readFile(m_folder.path("cvlist.dat"));
    }
    void plug(const QString &name, const PtyPair &pair)
    {
        ASSERT_TRUE(QFile::link(pair.device(), m_devices.filePath("serial/by-id/" + name)));
    }
    // Starts sndburn.exe on port; the outcome once the run has ended.
    Outcome start(const ToolPort &port)
    {
        QSignalSpy ended(&m_run, &ProgrammingRun::finished);
        m_run.start({}, 16, [&] {
            return ToolCommand{toolCommand(false, 1).program,
                               toolCommand(false, port.number).arguments, port};
        });
        return ended.size() == 1 || ended.wait(600000) ? ended.first().first().value<Outcome>()
                                                       : Outcome(-1);
    }

    StandInFolder m_folder;
    QTemporaryDir m_devices, m_pairs;
    const ToolSetup m_setup{AsNobody.isEmpty() ? StandInFolder::binPath("../wineprefix")
                                               : m_folder.path("wine"),
                            StandInFolder::binPath("klangor-launch.exe"),
                            AsNobody.isEmpty() ? m_devices.path() : AsNobody};
    ProgrammingRun m_run{m_folder.folder(), [this] {
                             return createSystemToolProcess(m_setup);
                         }};
    QByteArray m_sent; // what the tool writes to its port
};

// With a single adapter, Com1 reaches it without a choice; the whole Windows exit code counts
// (the status text of each outcome is the run's own test).
TEST_F(WineTool, ExitCodesDecideTheOutcomeAndTheBytesReachTheOnlyAdapter)
{
    PtyPair adapter(m_pairs.path());
    plug("usb-Programmer-if00", adapter);
    const auto done = Outcome::Done, failed = Outcome::Failed;
    const std::tuple<const char *, const char *, Outcome> cases[] = {
        {"0", "0", done},     {"258", "0", done},   {"1", "0", failed},   {"2", "0", failed},
        {"255", "0", failed}, {"256", "0", failed}, {"514", "0", failed}, {"0", "1", failed}};
    for (const auto &[code, crash, outcome] : cases) {
        SCOPED_TRACE(std::string(code) + (crash[0] == '1' ? " crash" : ""));
        const test::ScopedEnv exit("KLANGOR_STANDIN_EXIT", code),
            crashes("KLANGOR_STANDIN_CRASH", crash);
        EXPECT_EQ(start({1, {}}), outcome);
        EXPECT_EQ(adapter.received(m_sent.size()), m_sent);
    }
}

TEST_F(WineTool, EachPortReachesTheAdapterChosenForIt)
{
    PtyPair first(m_pairs.filePath("a")), second(m_pairs.filePath("b"));
    plug("usb-First", first);
    plug("usb-Second", second);
    EXPECT_EQ(start({1, {}}), Outcome::PortUnavailable); // which of the two is not guessed
    EXPECT_TRUE(m_run.message().startsWith("Es sind 2 USB-Seriell-Adapter"));
    EXPECT_EQ(start({2, "usb-Gone"}), Outcome::PortUnavailable);
    EXPECT_TRUE(m_folder.log().isEmpty());
    for (const auto &[port, name, reached, other] :
         {std::tuple{2, "usb-Second", &second, &first}, {3, "usb-First", &first, &second}}) {
        EXPECT_EQ(start({port, name}), Outcome::Done) << m_folder.log().constData();
        EXPECT_EQ(reached->received(m_sent.size()), m_sent);
        EXPECT_EQ(other->received(0), "");
    }
}

// The tool, wine's processes of the run and the prefix's server started for it all end. The
// server dies before it saves the registry of a prefix being set up or updated (as after a wine
// upgrade), so wine is left to do that again.
TEST_F(WineTool, CancelEndsEveryProcessOfTheRun)
{
    PtyPair adapter(m_pairs.path());
    plug("usb-Programmer", adapter);
    const test::RunMark mark;
    const test::ScopedEnv hold("KLANGOR_STANDIN_UNTIL", m_folder.path("release").toUtf8());
    // wine looks at the prefix only when it starts the prefix's server.
    ASSERT_GE(QProcess::execute("env", {"WINEPREFIX=" + m_setup.winePrefix, "wineserver", "-w"}),
              0);
    const QString updated = m_setup.winePrefix + "/.update-timestamp";
    QFile::remove(updated);
    QSignalSpy ended(&m_run, &ProgrammingRun::finished);
    m_run.start({}, 16, [] { return toolCommand(false, 1); });
    ASSERT_TRUE(QTest::qWaitFor([&] { return QFile::exists(updated); }, 600000));
    EXPECT_EQ(adapter.received(m_sent.size()), m_sent); // the tool runs
    EXPECT_GE(mark.liveProcesses(), 2);                 // the launcher and the tool at least
    m_run.cancel();
    EXPECT_TRUE(QTest::qWaitFor([&] { return mark.liveProcesses() == 0; }, 1000));
    EXPECT_EQ(ended.size(), 1);
    EXPECT_FALSE(QFile::exists(updated));
}

// An adapter of the group dialout, tried by a user outside it: the message says what to do, and
// neither the prefix nor the tool is touched. Runs this test again as that user.
TEST_F(WineTool, APortTheUserMayNotOpenIsExplainedAndNothingStarts)
{
    if (!AsNobody.isEmpty()) {
        EXPECT_EQ(start({1, {}}), Outcome::PortUnavailable);
        EXPECT_EQ(m_run.message(),
                  QString("Sie dürfen „%1“ nicht öffnen. Sie sind nicht in der Gruppe dialout: "
                          "`sudo adduser $USER dialout`, dann neu anmelden.")
                      .arg(QFileInfo(AsNobody + "/serial/by-id/usb-P").canonicalFilePath()));
        EXPECT_FALSE(QFile::exists(m_setup.winePrefix));
        return;
    }
    const group *dialout = getgrnam("dialout");
    if (geteuid() != 0 || !dialout)
        GTEST_SKIP() << "needs root and the group dialout to run as a user outside it";
    PtyPair adapter(m_pairs.path());
    const QByteArray device = QFile::encodeName(adapter.device());
    ASSERT_TRUE(chown(device, 0, dialout->gr_gid) == 0 && chmod(device, 0660) == 0);
    plug("usb-P", adapter);
    ASSERT_EQ(chmod(QFile::encodeName(m_devices.path()), 0755), 0);
    QProcess asNobody;
    asNobody.setChildProcessModifier([] {
        if (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0)
            _exit(99);
    });
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("KLANGOR_TEST_DEVICE_ROOT", m_devices.path());
    asNobody.setProcessEnvironment(environment);
    asNobody.setProcessChannelMode(QProcess::MergedChannels);
    asNobody.start(QCoreApplication::applicationFilePath(),
                   {"--gtest_filter=WineTool.APortTheUserMayNotOpen*"});
    ASSERT_TRUE(asNobody.waitForFinished(60000));
    const QByteArray output = asNobody.readAll();
    EXPECT_TRUE(asNobody.exitCode() == 0 && output.contains("[  PASSED  ] 1 test"))
        << output.data();
}

} // namespace
} // namespace klangor
