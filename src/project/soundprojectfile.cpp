#include "project/soundprojectfile.h"

#include "platform/codepage.h"
#include "platform/filebatch.h"
#include "platform/regularfile.h"
#include "platform/safefile.h"
#include "programming/cvlistfile.h"
#include "project/countedstring.h"

#include <QBuffer>
#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>
#include <sys/stat.h>

namespace klangor {

namespace {

QString shownName(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

UserMessage cannotOpen(const UserMessage &reason)
{
    return {QStringLiteral("Das Sound Projekt kann nicht geöffnet werden. %1 Es wurde nichts "
                           "geändert.")
                .arg(reason.text)};
}

enum class Kind
{
    Missing,
    Regular,
    Other
};

// What lies at path, following a link: a dangling link counts as missing.
Kind kindOf(const QString &path)
{
    struct stat st;
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return Kind::Missing;
    return S_ISREG(st.st_mode) ? Kind::Regular : Kind::Other;
}

// Reads a listed file for a save, at most limit bytes. A placeholder that is no regular file
// is the program's own to replace; any other such file is refused.
Result<QByteArray> collectFile(const QString &path, qint64 limit, bool createMissing)
{
    const Kind kind = kindOf(path);
    const bool placeholder = path.endsWith(QLatin1Char('/') + PlaceholderFileName);
    if (!createMissing && placeholder && kind != Kind::Regular)
        return QByteArray();
    if (createMissing && (kind == Kind::Missing || (kind == Kind::Other && placeholder))) {
        if (const Status created = writeFileSafely(path, {}); !created)
            return created.error();
        return QByteArray();
    }
    return readRegularFile(path, limit);
}

} // namespace

QString recordFolder(const QString &programFolder)
{
    QString folder = QDir::cleanPath(programFolder);
    folder.replace(QLatin1Char('/'), QLatin1Char('\\'));
    while (folder.endsWith(QLatin1Char('\\')))
        folder.chop(1);
    return folder;
}

QString restoredFileName(const QString &recordName)
{
    const qsizetype separator = std::max(recordName.lastIndexOf(QLatin1Char('\\')),
                                         recordName.lastIndexOf(QLatin1Char('/')));
    const QString name = recordName.mid(separator + 1);
    if (name == PlaceholderFileName || name == SoundArrFileName || name == CvListFileName)
        return name;
    static const QRegularExpression working(QStringLiteral("^(0|[1-9][0-9]?)\\.wav$"));
    const QRegularExpressionMatch match = working.match(name);
    if (match.hasMatch() && match.captured(1).toInt() <= SlotFileNames::UpperBound)
        return name;
    return {};
}

const QByteArray *LoadedProject::file(const QString &name) const
{
    for (const auto &[fileName, data] : files) {
        if (fileName == name)
            return &data;
    }
    return nullptr;
}

Result<QByteArray> projectFileBytes(const ProjectRecords &records)
{
    std::array<QByteArray, ProjectRecordCount> names;
    qint64 total = 0;
    for (std::size_t i = 0; i < records.size(); ++i) {
        names[i] = toWindows1252(records[i].name);
        // A project that no open would take back is not written.
        if (names[i].size() > MaxRecordNameBytes)
            return UserMessage{QStringLiteral("Der Pfad „%1“ ist zu lang für ein Sound Projekt "
                                              "(höchstens %2 Zeichen).")
                                   .arg(records[i].name)
                                   .arg(MaxRecordNameBytes)};
        total += countedStringSize(names[i].size()) + countedStringSize(records[i].data.size());
    }
    if (total > MaxProjectBytes)
        return UserMessage{
            QStringLiteral("Die Dateien sind zusammen zu groß für ein Sound Projekt.")};
    QByteArray bytes;
    bytes.reserve(total);
    for (std::size_t i = 0; i < records.size(); ++i) {
        appendCountedString(bytes, names[i]);
        appendCountedString(bytes, records[i].data);
    }
    return bytes;
}

Result<LoadedProject> parseProject(QIODevice &device, const QString &shownPath,
                                   const ConversionProgress &progress)
{
    // Exactly 90 records are read; whatever follows them is left alone. The reader checks
    // every length against the bytes that are left, so no length field can claim more, and
    // limits are checked before a record's bytes are read.
    LoadedProject project;
    LittleEndianReader reader(device);
    QHash<QString, qsizetype> position;
    for (int i = 0; i < ProjectRecordCount; ++i) {
        if (progress && device.size() > 0)
            progress(static_cast<double>(device.pos()) / static_cast<double>(device.size()));
        QString name, fileName;
        std::optional<QByteArray> data;
        const QString damage = [&] {
            const auto nameLength = reader.readCountedLength();
            if (nameLength && *nameLength > MaxRecordNameBytes)
                return QStringLiteral("hat einen Namen von mehr als %1 Zeichen")
                    .arg(MaxRecordNameBytes);
            const auto nameBytes = nameLength ? reader.readBytes(*nameLength) : std::nullopt;
            const auto dataLength = nameBytes ? reader.readCountedLength() : std::nullopt;
            if (!dataLength || *dataLength > reader.bytesLeft())
                return QStringLiteral("fehlt oder ist abgeschnitten");
            // A save names every record; one without a name is no record of a project.
            if (nameBytes->isEmpty())
                return QStringLiteral("hat keinen Namen");
            name = fromWindows1252(*nameBytes);
            fileName = restoredFileName(name);
            const qint64 limit = fileName == CvListFileName ? MaxCvFileBytes : MaxWorkingFileBytes;
            if (!fileName.isEmpty() && *dataLength > limit)
                return QStringLiteral("ist eine Datei von mehr als %1 kB").arg(limit >> 10);
            // What is not restored is not read either.
            data = fileName.isEmpty() ? reader.skip(*dataLength) : reader.readBytes(*dataLength);
            return data ? QString() : QStringLiteral("fehlt oder ist abgeschnitten");
        }();
        if (!damage.isEmpty())
            return UserMessage{
                QStringLiteral("Das Sound Projekt „%1“ ist unvollständig oder beschädigt: "
                               "Eintrag %2 von %3 %4. Es wurde nichts geändert.")
                    .arg(shownName(shownPath))
                    .arg(i + 1)
                    .arg(ProjectRecordCount)
                    .arg(damage)};
        // What was not restored was not read: such a record keeps only its name.
        project.records[static_cast<std::size_t>(i)] =
            ProjectRecord{name, data.value_or(QByteArray())};
        if (fileName.isEmpty()) {
            if (!project.leftOut.contains(name))
                project.leftOut.append(name);
        } else if (const auto seen = position.constFind(fileName); seen != position.constEnd()) {
            project.files[*seen].second = *data;
        } else {
            position.insert(fileName, project.files.size());
            project.files.append({fileName, *data});
        }
    }
    return project;
}

Result<LoadedProject> parseProject(const QByteArray &bytes, const QString &shownPath)
{
    QByteArray copy = bytes; // shared, not copied
    QBuffer buffer(&copy);
    buffer.open(QIODevice::ReadOnly);
    return parseProject(buffer, shownPath);
}

std::array<QString, ProjectRecordCount> recordFileNames(const SlotFileNames &names)
{
    std::array<QString, ProjectRecordCount> bareNames;
    for (int i = 0; i <= SlotFileNames::UpperBound; ++i)
        bareNames[static_cast<std::size_t>(i)] =
            names.isAssigned(i) ? workingFileName(i) : PlaceholderFileName;
    bareNames[SoundArrRecord] = SoundArrFileName;
    bareNames[CvListRecord] = CvListFileName;
    return bareNames;
}

Status refuseLinksOutOfFolder(const QString &folder, const QStringList &names)
{
    const QString inside = QDir(folder).canonicalPath() + QLatin1Char('/');
    for (const QString &name : names) {
        const QFileInfo file(QDir(folder).filePath(name));
        // Only a file can be read out; a dangling link or one to a device is replaced or
        // refused as such.
        if (file.isSymLink() && file.isFile() && !file.canonicalFilePath().startsWith(inside))
            return UserMessage{QStringLiteral("„%1“ ist eine Verknüpfung nach außerhalb des "
                                              "Ordners und wird nicht eingepackt. Das Sound "
                                              "Projekt wurde nicht gespeichert.")
                                   .arg(shownName(file.filePath()))};
    }
    return {};
}

Result<ProjectRecords> collectProjectRecords(const QString &folder, const SlotFileNames &names,
                                             bool createMissing)
{
    const QString named = recordFolder(folder);
    const QDir dir(folder);
    const std::array<QString, ProjectRecordCount> bareNames = recordFileNames(names);
    if (const Status links =
            refuseLinksOutOfFolder(folder, QStringList(bareNames.begin(), bareNames.end()));
        !links)
        return links.error();

    // The whole project is held in memory before the first byte is written.
    ProjectRecords records;
    QHash<QString, QByteArray> read;
    qint64 total = 0;
    for (std::size_t i = 0; i < bareNames.size(); ++i) {
        auto cached = read.constFind(bareNames[i]);
        if (cached == read.constEnd()) {
            const Result<QByteArray> data =
                collectFile(dir.filePath(bareNames[i]), MaxProjectBytes - total, createMissing);
            if (!data)
                return UserMessage{data.error().text +
                                   QStringLiteral(" Das Sound Projekt wurde nicht gespeichert.")};
            total += data.value().size();
            cached = read.insert(bareNames[i], data.value());
        }
        records[i] = {named + QLatin1Char('\\') + bareNames[i], cached.value()};
    }
    return records;
}

Status writeProjectFile(const QString &projectPath, const ProjectRecords &records)
{
    const Result<QByteArray> bytes = projectFileBytes(records);
    if (!bytes)
        return bytes.error();
    if (const Status written = writeFileSafely(projectPath, bytes.value()); !written)
        return UserMessage{
            QStringLiteral("Das Sound Projekt „%1“ wurde nicht gespeichert. %2 Eine ältere "
                           "Datei dieses Namens ist unverändert.")
                .arg(shownName(projectPath), written.error().text)};
    return {};
}

Result<LoadedProject> readProjectFile(const QString &projectPath,
                                      const ConversionProgress &progress)
{
    RegularFile file;
    if (const Status opened = file.openFile(projectPath, MaxProjectBytes); !opened)
        return cannotOpen(opened.error());
    Result<LoadedProject> project = parseProject(file, projectPath, progress);
    if (const Status read = file.readStatus(); !read)
        return cannotOpen(read.error());
    return project;
}

Status readSlotNames(const QByteArray &soundArr, SlotFileNames &names)
{
    const Result<StringArray> array = parseArrayFile(soundArr, SoundArrFileName);
    if (!array)
        return array.error();
    const StringArray &restored = array.value();
    const bool fits = restored.dimensionCount() == 1 && restored.bounds().constFirst().lower >= 0 &&
                      restored.bounds().constFirst().upper <= SlotFileNames::UpperBound;
    if (!fits)
        return UserMessage{QStringLiteral("Die Datei „%1“ enthält keine Slot-Belegung (erwartet: "
                                          "eine Liste der Soundnummern 0 bis 87).")
                               .arg(SoundArrFileName)};
    const ArrayBounds bounds = restored.bounds().constFirst();
    for (qint32 i = bounds.lower; i <= bounds.upper; ++i)
        names.set(i, restored.at({i}));
    return {};
}

SoundProjectFile::SoundProjectFile(QString programFolder)
    : m_programFolder(std::move(programFolder))
{}

Status SoundProjectFile::SaveProject(const QString &projectPath, const SlotFileNames &names,
                                     const std::function<bool()> &mayWrite)
{
    const Result<ProjectRecords> records = collectProjectRecords(m_programFolder, names, true);
    if (!records)
        return records.error();
    if (mayWrite && !mayWrite())
        return {};
    return writeProjectFile(projectPath, records.value());
}

Result<LoadedProject> SoundProjectFile::readProject(const QString &projectPath,
                                                    const ConversionProgress &progress)
{
    return readProjectFile(projectPath, progress);
}

Status SoundProjectFile::restoreProject(const LoadedProject &project, const QString &targetFolder,
                                        const std::function<bool()> &mayChange)
{
    FileBatch batch(targetFolder);
    Status done = batch.stage(project.files);
    if (done && mayChange && !mayChange())
        return {};
    if (done)
        done = batch.commit();
    if (!done)
        return cannotOpen(done.error());
    return {};
}

} // namespace klangor
