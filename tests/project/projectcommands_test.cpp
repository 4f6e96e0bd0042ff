#include "project/arrayfile.h"
#include "project/projectcommands.h"
#include "projecttesthelpers.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QTemporaryDir>

namespace klangor {
namespace {

using test::readFile;
using test::snapshot;
using test::writeFile;

class ProjectCommandsTest : public ::testing::Test
{
protected:
    QString program(const QString &name) const { return m_program.filePath(name); }
    QString project(const QString &name) const { return m_projects.filePath(name); }

    QTemporaryDir m_program;
    QTemporaryDir m_projects;
    test::CommandsFixture m_window{m_program.path()};
    test::RecordingHost &m_host = *m_window.host;
};

// Each step is a menu ("as" for "Speichern unter", "save") and the dialog's answer ("" cancels).
TEST_F(ProjectCommandsTest, SaveAsAppliesTheExtensionAndProjectPathRules)
{
    const struct Case
    {
        QStringList steps;
        QString savedAs, projectPath; // what the last step wrote and the path kept, "" for none
        int dialogs;
    } cases[] = {
        {{"as:lok"}, "lok.spj", "lok.spj", 1},
        {{"as:lok.SPJ"}, "lok.SPJ", "", 1},
        {{"as:lok.wav"}, "lok.wav.spj", "lok.wav.spj", 1},
        {{"as:"}, "", "", 1},
        {{"as:alt", "as:lok"}, "lok.spj", "alt.spj", 2},
        {{"save:lok"}, "lok.spj", "lok.spj", 1},
        {{"as:alt.spj", "save:lok.spj"}, "lok.spj", "", 2},
        {{"as:alt", "save:x"}, "alt.spj", "alt.spj", 1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.steps.join(' ').toStdString());
        QTemporaryDir folder;
        test::CommandsFixture window(m_program.path());
        for (const QString &step : c.steps) {
            for (const QString &name : QDir(folder.path()).entryList(QDir::Files))
                QFile::remove(folder.filePath(name));
            const QString answer = step.section(':', 1);
            window.dialogs.answers = {answer.isEmpty() ? QString() : folder.filePath(answer)};
            step.startsWith("save") ? window.commands.save() : window.commands.saveAs();
        }
        const QStringList written = QDir(folder.path()).entryList(QDir::Files);
        EXPECT_EQ(written, c.savedAs.isEmpty() ? QStringList() : QStringList{c.savedAs});
        EXPECT_EQ(window.host->path,
                  c.projectPath.isEmpty() ? QString() : folder.filePath(c.projectPath));
        ASSERT_EQ(window.dialogs.requests.size(), c.dialogs);
        EXPECT_EQ(window.dialogs.requests[0].filter.description, "*.spj (Sounds)");
        EXPECT_EQ(window.dialogs.requests[0].filter.pattern, "*.spj");
        EXPECT_EQ(window.dialogs.requests[0].title, "Sound Projekt speichern");
        EXPECT_EQ(window.dialogs.requests[0].initialFolder, m_program.path());
        EXPECT_TRUE(window.host->messages.isEmpty());
    }
}

TEST_F(ProjectCommandsTest, SaveWritesCvListAndSoundArrEvenWhenTheDialogIsCancelled)
{
    m_host.names.set(0, "anfahren.wav");
    m_host.cv = "CV1=1\nCV2=ä";
    m_window.dialogs.answers = {QString()};
    m_window.commands.save();

    EXPECT_EQ(readFile(program("cvlist.dat")), QByteArray("CV1=1\r\nCV2=\xE4"));
    const Result<StringArray> names = parseArrayFile(readFile(program("sound.arr")), "sound.arr");
    ASSERT_TRUE(names);
    EXPECT_EQ(names.value().at({0}), "anfahren.wav");
    EXPECT_TRUE(QDir(m_projects.path()).isEmpty());
}

TEST_F(ProjectCommandsTest, SavedProjectOpensIntoAnotherFolderWithNamesSoundsAndCvList)
{
    const QByteArray sound = test::noise(1000, 3);
    ASSERT_TRUE(writeFile(program("1.wav"), sound));
    m_host.names.set(1, "fahrt.wav");
    m_host.names.set(87, "unerreichbar");
    m_host.cv = "kurz";
    m_window.saveAs(project("lok"));
    ASSERT_TRUE(m_host.messages.isEmpty());
    EXPECT_EQ(m_host.calls, (QStringList{"pointer:busy", "pointer:idle"}));

    QTemporaryDir other;
    ASSERT_TRUE(writeFile(other.filePath("1.wav"), QByteArray(3000, 'o')));
    test::CommandsFixture fresh(other.path());
    fresh.host->names.set(0, "wird leer");
    fresh.open(project("lok.spj"));
    ASSERT_TRUE(fresh.host->messages.isEmpty()) << fresh.host->messages[0].text.toStdString();
    EXPECT_FALSE(fresh.dialogs.requests[0].save);
    EXPECT_EQ(fresh.dialogs.requests[0].title, "Sound Projekt öffnen");
    EXPECT_EQ(fresh.host->calls, (QStringList{"names", "refresh", "cv"}));
    EXPECT_EQ(fresh.host->state(), std::tuple(m_host.names, QString("kurz"), project("lok.spj")));
    EXPECT_EQ(readFile(other.filePath("1.wav")), sound);
}

TEST_F(ProjectCommandsTest, OpenCancelledUpToTheFirstReplacedFileChangesNothing)
{
    ASSERT_TRUE(writeFile(program("1.wav"), "aus dem Projekt"));
    m_host.names.set(1, "fahrt.wav");
    m_window.saveAs(project("lok"));
    ASSERT_TRUE(writeFile(program("1.wav"), "seitdem"));
    const auto before = snapshot(m_program.path());
    m_host.calls.clear();
    // Everything is read and staged; the cancel comes as the first file would be replaced.
    m_host.progress = [](double share) {
        return share < 0.9;
    };
    m_window.open(project("lok.spj"));
    EXPECT_EQ(snapshot(m_program.path()), before);
    EXPECT_TRUE(m_host.calls.isEmpty() && m_host.messages.isEmpty());
    m_host.progress = {};
    m_window.open(project("lok.spj"));
    EXPECT_EQ(readFile(program("1.wav")), "aus dem Projekt");
}

TEST_F(ProjectCommandsTest, NamesTheProjectCannotHoldAreToldAndTheSaveCompletes)
{
    m_host.names.set(2, "日本.wav");
    m_host.names.set(3, "Größe.wav");
    m_window.saveAs(project("lok.spj"));
    EXPECT_TRUE(QFile::exists(project("lok.spj")));
    const QString told = m_host.onlyMessage();
    EXPECT_TRUE(told.contains("„日本.wav“ → „??.wav“")) << told.toStdString();
    EXPECT_FALSE(told.contains("Größe"));
}

} // namespace
} // namespace klangor
