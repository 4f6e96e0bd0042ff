#include "platform/codepage.h"
#include "project/arrayfile.h"
#include "project/projectcommands.h"
#include "projecttesthelpers.h"
#include "support/fakes.h"
#include "support/fakeservices.h"
#include "support/wavwriter.h"
#include "ui/mainwindow.h"
#include "ui/widgets.h"

#include <gtest/gtest.h>
#include <QAction>
#include <QLineEdit>
#include <QListWidget>
#include <QTemporaryDir>
#include <QTextEdit>

namespace klangor {
namespace {

using test::readFile;
using test::snapshot;
using test::writeFile;

const QString kFilter = QStringLiteral("*.spj (Sounds)|*.spj");
const QString kOpenTitle = QStringLiteral("Sound Projekt öffnen");
const QString kSaveTitle = QStringLiteral("Sound Projekt speichern");

class ProjectWindowTest : public ::testing::Test, public test::FakeServices
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(writeFile(program(QStringLiteral("cvdiesele.dat")), "CV diesel\r\n"));
        m_services = fakeServices(m_program.path(), m_browse.path());
        m_window = std::make_unique<Form1>(m_services);
    }

    QString program(const QString &name) const { return m_program.filePath(name); }
    QString project(const QString &name) const { return m_projects.filePath(name); }

    // Drops a checked WAV file onto slot k of the selected event.
    void assign(int k, const QString &name, const QByteArray &wave)
    {
        const QString path = m_browse.filePath(name);
        ASSERT_TRUE(writeFile(path, wave));
        DropPayload payload;
        payload.files = {path};
        m_window->Slot_OLEDragDrop(k, payload);
        ASSERT_EQ(m_window->slot(k)->text(), path);
    }

    void setCvText(const QString &text) { m_window->cv()->setPlainText(text); }

    QTemporaryDir m_program;
    QTemporaryDir m_browse;
    QTemporaryDir m_projects;
    Form1Services m_services;
    std::unique_ptr<Form1> m_window;
};

