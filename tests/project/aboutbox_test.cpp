#include "platform/systeminfo.h"
#include "support/fakes.h"
#include "support/fakeservices.h"
#include "ui/aboutdialog.h"
#include "ui/mainwindow.h"
#include "ui/qtprojectdialogs.h"

#include <gtest/gtest.h>
#include <QAction>
#include <QApplication>
#include <QFileDialog>
#include <QFrame>
#include <QLabel>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

namespace klangor {
namespace {

const QString kFirstKey = QStringLiteral("SOFTWARE\\Microsoft\\Shared Tools\\MSINFO");
const QString kSecondKey = QStringLiteral("SOFTWARE\\Microsoft\\Shared Tools Location");
const QString kFirst = kFirstKey + QStringLiteral("|PATH");
const QString kSecond = kSecondKey + QStringLiteral("|MSINFO");

RegistryValue sz(const QByteArray &bytes)
{
    return {RegSz, bytes};
}

TEST(GetKeyValueTest, BufferAndTypeRules)
{
    struct Case
    {
        const char *what;
        std::optional<RegistryValue> value;
        bool result;
        QString keyVal; // keyVal starts as "vorher"
    };
    const QList<Case> cases = {
        {"string with its NUL", sz(QByteArray("C:\\x\\msinfo32.exe\0", 18)), true,
         QStringLiteral("C:\\x\\msinfo32.exe")},
        {"string without NUL", sz("C:\\y"), true, QStringLiteral("C:\\y")},
        {"only the last NUL goes", sz(QByteArray("ab\0\0", 4)), true,
         QString::fromLatin1("ab\0", 3)},
        {"empty value", sz(QByteArray()), true, QString()},
        {"Windows-1252 text",
         sz(QByteArray("C:\\Gr\xF6\xDF"
                       "e\0",
                       8)),
         true, QStringLiteral("C:\\Größe")},
        {"1024 bytes fit", sz(QByteArray(1024, 'a')), true, QString(1024, QLatin1Char('a'))},
        {"1025 bytes do not", sz(QByteArray(1025, 'a')), false, QString()},
        {"dword", RegistryValue{RegDword, QByteArray::fromHex("78563412")}, true,
         QStringLiteral("305419896")},
        {"dword with high zero byte", RegistryValue{RegDword, QByteArray::fromHex("05000000")},
         true, QStringLiteral("5")},
        {"dword 65536", RegistryValue{RegDword, QByteArray::fromHex("00000100")}, true,
         QStringLiteral("65536")},
        {"dword all ones", RegistryValue{RegDword, QByteArray::fromHex("FFFFFFFF")}, true,
         QStringLiteral("4294967295")},
        {"other type keeps keyVal", RegistryValue{2, "%SystemRoot%"}, true,
         QStringLiteral("vorher")},
        {"missing", std::nullopt, false, QString()},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        test::FakeRegistry registry;
        if (c.value)
            registry.values.insert(QStringLiteral("K|V"), *c.value);
        QString keyVal = QStringLiteral("vorher");
        EXPECT_EQ(GetKeyValue(registry, RegistryRoot::LocalMachine, QStringLiteral("K"),
                              QStringLiteral("V"), keyVal),
                  c.result);
        EXPECT_EQ(keyVal, c.keyVal);
    }
}

TEST(StartSysInfoTest, LooksUpBothKeysInOrder)
{
    struct Case
    {
        const char *what;
        QList<std::pair<QString, QByteArray>> values;
        QStringList existing;
        bool startSucceeds;
        bool started;
        QStringList queried;
        QStringList startAttempts;
    };
    const QString tool = QStringLiteral("C:\\Programme\\msinfo32.exe");
    const QString folderTool = QStringLiteral("C:\\MSINFO\\MSINFO32.EXE");
    const QList<Case> cases = {
        {"first key wins",
         {{kFirst, tool.toLatin1() + '\0'}, {kSecond, "C:\\MSINFO"}},
         {tool, folderTool},
         true,
         true,
         {kFirst},
         {tool}},
        {"second key with MSINFO32.EXE",
         {{kSecond, "C:\\MSINFO\0"}},
         {folderTool},
         true,
         true,
         {kFirst, kSecond},
         {folderTool}},
        {"second key, file missing",
         {{kSecond, "C:\\MSINFO"}},
         {},
         true,
         false,
         {kFirst, kSecond},
         {}},
        {"both keys missing", {}, {}, true, false, {kFirst, kSecond}, {}},
        {"first key names a missing program",
         {{kFirst, tool.toLatin1()}, {kSecond, "C:\\MSINFO"}},
         {folderTool},
         true,
         false,
         {kFirst},
         {tool}},
        {"program does not start",
         {{kFirst, tool.toLatin1()}},
         {tool},
         false,
         false,
         {kFirst},
         {tool}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        test::FakeRegistry registry;
        for (const auto &[key, bytes] : c.values)
            registry.values.insert(key, sz(bytes));
        test::FakeProgramLauncher launcher;
        launcher.existing = c.existing;
        launcher.startSucceeds = c.startSucceeds;
        EXPECT_EQ(StartSysInfo(&registry, &launcher), c.started);
        EXPECT_EQ(registry.queried, c.queried);
        EXPECT_EQ(launcher.started, c.startAttempts);
    }
    EXPECT_FALSE(StartSysInfo(nullptr, nullptr));
}

TEST(StartSysInfoTest, SystemRegistryOfThisPlatformNeverAnswers)
{
    const auto registry = createSystemRegistry();
    test::FakeProgramLauncher launcher;
    EXPECT_FALSE(StartSysInfo(registry.get(), &launcher));
    EXPECT_TRUE(launcher.started.isEmpty());
}

class AboutBoxTest : public ::testing::Test, public test::FakeServices
{
protected:
    void SetUp() override
    {
        m_services = fakeServices(m_program.path(), m_program.path());
        m_window = std::make_unique<Form1>(m_services);
        m_messages.shown.clear();
    }

    static void deleteClosedWindows()
    {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    QTemporaryDir m_program;
    WindowServices m_services;
    std::unique_ptr<Form1> m_window;
};

TEST_F(AboutBoxTest, ShowsNameVersionContactLinesAndButtons)
{
    m_window->show();
    m_window->findChild<QAction *>(QStringLiteral("Info"))->trigger();
    frmAbout *box = m_window->findChild<frmAbout *>();
    ASSERT_NE(box, nullptr);
    EXPECT_TRUE(box->isVisible());
    EXPECT_FALSE(box->isModal());
    EXPECT_EQ(box->windowTitle(), QStringLiteral("Info zu Klangor"));
    EXPECT_EQ(box->lblTitle()->text(), QStringLiteral("Klangor"));
    EXPECT_EQ(box->lblVersion()->text(), QStringLiteral("Version %1.%2.%3")
                                             .arg(KLANGOR_VERSION_MAJOR)
                                             .arg(KLANGOR_VERSION_MINOR)
                                             .arg(KLANGOR_VERSION_PATCH));
    EXPECT_EQ(box->lblVersion()->text(), QStringLiteral("Version 1.0.0"));
    QStringList lines;
    for (int k = 1; k <= 6; ++k) {
        ASSERT_NE(box->label(k), nullptr);
        EXPECT_FALSE(box->label(k)->text().isEmpty());
        lines << box->label(k)->text();
    }
    EXPECT_EQ(lines.removeDuplicates(), 0);
    EXPECT_TRUE(lines.join(QLatin1Char(' ')).contains(QLatin1Char('@')));
    EXPECT_FALSE(box->picIcon()->pixmap().isNull());
    int decoration = 0;
    for (const QFrame *frame : box->findChildren<QFrame *>()) {
        if (frame->frameShape() == QFrame::HLine)
            ++decoration;
    }
    EXPECT_EQ(decoration, frmAbout::LineCount);
    EXPECT_EQ(box->cmdOK()->text(), QStringLiteral("OK"));
    EXPECT_TRUE(box->cmdOK()->isDefault());
    EXPECT_EQ(box->cmdSysInfo()->text(), QStringLiteral("&Systeminfo..."));
    // The main window stays usable.
    EXPECT_TRUE(m_window->isEnabled());
    EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
}

TEST_F(AboutBoxTest, SecondInfoShowsTheSameBoxAndOkUnloadsIt)
{
    m_window->show();
    m_window->findChild<QAction *>(QStringLiteral("Info"))->trigger();
    QPointer<frmAbout> first = m_window->findChild<frmAbout *>();
    ASSERT_TRUE(first);
    first->hide(); // e.g. behind the main window
    m_window->Info_Click();
    EXPECT_EQ(m_window->findChild<frmAbout *>(), first.data());
    EXPECT_TRUE(first->isVisible());
    EXPECT_EQ(m_window->findChildren<frmAbout *>().size(), 1);

    first->cmdOK()->click();
    deleteClosedWindows();
    EXPECT_TRUE(first.isNull());
    EXPECT_EQ(m_window->findChild<frmAbout *>(), nullptr);

    m_window->Info_Click();
    QPointer<frmAbout> second = m_window->findChild<frmAbout *>();
    ASSERT_TRUE(second);
    EXPECT_TRUE(second->isVisible());
    QTest::keyClick(second.data(), Qt::Key_Escape);
    deleteClosedWindows();
    EXPECT_TRUE(second.isNull());
    EXPECT_EQ(m_window->findChild<frmAbout *>(), nullptr);

    m_window->Info_Click();
    QPointer<frmAbout> third = m_window->findChild<frmAbout *>();
    ASSERT_TRUE(third);
    third->close(); // the window's close box
    deleteClosedWindows();
    EXPECT_TRUE(third.isNull());
    EXPECT_EQ(m_window->findChild<frmAbout *>(), nullptr);

    // A window torn down with its box open takes the box along.
    m_window->Info_Click();
    QPointer<frmAbout> fourth = m_window->findChild<frmAbout *>();
    m_window.reset();
    EXPECT_TRUE(fourth.isNull());
}

TEST_F(AboutBoxTest, SysInfoWithoutRegistryShowsTheMessageAndTheBoxStaysOpen)
{
    m_window->show();
    m_window->Info_Click();
    frmAbout *box = m_window->findChild<frmAbout *>();
    ASSERT_NE(box, nullptr);
    box->cmdSysInfo()->click();
    ASSERT_EQ(m_messages.shown.size(), 1);
    EXPECT_EQ(m_messages.shown[0],
              (UserMessage{QStringLiteral("Systeminformationen sind momentan nicht verfügbar"),
                           QStringLiteral("Klangor"), MessageIcon::None}));
    EXPECT_EQ(m_registry.queried, (QStringList{kFirst, kSecond}));
    EXPECT_TRUE(box->isVisible());
    EXPECT_EQ(m_window->findChild<frmAbout *>(), box);

    m_registry.values.insert(kFirst, sz("C:\\msinfo32.exe"));
    m_launcher.existing = {QStringLiteral("C:\\msinfo32.exe")};
    box->cmdSysInfo()->click();
    EXPECT_EQ(m_launcher.started, QStringList{QStringLiteral("C:\\msinfo32.exe")});
    EXPECT_EQ(m_messages.shown.size(), 1);
}

TEST(QtFileDialogFilterTest, TurnsDescriptionAndPatternPairsIntoQtFilters)
{
    const QList<std::pair<QString, QString>> cases = {
        {QStringLiteral("*.spj (Sounds)|*.spj"), QStringLiteral("*.spj (Sounds) (*.spj)")},
        {QStringLiteral("Sounds|*.wav;*.WAV|Alle|*.*"),
         QStringLiteral("Sounds (*.wav *.WAV);;Alle (*.*)")},
        {QStringLiteral("|"), QString()},
        {QString(), QString()},
    };
    for (const auto &[filter, expected] : cases)
        EXPECT_EQ(qtFileDialogFilter(filter), expected) << filter.toStdString();
}

// Answers the next modal file dialog from inside its event loop.
void answerFileDialog(std::function<void(QFileDialog &)> answer)
{
    auto *timer = new QTimer;
    timer->setInterval(20);
    QObject::connect(timer, &QTimer::timeout, [timer, answer] {
        if (auto *dialog = qobject_cast<QFileDialog *>(QApplication::activeModalWidget())) {
            timer->stop();
            timer->deleteLater();
            answer(*dialog);
        }
    });
    timer->start();
}

// The dialogs are inspected and cancelled from inside their own event loop.
TEST(QtProjectDialogsTest, DialogsShowTitleFolderAndFilterAndReturnNothingOnCancel)
{
    QTemporaryDir folder;
    QtProjectDialogs dialogs;
    struct Seen
    {
        QString title, directory;
        QStringList filters;
        QFileDialog::AcceptMode mode = QFileDialog::AcceptOpen;
        QFileDialog::FileMode fileMode = QFileDialog::AnyFile;
        bool confirmsOverwrite = false;
    };
    auto inspectAndCancel = [](Seen &seen) {
        answerFileDialog([&seen](QFileDialog &dialog) {
            seen.title = dialog.windowTitle();
            seen.directory = dialog.directory().absolutePath();
            seen.filters = dialog.nameFilters();
            seen.mode = dialog.acceptMode();
            seen.fileMode = dialog.fileMode();
            seen.confirmsOverwrite = !dialog.testOption(QFileDialog::DontConfirmOverwrite);
            dialog.reject();
        });
    };

    Seen open;
    inspectAndCancel(open);
    EXPECT_EQ(dialogs.ShowOpenDialog(QStringLiteral("*.spj (Sounds)|*.spj"),
                                     QStringLiteral("Sound Projekt öffnen"), folder.path()),
              QString());
    EXPECT_EQ(open.title, QStringLiteral("Sound Projekt öffnen"));
    EXPECT_EQ(open.directory, QDir(folder.path()).absolutePath());
    EXPECT_EQ(open.filters, QStringList{QStringLiteral("*.spj (Sounds) (*.spj)")});
    EXPECT_EQ(open.mode, QFileDialog::AcceptOpen);
    EXPECT_EQ(open.fileMode, QFileDialog::ExistingFile);

    Seen save;
    inspectAndCancel(save);
    EXPECT_EQ(dialogs.ShowSaveDialog(QStringLiteral("*.spj (Sounds)|*.spj"),
                                     QStringLiteral("Sound Projekt speichern"), folder.path()),
              QString());
    EXPECT_EQ(save.title, QStringLiteral("Sound Projekt speichern"));
    EXPECT_EQ(save.directory, QDir(folder.path()).absolutePath());
    EXPECT_EQ(save.filters, QStringList{QStringLiteral("*.spj (Sounds) (*.spj)")});
    EXPECT_EQ(save.mode, QFileDialog::AcceptSave);
    EXPECT_TRUE(save.confirmsOverwrite);
}

} // namespace
} // namespace klangor
