#pragma once

#include "platform/messagebox.h"
#include "platform/mousepointer.h"
#include "project/projectdialogs.h"
#include "project/soundproject.h"
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
    virtual void setChosenProjectFile(const QString &path) = 0;

    // The CV box: save its text as plain text, load a file into it. false when that failed.
    virtual bool saveCvBox(const QString &path) = 0;
    virtual bool loadCvBox(const QString &path) = 0;

    // The event view refresh, so the slots show the names now recorded.
    virtual void refreshEventView() = 0;
    virtual void setMousePointer(MousePointer pointer) = 0;
    virtual void showMessage(const UserMessage &message) = 0;
};

// The three entries of the "&Datei" menu that save and open sound projects.
class ProjectCommands
{
public:
    static inline const QString Filter = QStringLiteral("*.spj (Sounds)|*.spj");
    static inline const QString OpenTitle = QStringLiteral("Sound Projekt öffnen");
    static inline const QString SaveTitle = QStringLiteral("Sound Projekt speichern");

    ProjectCommands(std::unique_ptr<ProjectHost> host, ProjectDialogs &dialogs);

    void Offnen();
    void Speichern();
    void Speichernunter();

    const SaveSoundProjekt &projects() const { return m_projects; }

private:
    QString programFile(const QString &name) const;
    // Writes cvlist.dat and sound.arr; false (and the user told) when either failed.
    bool writeWorkingLists(const QString &title);
    void saveProjectFile(const QString &projectPath);
    // The sound.arr that an open would leave in the program folder, checked before any file
    // is touched: one dimension within the sound numbers 0..87.
    Status checkRestoredNames(const LoadedProject &project) const;
    void report(const UserMessage &error, const QString &title);

    std::unique_ptr<ProjectHost> m_host;
    ProjectDialogs &m_dialogs;
    SaveSoundProjekt m_projects;
};

} // namespace klangor