TEST_F(ProjectWindowTest, SaveAsAppliesTheExtensionAndProjectPathRules)
{
    struct Step
    {
        QAction *(Form1::*menu)() const;
        QString answer; // the dialog's answer; "" is a cancel
    };
    struct Case
    {
        const char *what;
        QList<Step> steps;
        QString savedAs;     // the file the last step saved, "" for none
        QString projectPath; // afterwards
        QString chosen;      // afterwards
        int dialogs;         // save dialogs shown in all
    };
    const QString lok = project(QStringLiteral("lok"));
    const QString alt = project(QStringLiteral("alt"));
    const QList<Case> cases = {
        {"typed without extension",
         {{&Form1::menuSpeichernunter, lok}},
         lok + ".spj",
         lok + ".spj",
         lok + ".spj",
         1},
        {"upper-case extension",
         {{&Form1::menuSpeichernunter, lok + ".SPJ"}},
         lok + ".SPJ",
         "",
         lok + ".SPJ",
         1},
        {"mixed-case extension",
         {{&Form1::menuSpeichernunter, lok + ".sPj"}},
         lok + ".sPj",
         "",
         lok + ".sPj",
         1},
        {"other extension",
         {{&Form1::menuSpeichernunter, lok + ".wav"}},
         lok + ".wav.spj",
         lok + ".wav.spj",
         lok + ".wav.spj",
         1},
        {"cancel", {{&Form1::menuSpeichernunter, ""}}, "", "", "", 1},
        {"project path kept once set",
         {{&Form1::menuSpeichernunter, alt}, {&Form1::menuSpeichernunter, lok}},
         lok + ".spj",
         alt + ".spj",
         lok + ".spj",
         2},
        {"save without project path asks",
         {{&Form1::menuSpeichern, lok}},
         lok + ".spj",
         lok + ".spj",
         lok + ".spj",
         1},
        {"save after a name with extension asks again",
         {{&Form1::menuSpeichernunter, alt + ".spj"}, {&Form1::menuSpeichern, lok + ".spj"}},
         lok + ".spj",
         "",
         lok + ".spj",
         2},
        {"save with project path asks nothing",
         {{&Form1::menuSpeichernunter, alt}, {&Form1::menuSpeichern, "unused"}},
         alt + ".spj",
         alt + ".spj",
         alt + ".spj",
         1},
        {"save, then cancel", {{&Form1::menuSpeichern, ""}}, "", "", "", 1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        SetUp();
        m_dialogs.requests.clear();
        for (const QString &name : QDir(m_projects.path()).entryList(QDir::Files))
            QFile::remove(project(name));

        for (const Step &step : c.steps) {
            m_dialogs.answers = {step.answer};
            const auto before = snapshot(m_projects.path());
            (m_window.get()->*step.menu)()->trigger();
            const auto after = snapshot(m_projects.path());
            if (&step == &c.steps.constLast()) {
                if (c.savedAs.isEmpty()) {
                    EXPECT_EQ(after, before);
                } else {
                    ASSERT_TRUE(after.contains(QFileInfo(c.savedAs).fileName()));
                    EXPECT_EQ(after.size(),
                              before.size() +
                                  (before.contains(QFileInfo(c.savedAs).fileName()) ? 0 : 1));
                }
            }
        }
        EXPECT_EQ(m_window->projectPath(), c.projectPath);
        EXPECT_EQ(m_window->chosenProjectFile(), c.chosen);
        ASSERT_EQ(m_dialogs.requests.size(), c.dialogs);
        for (const auto &request : m_dialogs.requests) {
            EXPECT_TRUE(request.save);
            EXPECT_EQ(request.filter, kFilter);
            EXPECT_EQ(request.title, kSaveTitle);
            EXPECT_EQ(request.initialFolder, m_program.path());
        }
        EXPECT_TRUE(m_messages.shown.isEmpty());
        EXPECT_EQ(m_window->mousePointer(), MousePointer::Default);
    }
}

TEST_F(ProjectWindowTest, SaveWritesCvListAndSoundArrEvenWhenTheDialogIsCancelled)
{
    assign(1, QStringLiteral("anfahren.wav"), test::wave16(1000, 1));
    setCvText(QStringLiteral("CV1=1\nCV2=ä"));
    m_dialogs.answers = {QString()};
    m_window->menuSpeichern()->trigger();

    EXPECT_EQ(readFile(program(QStringLiteral("cvlist.dat"))), QByteArray("CV1=1\r\nCV2=\xE4"));
    StringArray names;
    ASSERT_TRUE(ReadArrayFile(program(QStringLiteral("sound.arr")), names));
    EXPECT_EQ(names.at({0}), m_browse.filePath(QStringLiteral("anfahren.wav")));
    EXPECT_EQ(names.bounds().constFirst(), (ArrayBounds{0, 87}));
    EXPECT_TRUE(QDir(m_projects.path()).isEmpty());
}

TEST_F(ProjectWindowTest, SavedProjectOpensIntoAnotherRunWithNamesSoundsAndCvList)
{
    const QByteArray sound = test::wave16(test::FullSoundDataBytes, 77);
    assign(2, QStringLiteral("fahrt.wav"), sound);
    setCvText(QStringLiteral("kurz"));
    m_dialogs.answers = {project(QStringLiteral("lok"))};
    m_window->menuSpeichernunter()->trigger();
    ASSERT_TRUE(m_messages.shown.isEmpty());
    const QByteArray saved = readFile(project(QStringLiteral("lok.spj")));
    ASSERT_GT(saved.size(), sound.size());

    // A fresh window over another program folder whose files are older and longer.
    QTemporaryDir otherProgram;
    ASSERT_TRUE(writeFile(otherProgram.filePath(QStringLiteral("cvdiesele.dat")), "CV"));
    ASSERT_TRUE(
        writeFile(otherProgram.filePath(QStringLiteral("cvlist.dat")), QByteArray(3000, 'z')));
    ASSERT_TRUE(writeFile(otherProgram.filePath(QStringLiteral("1.wav")), QByteArray(300000, 'o')));
    m_services.programFolder = otherProgram.path();
    m_window = std::make_unique<Form1>(m_services);
    m_window->list3()->setCurrentRow(0);
    m_dialogs.requests.clear();
    m_dialogs.answers = {project(QStringLiteral("lok.spj"))};
    m_window->menuOffnen()->trigger();

    ASSERT_TRUE(m_messages.shown.isEmpty()) << m_messages.shown.constFirst().text.toStdString();
    ASSERT_EQ(m_dialogs.requests.size(), 1);
    EXPECT_FALSE(m_dialogs.requests[0].save);
    EXPECT_EQ(m_dialogs.requests[0].filter, kFilter);
    EXPECT_EQ(m_dialogs.requests[0].title, kOpenTitle);
    EXPECT_EQ(m_dialogs.requests[0].initialFolder, otherProgram.path());

    EXPECT_EQ(readFile(otherProgram.filePath(QStringLiteral("1.wav"))), sound);
    EXPECT_EQ(readFile(otherProgram.filePath(QStringLiteral("cvlist.dat"))), QByteArray("kurz"));
    EXPECT_EQ(m_window->cv()->toPlainText(), QStringLiteral("kurz"));
    EXPECT_EQ(m_window->slotFileNames().at(1), m_browse.filePath(QStringLiteral("fahrt.wav")));
    EXPECT_EQ(m_window->slot(2)->text(), m_browse.filePath(QStringLiteral("fahrt.wav")));
    EXPECT_EQ(m_window->slot(1)->text(), QString());
    EXPECT_EQ(m_window->projectPath(), project(QStringLiteral("lok.spj")));
    EXPECT_EQ(m_window->chosenProjectFile(), project(QStringLiteral("lok.spj")));
    // Opening never writes the project file.
    EXPECT_EQ(readFile(project(QStringLiteral("lok.spj"))), saved);

    // "&Speichern" now writes to the opened file without asking.
    setCvText(QStringLiteral("neu"));
    m_dialogs.requests.clear();
    m_window->menuSpeichern()->trigger();
    EXPECT_TRUE(m_dialogs.requests.isEmpty());
    EXPECT_NE(readFile(project(QStringLiteral("lok.spj"))), saved);
    EXPECT_TRUE(
        readFile(project(QStringLiteral("lok.spj"))).endsWith(QByteArray("\x03\x00neu", 5)));
}

TEST_F(ProjectWindowTest, OpenKeepsTheWorkingFileOfASoundThatTheProjectLeavesUnassigned)
{
    m_dialogs.answers = {project(QStringLiteral("leer"))};
    m_window->menuSpeichernunter()->trigger();

    const QByteArray sound = test::wave16(2000, 3);
    assign(1, QStringLiteral("a.wav"), sound);
    ASSERT_TRUE(m_window->slotFileNames().isAssigned(0));
    m_dialogs.answers = {project(QStringLiteral("leer.spj"))};
    m_window->menuOffnen()->trigger();

    EXPECT_EQ(readFile(program(QStringLiteral("0.wav"))), sound);
    EXPECT_FALSE(m_window->slotFileNames().isAssigned(0));
    EXPECT_EQ(m_window->slot(1)->text(), QString());
    EXPECT_EQ(m_window->slotFileNames(), SlotFileNames());
    EXPECT_EQ(readFile(program(QStringLiteral("placeholder.dat"))), QByteArray());
}

TEST_F(ProjectWindowTest, CancelledOpenChangesNothing)
{
    assign(1, QStringLiteral("a.wav"), test::wave16(100, 3));
    m_dialogs.answers = {project(QStringLiteral("p"))};
    m_window->menuSpeichernunter()->trigger();
    const auto files = snapshot(m_program.path());
    const SlotFileNames names = m_window->slotFileNames();

    m_dialogs.answers = {QString()};
    m_window->menuOffnen()->trigger();
    EXPECT_EQ(m_window->chosenProjectFile(), QString());
    EXPECT_EQ(m_window->projectPath(), project(QStringLiteral("p.spj")));
    EXPECT_EQ(m_window->slotFileNames(), names);
    EXPECT_EQ(snapshot(m_program.path()), files);
}

// Records names to a real project, then damages it in different ways.
TEST_F(ProjectWindowTest, DamagedProjectsAreReportedInGermanAndChangeNothing)
{
    assign(1, QStringLiteral("a.wav"), test::wave16(5000, 8));
    setCvText(QStringLiteral("meine CVs"));
    m_dialogs.answers = {project(QStringLiteral("gut"))};
    m_window->menuSpeichernunter()->trigger();
    ASSERT_EQ(m_window->projectPath(), project(QStringLiteral("gut.spj")));
    const QByteArray good = readFile(project(QStringLiteral("gut.spj")));
    // Record 88 (sound.arr) follows 88 records; find it by its name.
    const QByteArray soundArrName = toWindows1252(QStringLiteral("\\sound.arr"));
    const qsizetype soundArrAt = good.indexOf(soundArrName);
    ASSERT_GT(soundArrAt, 0);

    auto withSoundArr = [&](const StringArray &array) {
        const QByteArray prefix = good.left(soundArrAt + soundArrName.size());
        const qsizetype dataAt = soundArrAt + soundArrName.size();
        const quint16 oldLength = qFromLittleEndian<quint16>(good.constData() + dataAt);
        return prefix + test::counted(arrayFileBytes(array).value()) +
               good.mid(dataAt + 2 + oldLength);
    };

    StringArray tooLong = StringArray::oneDimensional(0, 88);
    StringArray twoDims(QList<ArrayBounds>{{0, 87}, {0, 0}});
    StringArray negative = StringArray::oneDimensional(-1, 5);
    struct Case
    {
        const char *what;
        QByteArray bytes;
        QString needle; // part of the message
    };
    const QList<Case> cases = {
        {"cut in the middle", good.left(good.size() / 2),
         QStringLiteral("unvollständig oder beschädigt")},
        {"last byte missing", good.left(good.size() - 1),
         QStringLiteral("unvollständig oder beschädigt")},
        {"empty", QByteArray(), QStringLiteral("unvollständig oder beschädigt")},
        {"sound.arr beyond 87", withSoundArr(tooLong), QStringLiteral("Soundnummern 0 bis 87")},
        {"sound.arr with two dimensions", withSoundArr(twoDims),
         QStringLiteral("Soundnummern 0 bis 87")},
        {"sound.arr below 0", withSoundArr(negative), QStringLiteral("Soundnummern 0 bis 87")},
        {"sound.arr cut",
         withSoundArr(StringArray::oneDimensional(0, 87))
             .replace(soundArrAt + soundArrName.size(), 2, QByteArray("\x05\x00", 2)),
         QStringLiteral("unvollständig oder beschädigt")},
    };

    // A different state in the window and the folder than what the project holds.
    ASSERT_TRUE(writeFile(program(QStringLiteral("cvlist.dat")), "andere CVs"));
    assign(2, QStringLiteral("b.wav"), test::wave16(700, 2));
    m_window->Loeschen_Click(1);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_TRUE(writeFile(project(QStringLiteral("kaputt.spj")), c.bytes));
        const auto files = snapshot(m_program.path());
        const SlotFileNames names = m_window->slotFileNames();
        const QString cvText = m_window->cv()->toPlainText();
        m_messages.shown.clear();

        m_dialogs.answers = {project(QStringLiteral("kaputt.spj"))};
        m_window->menuOffnen()->trigger();

        ASSERT_EQ(m_messages.shown.size(), 1);
        const UserMessage &message = m_messages.shown.constFirst();
        EXPECT_TRUE(message.text.contains(c.needle)) << message.text.toStdString();
        EXPECT_TRUE(message.text.contains(QStringLiteral("Es wurde nichts geändert")))
            << message.text.toStdString();
        EXPECT_EQ(message.title, kOpenTitle);
        EXPECT_EQ(message.icon, MessageIcon::Critical);
        EXPECT_EQ(snapshot(m_program.path()), files);
        EXPECT_EQ(m_window->slotFileNames(), names);
        EXPECT_EQ(m_window->cv()->toPlainText(), cvText);
        EXPECT_EQ(m_window->projectPath(), project(QStringLiteral("gut.spj")));
    }
}

