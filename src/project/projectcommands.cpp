#include "project/projectcommands.h"

#include "project/arrayfile.h"

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

bool fitsSlotFileNames(const StringArray &array)
{
    if (array.dimensionCount() != 1)
        return false;
    const ArrayBounds bounds = array.bounds().constFirst();
    return bounds.lower >= 0 && bounds.upper <= SlotFileNames::UpperBound;
}

UserMessage namesDoNotFit(const QString &fileName)
{
    return {QStringLiteral("Die Datei „%1“ enthält keine Slot-Belegung (erwartet: eine Liste der "
                           "Soundnummern 0 bis 87).")
                .arg(fileName)};
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

bool ProjectCommands::writeWorkingLists(const QString &title)
{
    const QString cvList = programFile(QStringLiteral("cvlist.dat"));
    if (!m_host->saveCvBox(cvList)) {
        report({QStringLiteral("Die CV-Liste kann nicht in „%1“ gespeichert werden.")
                    .arg(QDir::toNativeSeparators(cvList))},
               title);
        return false;
    }
    const Status written =
        WriteArrayFile(programFile(QStringLiteral("sound.arr")), toArray(m_host->slotFileNames()));
    if (!written) {
        report(written.error(), title);
        return false;
    }
    return true;
}

void ProjectCommands::saveProjectFile(const QString &projectPath)
{
    m_host->setMousePointer(MousePointer::Hourglass);
    const Status saved = m_projects.SaveProject(projectPath, m_host->slotFileNames());
    m_host->setMousePointer(MousePointer::Default);
    if (!saved)
        report(saved.error(), SaveTitle);
}

void ProjectCommands::Speichern()
{
    if (!writeWorkingLists(SaveTitle))
        return;
    const QString projectPath = m_host->projectPath();
    if (!projectPath.isEmpty())
        saveProjectFile(projectPath);
    else
        Speichernunter();
}

void ProjectCommands::Speichernunter()
{
    QString chosen = m_dialogs.ShowSaveDialog(Filter, SaveTitle, m_host->programFolder());
    m_host->setChosenProjectFile(chosen);
    if (chosen.isEmpty())
        return;
    // Only a name that needed the extension becomes the current project, and only the first.
    if (chosen.right(4).toUpper() != QStringLiteral(".SPJ")) {
        chosen += QStringLiteral(".spj");
        m_host->setChosenProjectFile(chosen);
        if (m_host->projectPath().isEmpty())
            m_host->setProjectPath(chosen);
    }
    if (!writeWorkingLists(SaveTitle))
        return;
    saveProjectFile(chosen);
}

Status ProjectCommands::checkRestoredNames(const LoadedProject &project) const
{
    // The file that names the record decides, and a later record of the same name wins.
    std::optional<QByteArray> soundArr;
    for (std::size_t i = 0; i < project.records.size(); ++i) {
        if (project.fileNames[i] == QStringLiteral("sound.arr"))
            soundArr = project.records[i].data;
    }
    const QString path = programFile(QStringLiteral("sound.arr"));
    StringArray names;
    if (soundArr) {
        Result<StringArray> parsed = parseArrayFile(*soundArr, QStringLiteral("sound.arr"));
        if (!parsed)
            return parsed.error();
        names = std::move(parsed).value();
    } else {
        // A project without its own list leaves the one in the folder to be read.
        const Status read = ReadArrayFile(path, names);
        if (!read)
            return read;
    }
    if (!fitsSlotFileNames(names))
        return namesDoNotFit(QStringLiteral("sound.arr"));
    return {};
}

void ProjectCommands::Offnen()
{
    const QString chosen = m_dialogs.ShowOpenDialog(Filter, OpenTitle, m_host->programFolder());
    m_host->setChosenProjectFile(chosen);
    if (chosen.isEmpty())
        return;

    const Result<LoadedProject> project = m_projects.readProject(chosen);
    if (!project) {
        report(project.error(), OpenTitle);
        return;
    }
    if (const Status names = checkRestoredNames(project.value()); !names) {
        report({QStringLiteral("Das Sound Projekt „%1“ kann nicht geöffnet werden. %2 Es wurde "
                               "nichts geändert.")
                    .arg(QDir::toNativeSeparators(chosen), names.error().text)},
               OpenTitle);
        return;
    }
    if (const Status restored = m_projects.restoreProject(project.value(), m_host->programFolder());
        !restored) {
        report(restored.error(), OpenTitle);
        return;
    }

    StringArray restoredNames;
    if (const Status read = ReadArrayFile(programFile(QStringLiteral("sound.arr")), restoredNames);
        !read) {
        report(read.error(), OpenTitle);
        return;
    }
    if (!fitsSlotFileNames(restoredNames)) {
        report(namesDoNotFit(QStringLiteral("sound.arr")), OpenTitle);
        return;
    }
    SlotFileNames names = m_host->slotFileNames();
    const ArrayBounds bounds = restoredNames.bounds().constFirst();
    for (qint32 i = bounds.lower; i <= bounds.upper; ++i)
        names.set(i, restoredNames.at({i}));
    m_host->setSlotFileNames(names);
    m_host->refreshEventView();
    m_host->setProjectPath(chosen);

    const QString cvList = programFile(QStringLiteral("cvlist.dat"));
    if (!m_host->loadCvBox(cvList))
        report({QStringLiteral("Die CV-Liste „%1“ kann nicht geladen werden.")
                    .arg(QDir::toNativeSeparators(cvList))},
               OpenTitle);
}

} // namespace klangor
