#pragma once

#include "common/result.h"
#include "platform/programfiles.h"
#include "project/arrayfile.h"
#include "soundset/slotfilenames.h"
#include "soundset/soundconversion.h"

#include <array>
#include <functional>
#include <QByteArray>
#include <QIODevice>
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

using ProjectRecords = std::array<ProjectRecord, ProjectRecordCount>;

// The program folder as record names spell it: folders joined by backslashes, no trailing one.
QString recordFolder(const QString &programFolder);

// The file a record restores into the program folder: the text after its last "\" or "/",
// and only when that is one of the files the program itself keeps there (a working file,
// placeholder.dat, sound.arr or cvlist.dat). Empty for every other name.
QString restoredFileName(const QString &recordName);

// A project file holds 90 records of working files of at most a few hundred kilobytes; no
// genuine one comes near this, and nothing larger is read into memory.
inline constexpr qint64 MaxProjectBytes = qint64(256) << 20;

// A record name is a path as Windows spells it, which is at most 260 characters long.
inline constexpr qint64 MaxRecordNameBytes = 260;

// A project read whole into memory and checked, ready to be restored.
struct LoadedProject
{
    // What an open writes into the program folder, each name once, the last record of a
    // name winning.
    QList<std::pair<QString, QByteArray>> files;
    // Names of records that are no file of the program's own and so are not restored.
    QStringList leftOut;
    // Every record as read, for a project written back with its names.
    ProjectRecords records;

    const QByteArray *file(const QString &name) const;
};

// Reads the records of a project from device, reporting the share read; shownPath only names it
// in messages. Record names over MaxRecordNameBytes, a CV list over MaxCvFileBytes and any
// other restored file over MaxWorkingFileBytes are refused before their bytes are read.
Result<LoadedProject> parseProject(QIODevice &device, const QString &shownPath,
                                   const ConversionProgress &progress = {});
Result<LoadedProject> parseProject(const QByteArray &bytes, const QString &shownPath);
// Reads and checks a whole project file; touches no file.
Result<LoadedProject> readProjectFile(const QString &projectPath,
                                      const ConversionProgress &progress = {});

// Overlays names with the sound numbers a sound.arr image lists; names stay as they were when
// the image holds no list of sound numbers.
Status readSlotNames(const QByteArray &soundArr, SlotFileNames &names);

// The records a save of folder writes: the working file of each assigned sound number,
// placeholder.dat for the others, sound.arr and cvlist.dat, named after the folder. All files
// are read before anything is written; a link out of the folder is refused. createMissing: a file
// that is not there is created empty, as the window's save does, so placeholder.dat comes into
// being; otherwise nothing is written, a missing placeholder gives empty data and any other missing
// file is refused.
Result<ProjectRecords> collectProjectRecords(const QString &folder, const SlotFileNames &names,
                                             bool createMissing);
// The files of folder a project's records take for these names: the working file of each
// assigned sound number, placeholder.dat for the others, then sound.arr and cvlist.dat.
std::array<QString, ProjectRecordCount> recordFileNames(const SlotFileNames &names);
// Refuses, naming it, a file among names in folder that is a link to a file outside the
// folder: a project to be shared takes only what lies in the folder itself.
Status refuseLinksOutOfFolder(const QString &folder, const QStringList &names);

// Replaces the project file whole with these records, or leaves it as it was.
Status writeProjectFile(const QString &projectPath, const ProjectRecords &records);

// Saves and opens sound projects (.spj): 90 records of name and data as counted strings,
// nothing before or after them.
class SoundProjectFile
{
public:
    explicit SoundProjectFile(QString programFolder);

    // Collects the working files of the assigned sound numbers, placeholder.dat for the others,
    // sound.arr and cvlist.dat, and writes them as one project. All files are read before the
    // first byte is written; the project file is replaced whole and only when everything
    // could be written, so a failed save leaves an older project as it was. mayWrite is asked
    // once all is read; false writes nothing (and returns no message).
    Status SaveProject(const QString &projectPath, const SlotFileNames &names,
                       const std::function<bool()> &mayWrite = {});

    // Reads and checks the whole project; touches no file. A project that is incomplete or
    // damaged is refused as a whole.
    Result<LoadedProject> readProject(const QString &projectPath,
                                      const ConversionProgress &progress = {});
    // Replaces the files of the project in targetFolder all together, or changes nothing.
    // mayChange is asked once all is staged, before the first file is replaced; false leaves
    // everything as it was (and returns no message).
    Status restoreProject(const LoadedProject &project, const QString &targetFolder,
                          const std::function<bool()> &mayChange = {});

    const QString &programFolder() const { return m_programFolder; }

private:
    QString m_programFolder;
};

// The bytes of a project file with these records.
Result<QByteArray> projectFileBytes(const ProjectRecords &records);

} // namespace klangor
