#include "project/projectcommands.h"

#include "common/namelist.h"
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

// What the window shows after an open, taken from the project before any file is touched
// (or, where the project lacks them, from the files in the program folder).
Result<SlotFileNames> restoredNames(const LoadedProject &project, const QString &programFolder,
                                    SlotFileNames names)
{
    // A project without its own list leaves the one in the folder to be read.
    const QByteArray *carried = project.file(SoundArrFileName);
    Result<QByteArray> bytes =
        carried ? Result<QByteArray>(*carried)
                : readRegularFile(QDir(programFolder).filePath(SoundArrFileName), MaxProjectBytes);
    if (!bytes)
        return bytes.error();
    if (const Status read = readSlotNames(bytes.value(), names); !read)
        return read.error();
    return names;
}

Result<QString> restoredCvText(const LoadedProject &project, const QString &programFolder)
{
    if (const QByteArray *carried = project.file(CvListFileName))
        return cvListText(*carried);
    return loadCvText(QDir(programFolder).filePath(CvListFileName));
}

} // namespace

std::optional<Result<OpenedProject>> openProjectFiles(const QString &projectPath,
                                                      const QString &programFolder,
                                                      SlotFileNames names,
                                                      const ConversionProgress &progress)
{
    // Everything that can fail is done before the first file changes, and the window follows
    // only what is then on disk. The read takes most of the time.
    const auto goOn = [&progress](double share) {
        return !progress || progress(share);
    };
    const Result<LoadedProject> project =
        readProjectFile(projectPath, [&](double share) { return goOn(share * 0.8); });
    if (!goOn(0.8))
        return std::nullopt;
    if (!project)
        return Result<OpenedProject>(project.error());
    const Result<SlotFileNames> restored = restoredNames(project.value(), programFolder, names);
    const Result<QString> cvText = restored ? restoredCvText(project.value(), programFolder)
                                            : Result<QString>(restored.error());
    if (!cvText)
        return Result<OpenedProject>(UserMessage{
            QStringLiteral("Das Sound Projekt „%1“ kann nicht geöffnet werden. %2 Es wurde "
                           "nichts geändert.")
                .arg(QDir::toNativeSeparators(projectPath), cvText.error().text)});
    bool cancelled = false;
    const Status written =
        SoundProjectFile(programFolder).restoreProject(project.value(), programFolder, [&] {
            return !(cancelled = !goOn(0.9));
        });
    if (cancelled)
        return std::nullopt;
    if (!written)
        return Result<OpenedProject>(written.error());
    return Result<OpenedProject>(
        OpenedProject{restored.value(), cvText.value(), project.value().leftOut});
}

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
    std::optional<Status> saved;
    m_host->runLongWork(QStringLiteral("Das Sound Projekt wird gespeichert..."),
                        [&, names = m_host->slotFileNames()](const ConversionProgress &progress) {
                            bool cancelled = false;
                            const Status done = m_projects.SaveProject(projectPath, names, [&] {
                                return !(cancelled = progress && !progress(0.5));
                            });
                            if (!cancelled)
                                saved = done;
                        });
    m_host->setMousePointer(MousePointer::Idle);
    if (!saved)
        return;
    if (!*saved) {
        report(saved->error(), SaveTitle);
        return;
    }
    if (const QStringList changed = namesThatChange(m_host->slotFileNames()); !changed.isEmpty())
        m_host->showMessage({QStringLiteral("Das Sound Projekt wurde gespeichert. Diese Slot-Namen "
                                            "enthalten Zeichen, die ein Sound Projekt nicht "
                                            "speichern kann, und kommen beim Öffnen verändert "
                                            "zurück:\n%1")
                                 .arg(listedNames(changed)),
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

void ProjectCommands::open()
{
    const QString chosen = m_dialogs.ShowOpenDialog(Filter, OpenTitle, m_host->programFolder());
    if (!chosen.isEmpty())
        openFile(chosen);
}

void ProjectCommands::openFile(const QString &chosen)
{
    std::optional<Result<OpenedProject>> opened;
    m_host->runLongWork(QStringLiteral("Das Sound Projekt wird geöffnet..."),
                        [&, folder = m_host->programFolder(),
                         names = m_host->slotFileNames()](const ConversionProgress &progress) {
                            opened = openProjectFiles(chosen, folder, names, progress);
                        });
    if (!opened)
        return; // cancelled; nothing changed
    if (!*opened) {
        report(opened->error(), OpenTitle);
        return;
    }
    const OpenedProject &project = opened->value();
    m_host->setSlotFileNames(project.names);
    m_host->refreshEventView();
    m_host->setProjectPath(chosen);
    m_host->setCvText(project.cvText);

    if (!project.leftOut.isEmpty())
        report({QStringLiteral("Das Sound Projekt enthält Dateien, die nicht in den "
                               "Programmordner gehören. Sie wurden nicht übernommen:\n%1")
                    .arg(listedNames(project.leftOut))},
               OpenTitle);
}

} // namespace klangor
