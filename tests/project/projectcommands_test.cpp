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
        EXPECT_EQ(window.dialogs.requests[0].filter, QStringLiteral("*.spj (Sounds)|*.spj"));
        EXPECT_EQ(window.dialogs.requests[0].title, QStringLiteral("Sound Projekt speichern"));
        EXPECT_EQ(window.dialogs.requests[0].initialFolder, m_program.path());
        EXPECT_TRUE(window.host->messages.isEmpty());
    }
}

TEST_F(ProjectCommandsTest, SaveWritesCvListAndSoundArrEvenWhenTheDialogIsCancelled)
{
    m_host.names.set(0, QStringLiteral("anfahren.wav"));
    m_host.cv = QStringLiteral("CV1=1\nCV2=ä");
    m_window.dialogs.answers = {QString()};
    m_window.commands.save();

    EXPECT_EQ(readFile(program(QStringLiteral("cvlist.dat"))), QByteArray("CV1=1\r\nCV2=\xE4"));
    StringArray names;
    ASSERT_TRUE(ReadArrayFile(program(QStringLiteral("sound.arr")), names));
    EXPECT_EQ(names.at({0}), QStringLiteral("anfahren.wav"));
    EXPECT_EQ(names.bounds().constFirst(), (ArrayBounds{0, 87}));
    EXPECT_TRUE(QDir(m_projects.path()).isEmpty());
}

TEST_F(ProjectCommandsTest, SavedProjectOpensIntoAnotherFolderWithNamesSoundsAndCvList)
{
    const QByteArray sound = test::noise(1000, 3);
    ASSERT_TRUE(writeFile(program(QStringLiteral("1.wav")), sound));
    m_host.names.set(1, QStringLiteral("fahrt.wav"));
    m_host.names.set(87, QStringLiteral("unerreichbar"));
    m_host.cv = QStringLiteral("kurz");
    m_window.saveAs(project(QStringLiteral("lok")));
    ASSERT_TRUE(m_host.messages.isEmpty());
    EXPECT_EQ(m_host.calls,
              (QStringList{QStringLiteral("pointer:11"), QStringLiteral("pointer:0")}));

    QTemporaryDir other;
    ASSERT_TRUE(writeFile(other.filePath(QStringLiteral("1.wav")), QByteArray(3000, 'o')));
    test::CommandsFixture fresh(other.path());
    fresh.host->names.set(0, QStringLiteral("wird leer"));
    fresh.open(project(QStringLiteral("lok.spj")));
    ASSERT_TRUE(fresh.host->messages.isEmpty()) << fresh.host->messages[0].text.toStdString();
    EXPECT_FALSE(fresh.dialogs.requests[0].save);
    EXPECT_EQ(fresh.dialogs.requests[0].title, QStringLiteral("Sound Projekt öffnen"));
    EXPECT_EQ(fresh.host->calls, (QStringList{QStringLiteral("names"), QStringLiteral("refresh"),
                                              QStringLiteral("cv")}));
    EXPECT_EQ(fresh.host->names, m_host.names);
    EXPECT_EQ(fresh.host->cv, QStringLiteral("kurz"));
    EXPECT_EQ(fresh.host->path, project(QStringLiteral("lok.spj")));
    EXPECT_EQ(readFile(other.filePath(QStringLiteral("1.wav"))), sound);
}

TEST_F(ProjectCommandsTest, NamesTheProjectCannotHoldAreToldAndTheSaveCompletes)
{
    m_host.names.set(2, QStringLiteral("日本.wav"));
    m_host.names.set(3, QStringLiteral("Größe.wav"));
    m_window.saveAs(project(QStringLiteral("lok.spj")));
    EXPECT_TRUE(QFile::exists(project(QStringLiteral("lok.spj"))));
    ASSERT_EQ(m_host.messages.size(), 1);
    EXPECT_TRUE(m_host.messages[0].text.contains(QStringLiteral("„日本.wav“ → „??.wav“")));
    EXPECT_FALSE(m_host.messages[0].text.contains(QStringLiteral("Größe")));
}

} // namespace
} // namespace klangor
