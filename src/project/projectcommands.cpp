#include "project/projectcommands.h"

#include "platform/codepage.h"
#include "platform/regularfile.h"
#include "programming/cvlistfile.h"
#include "project/arrayfile.h"
#include "project/soundprojectfile.h"

#include <QDir>

namespace klangor {

namespace {

StringArray toArray(const SlotFileNames &names)
{
    StringArray array = StringArray::oneDimensional(0, SlotFileNames::UpperBound);
    for (int i = 0; i <= SlotFileNames::UpperBound; ++i)
        array.setElement(i, names.at(i));
    return array;
}

// Slot names that the project's single-byte text cannot hold, with what they come back as.
QStringList namesThatChange(const SlotFileNames &names)
{
    QStringList changed;
    for (int i = 0; i <= SlotFileNames::UpperBound; ++i) {
        const QString &name = names.at(i);
        const QString back = fromWindows1252(toWindows1252(name));
        if (back != name)
            changed.append(QStringLiteral("„%1“ → „%2“").arg(name, back));
    }
    changed.removeDuplicates();
    return changed;
}

} // namespace

ProjectCommands::ProjectCommands(std::unique_ptr<ProjectHost> host, ProjectDialogs &dialogs)
    : m_host(std::move(host)), m_dialogs(dialogs), m_projects(m_host->programFolder())
{}

QString ProjectCommands::programFile(const QString &name) const
{
    return QDir(m_host->programFolder()).filePath(name);
}

void ProjectCommands::report(const UserMessage &error, const QString &title)
{
    m_host->showMessage({error.text, title, MessageIcon::Critical});
}

bool ProjectCommands::writeWorkingLists()
{
    // The lists are written from the window; every other file the save reads must lie in the
    // folder, checked before anything is written.
    const auto read = recordFileNames(m_host->slotFileNames());
    QStringList readNames(read.begin(), read.end());
    readNames.removeAll(SoundArrFileName);
    readNames.removeAll(CvListFileName);
    if (const Status links = refuseLinksOutOfFolder(m_host->programFolder(), readNames); !links) {
        report(links.error(), SaveTitle);
        return false;
    }
    Status written = saveCvText(programFile(CvListFileName), m_host->cvText());
    if (written)
        written = WriteArrayFile(programFile(SoundArrFileName), toArray(m_host->slotFileNames()));
    if (!written)
        report(written.error(), SaveTitle);
    return written.ok();
}

void ProjectCommands::saveProjectFile(const QString &projectPath)
{
    m_host->setMousePointer(MousePointer::Busy);
    const Status saved = m_projects.SaveProject(projectPath, m_host->slotFileNames());
    m_host->setMousePointer(MousePointer::Idle);
    if (!saved) {
        report(saved.error(), SaveTitle);
        return;
    }
    if (const QStringList changed = namesThatChange(m_host->slotFileNames()); !changed.isEmpty())
        m_host->showMessage({QStringLiteral("Das Sound Projekt wurde gespeichert. Diese Slot-Namen "
                                            "enthalten Zeichen, die ein Sound Projekt nicht "
                                            "speichern kann, und kommen beim Öffnen verändert "
                                            "zurück:\n%1")
                                 .arg(changed.join(QLatin1Char('\n'))),
                             SaveTitle, MessageIcon::None});
}

void ProjectCommands::save()
{
    if (!writeWorkingLists())
        return;
    const QString projectPath = m_host->projectPath();
    if (!projectPath.isEmpty())
        saveProjectFile(projectPath);
    else
        saveAs();
}

void ProjectCommands::saveAs()
{
    QString chosen = m_dialogs.ShowSaveDialog(Filter, SaveTitle, m_host->programFolder());
    if (chosen.isEmpty())
        return;
    // Only a name that needed the extension becomes the current project, and only the first.
    if (chosen.right(4).toUpper() != QStringLiteral(".SPJ")) {
        chosen += QStringLiteral(".spj");
        if (m_host->projectPath().isEmpty())
            m_host->setProjectPath(chosen);
    }
    if (!writeWorkingLists())
        return;
    saveProjectFile(chosen);
}

Result<SlotFileNames> ProjectCommands::restoredNames(const LoadedProject &project) const
{
    // A project without its own list leaves the one in the folder to be read.
    const QByteArray *carried = project.file(SoundArrFileName);
    Result<QByteArray> bytes =
        carried ? Result<QByteArray>(*carried)
                : readRegularFile(programFile(SoundArrFileName), MaxProjectBytes);
    if (!bytes)
        return bytes.error();
    SlotFileNames names = m_host->slotFileNames();
    if (const Status read = readSlotNames(bytes.value(), names); !read)
        return read.error();
    return names;
}

Result<QString> ProjectCommands::restoredCvText(const LoadedProject &project) const
{
    if (const QByteArray *carried = project.file(CvListFileName))
        return cvTextFromBytes(*carried);
    return loadCvText(programFile(CvListFileName));
}

void ProjectCommands::open()
{
    const QString chosen = m_dialogs.ShowOpenDialog(Filter, OpenTitle, m_host->programFolder());
    if (!chosen.isEmpty())
        openFile(chosen);
}

void ProjectCommands::openFile(const QString &chosen)
{
    // Everything that can fail is done before the first file changes, and the window follows
    // only what is then on disk.
    const Result<LoadedProject> project = m_projects.readProject(chosen);
    if (!project) {
        report(project.error(), OpenTitle);
        return;
    }
    const Result<SlotFileNames> names = restoredNames(project.value());
    const Result<QString> cvText =
        names ? restoredCvText(project.value()) : Result<QString>(names.error());
    if (!cvText) {
        report({QStringLiteral("Das Sound Projekt „%1“ kann nicht geöffnet werden. %2 Es wurde "
                               "nichts geändert.")
                    .arg(QDir::toNativeSeparators(chosen), cvText.error().text)},
               OpenTitle);
        return;
    }
    if (const Status restored = m_projects.restoreProject(project.value(), m_host->programFolder());
        !restored) {
        report(restored.error(), OpenTitle);
        return;
    }

    m_host->setSlotFileNames(names.value());
    m_host->refreshEventView();
    m_host->setProjectPath(chosen);
    m_host->setCvText(cvText.value());

    if (!project.value().leftOut.isEmpty())
        report({QStringLiteral("Das Sound Projekt enthält Dateien, die nicht in den "
                               "Programmordner gehören. Sie wurden nicht übernommen:\n%1")
                    .arg(project.value().leftOut.join(QLatin1Char('\n')))},
               OpenTitle);
}

} // namespace klangor
