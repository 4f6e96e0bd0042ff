#pragma once

#include "common/mousepointer.h"
#include "common/result.h"
#include "project/projectdialogs.h"
#include "project/soundprojectfile.h"
#include "soundset/slotfilenames.h"

#include <memory>
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
};

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
    // What the window shows after an open, taken from the project before any file is touched
    // (or, where the project lacks them, from the files in the program folder).
    Result<SlotFileNames> restoredNames(const LoadedProject &project) const;
    Result<QString> restoredCvText(const LoadedProject &project) const;
    void report(const UserMessage &error, const QString &title);

    std::unique_ptr<ProjectHost> m_host;
    ProjectDialogs &m_dialogs;
    SoundProjectFile m_projects;
};

} // namespace klangor