TEST_F(ProjectWindowTest, FailedSaveIsReportedAndThePointerReturnsToDefault)
{
    m_dialogs.answers = {m_projects.filePath(QStringLiteral("fehlt/lok.spj"))};
    m_window->menuSpeichernunter()->trigger();
    ASSERT_EQ(m_messages.shown.size(), 1);
    EXPECT_EQ(m_messages.shown[0].title, kSaveTitle);
    EXPECT_TRUE(m_messages.shown[0].text.contains(QStringLiteral("kann nicht gespeichert werden")));
    EXPECT_EQ(m_window->mousePointer(), MousePointer::Default);
}

// A host that records what the commands ask of the window.
class RecordingHost final : public ProjectHost
{
public:
    explicit RecordingHost(QString folder) : m_folder(std::move(folder)) {}
    QString programFolder() const override { return m_folder; }
    const SlotFileNames &slotFileNames() const override { return names; }
    void setSlotFileNames(const SlotFileNames &n) override
    {
        names = n;
        calls << QStringLiteral("names");
    }
    QString projectPath() const override { return path; }
    void setProjectPath(const QString &p) override { path = p; }
    void setChosenProjectFile(const QString &p) override { chosen = p; }
    bool saveCvBox(const QString &p) override
    {
        calls << QStringLiteral("saveCv");
        return writeFile(p, "cv");
    }
    bool loadCvBox(const QString &) override
    {
        calls << QStringLiteral("loadCv");
        return true;
    }
    void refreshEventView() override { calls << QStringLiteral("refresh"); }
    void setMousePointer(MousePointer pointer) override
    {
        calls << QStringLiteral("pointer:%1").arg(static_cast<int>(pointer));
    }
    void showMessage(const UserMessage &message) override { messages << message; }

