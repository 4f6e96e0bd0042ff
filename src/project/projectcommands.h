#pragma once

#include "common/mousepointer.h"
#include "common/result.h"
#include "project/projectdialogs.h"
#include "project/soundprojectfile.h"
#include "soundset/slotfilenames.h"

#include <functional>
#include <memory>
#include <optional>
#include <QString>

namespace klangor {

// What the project commands need from the main window; the window implements it.
class ProjectHost
{
public:
    virtual ~ProjectHost() = default;

    virtual QString programFolder() const = 0;
    virtual const SlotFileNames &slotFileNames() const = 0;
    virtual void setSlotFileNames(const SlotFileNames &names) = 0;
    virtual QString projectPath() const = 0;
    virtual void setProjectPath(const QString &path) = 0;

    // The text of the CV box.
    virtual QString cvText() const = 0;
    virtual void setCvText(const QString &text) = 0;

    // The event view refresh, so the slots show the names now recorded.
    virtual void refreshEventView() = 0;
    virtual void setMousePointer(MousePointer pointer) = 0;
    virtual void showMessage(const UserMessage &message) = 0;
    // Runs work off the window's thread while the window keeps answering, with a progress the
    // user can cancel (work's progress then returns false); returns once work has returned.
    virtual void runLongWork(const QString &text,
                             const std::function<void(const ConversionProgress &)> &work) = 0;
};

// What an open leaves for the window to show, once the files are in the program folder.
struct OpenedProject
{
    SlotFileNames names;
    QString cvText;
    QStringList leftOut;
};

// Reads and checks the project, then restores its files into programFolder; names are the
// window's, overlaid with the project's. Touches nothing of the window, so it may run on any
// thread. nullopt when progress cancelled before the first file changed.
std::optional<Result<OpenedProject>> openProjectFiles(const QString &projectPath,
                                                      const QString &programFolder,
                                                      SlotFileNames names,
                                                      const ConversionProgress &progress);

// The three entries of the "&Datei" menu that save and open sound projects.
class ProjectCommands
{
public:
    static inline const FileFilter Filter = {QStringLiteral("*.spj (Sounds)"),
                                             QStringLiteral("*.spj")};
    static inline const QString OpenTitle = QStringLiteral("Sound Projekt öffnen");
    static inline const QString SaveTitle = QStringLiteral("Sound Projekt speichern");

    ProjectCommands(std::unique_ptr<ProjectHost> host, ProjectDialogs &dialogs);

    // "Öff&nen", "&Speichern" and "Speicher unter...".
    void open();
    void save();
    void saveAs();
    // The open without its dialog, for a project given on the command line.
    void openFile(const QString &projectPath);

private:
    QString programFile(const QString &name) const;
    // Writes cvlist.dat and sound.arr unless a file the save reads links out of the program
    // folder; false (and the user told) when anything failed.
    bool writeWorkingLists();
    void saveProjectFile(const QString &projectPath);
    void report(const UserMessage &error, const QString &title);

    std::unique_ptr<ProjectHost> m_host;
    ProjectDialogs &m_dialogs;
    SoundProjectFile m_projects;
};

} // namespace klangor
