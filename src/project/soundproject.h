#pragma once

#include "common/result.h"
#include "project/arrayfile.h"
#include "soundset/slotfilenames.h"

#include <array>
#include <QByteArray>
#include <QString>

namespace klangor {

struct ProjectRecord
{
    QString name;    // full path of the file when the project was saved, folders joined by "\"
    QByteArray data; // that file's complete contents

    friend bool operator==(const ProjectRecord &, const ProjectRecord &) = default;
};

inline constexpr int ProjectRecordCount = 90;
inline constexpr int SoundArrRecord = 88;
inline constexpr int CvListRecord = 89;

using ProjectFileList = std::array<QString, ProjectRecordCount>;
using ProjectRecords = std::array<ProjectRecord, ProjectRecordCount>;

// The text after the last backslash; the whole path when it holds none.
QString LastPathComponent(const QString &path);

// The file a record restores: the text after the last "\" or "/" of its name. Refused when
// that is no plain file name, since restoring must never leave the target folder.
Result<QString> restoredFileName(const QString &recordName);

// The program folder as record names spell it: folders joined by backslashes, no trailing one.
QString recordFolder(const QString &programFolder);

// A project read whole into memory and checked, ready to be restored.
struct LoadedProject
{
    ProjectRecords records;
    std::array<QString, ProjectRecordCount> fileNames; // the bare name each record restores
};

// Saves and opens sound projects (.spj): 90 records of name and data as counted strings,
// nothing before or after them. Keeps the file list of the last save and the records of the
// last project written or read.
class SaveSoundProjekt
{
public:
    explicit SaveSoundProjekt(QString programFolder);

    // Collects the working files of the assigned sound numbers, placeholder.dat for the others,
    // sound.arr and cvlist.dat, and writes them as one project. All files are read before the
    // first byte is written; the project file is replaced whole and only when everything
    // could be written, so a failed save leaves an older project as it was.
    Status SaveProject(const QString &projectPath, const SlotFileNames &names);

    // Reads and checks the whole project, then restores every record into targetFolder.
    Status OpenProject(const QString &projectPath, const QString &targetFolder);

    // The two halves of OpenProject, for callers that check more in between. Reading touches
    // no file; a project that is incomplete, damaged or names files outside the folder is
    // refused as a whole.
    Result<LoadedProject> readProject(const QString &projectPath);
    // Makes the listed files writable, then writes every restored file in full; the files are
    // only replaced after all of them have been written completely.
    Status restoreProject(const LoadedProject &project, const QString &targetFolder);

    const ProjectFileList &projectFileList() const { return m_fileList; }
    const ProjectRecords &projectRecords() const { return m_records; }
    const QString &programFolder() const { return m_programFolder; }

private:
    QString m_programFolder;
    ProjectFileList m_fileList;
    ProjectRecords m_records;
};

// The bytes of a project file with these records.
Result<QByteArray> projectFileBytes(const ProjectRecords &records);

} // namespace klangor