    QString m_folder;
    SlotFileNames names;
    QString path, chosen;
    QStringList calls;
    QList<UserMessage> messages;
};

// The commands over a recording host, in a folder of their own.
class ProjectCommandsTest : public ::testing::Test
{
protected:
    QTemporaryDir folder;
    test::FakeProjectDialogs dialogs;
    std::unique_ptr<RecordingHost> owned = std::make_unique<RecordingHost>(folder.path());
    RecordingHost &host = *owned; // owned by the commands from here on
    ProjectCommands commands{std::move(owned), dialogs};
};

TEST_F(ProjectCommandsTest, HourglassWhileWritingAndOrderOfTheOpenSteps)
{
    host.names.set(87, QStringLiteral("unerreichbar"));
    dialogs.answers = {folder.filePath(QStringLiteral("p"))};
    commands.Speichernunter();
    EXPECT_EQ(host.calls, (QStringList{QStringLiteral("saveCv"), QStringLiteral("pointer:11"),
                                       QStringLiteral("pointer:0")}));
    EXPECT_TRUE(commands.projects().projectFileList()[87].endsWith(QStringLiteral("\\87.wav")));
    EXPECT_EQ(commands.projects().projectRecords()[87].name,
              commands.projects().projectFileList()[87]);

    host.calls.clear();
    host.names = SlotFileNames();
    dialogs.answers = {folder.filePath(QStringLiteral("p.spj"))};
    commands.Offnen();
    EXPECT_TRUE(host.messages.isEmpty());
    EXPECT_EQ(host.calls, (QStringList{QStringLiteral("names"), QStringLiteral("refresh"),
                                       QStringLiteral("loadCv")}));
    EXPECT_EQ(host.names.at(87), QStringLiteral("unerreichbar"));
    EXPECT_EQ(host.path, folder.filePath(QStringLiteral("p.spj")));
}

TEST_F(ProjectCommandsTest, ASoundArrWithFewerBoundsSetsOnlyThoseEntries)
{
    StringArray partial = StringArray::oneDimensional(5, 6);
    partial.set({5}, QStringLiteral("fünf"));
    QByteArray bytes;
    for (int i = 0; i < 88; ++i)
        bytes += test::counted("\\K\\placeholder.dat") + test::counted(QByteArray());
    bytes += test::counted("\\K\\sound.arr") + test::counted(arrayFileBytes(partial).value());
    bytes += test::counted("\\K\\cvlist.dat") + test::counted("cv");
    ASSERT_TRUE(writeFile(folder.filePath(QStringLiteral("teil.spj")), bytes));

    host.names.set(0, QStringLiteral("bleibt"));
    host.names.set(6, QStringLiteral("wird leer"));
    dialogs.answers = {folder.filePath(QStringLiteral("teil.spj"))};
    commands.Offnen();
    ASSERT_TRUE(host.messages.isEmpty());
    EXPECT_EQ(host.names.at(0), QStringLiteral("bleibt"));
    EXPECT_EQ(host.names.at(5), QStringLiteral("fünf"));
    EXPECT_EQ(host.names.at(6), QString());
}

} // namespace
} // namespace klangor
