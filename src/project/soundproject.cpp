#include "project/soundproject.h"

#include "platform/codepage.h"
#include "project/countedstring.h"
#include "soundset/clearreadonly.h"
#include "soundset/soundtable.h"

#include <atomic>
#include <memory>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSaveFile>
#include <thread>
#include <vector>

namespace klangor {

namespace {

constexpr int CommitThreads = 8;

const QString kPlaceholderName = QStringLiteral("placeholder.dat");
const QString kSoundArrName = QStringLiteral("sound.arr");
const QString kCvListName = QStringLiteral("cvlist.dat");

QString shownName(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

// Names that Windows gives to devices, with or without an extension.
bool isDeviceName(const QString &name)
{
    const QString stem = name.section(QLatin1Char('.'), 0, 0).trimmed().toUpper();
    static const QStringList devices = {QStringLiteral("CON"), QStringLiteral("PRN"),
                                        QStringLiteral("AUX"), QStringLiteral("NUL")};
    if (devices.contains(stem))
        return true;
    return stem.size() == 4 &&
           (stem.startsWith(QStringLiteral("COM")) || stem.startsWith(QStringLiteral("LPT"))) &&
           stem.at(3) >= QLatin1Char('1') && stem.at(3) <= QLatin1Char('9');
}

bool isPlainFileName(const QString &name)
{
    if (name.isEmpty() || name == QStringLiteral(".") || name == QStringLiteral(".."))
        return false;
    for (const QChar c : name) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7F)
            return false;
        if (QStringLiteral("\\/:*?\"<>|").contains(c))
            return false;
    }
    return !isDeviceName(name);
}

// Reads a listed file for a save. A file that does not exist is created empty and gives
// empty data; that is how placeholder.dat comes into being.
std::optional<QByteArray> collectFile(const QString &path)
{
    QFile file(path);
    if (!QFileInfo::exists(path)) {
        if (file.open(QIODevice::WriteOnly | QIODevice::NewOnly))
            file.close();
        return QByteArray();
    }
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QByteArray data = file.readAll();
    if (file.error() != QFile::NoError)
        return std::nullopt;
    return data;
}

} // namespace

QString LastPathComponent(const QString &path)
{
    return path.mid(path.lastIndexOf(QLatin1Char('\\')) + 1);
}

Result<QString> restoredFileName(const QString &recordName)
{
    const qsizetype separator = std::max(recordName.lastIndexOf(QLatin1Char('\\')),
                                         recordName.lastIndexOf(QLatin1Char('/')));
    const QString name = recordName.mid(separator + 1);
    if (!isPlainFileName(name))
        return UserMessage{QStringLiteral("„%1“ ist kein gültiger Dateiname.").arg(recordName)};
    return name;
}

QString recordFolder(const QString &programFolder)
{
    QString folder = QDir::cleanPath(programFolder);
    folder.replace(QLatin1Char('/'), QLatin1Char('\\'));
    while (folder.endsWith(QLatin1Char('\\')))
        folder.chop(1);
    return folder;
}

Result<QByteArray> projectFileBytes(const ProjectRecords &records)
{
    std::array<QByteArray, ProjectRecordCount> names;
    qint64 total = 0;
    for (std::size_t i = 0; i < records.size(); ++i) {
        names[i] = toWindows1252(records[i].name);
        total += countedStringSize(names[i].size()) + countedStringSize(records[i].data.size());
    }
    QByteArray bytes;
    bytes.reserve(total);
    for (std::size_t i = 0; i < records.size(); ++i) {
        if (!appendCountedString(bytes, names[i]) || !appendCountedString(bytes, records[i].data))
            return UserMessage{QStringLiteral("Die Datei „%1“ ist zu groß für ein Sound Projekt.")
                                   .arg(records[i].name)};
    }
    return bytes;
}

SaveSoundProjekt::SaveSoundProjekt(QString programFolder)
    : m_programFolder(std::move(programFolder))
{}

Status SaveSoundProjekt::SaveProject(const QString &projectPath, const SlotFileNames &names)
{
    const QString folder = recordFolder(m_programFolder);
    const QDir dir(m_programFolder);
    std::array<QString, ProjectRecordCount> bareNames;
    for (int i = 0; i <= SlotFileNames::UpperBound; ++i)
        bareNames[static_cast<std::size_t>(i)] =
            names.isAssigned(i) ? workingFileName(i) : kPlaceholderName;
    bareNames[SoundArrRecord] = kSoundArrName;
    bareNames[CvListRecord] = kCvListName;
    for (std::size_t i = 0; i < bareNames.size(); ++i)
        m_fileList[i] = folder + QLatin1Char('\\') + bareNames[i];

    // The whole project is held in memory before the first byte is written.
    ProjectRecords records;
    QHash<QString, QByteArray> read;
    for (std::size_t i = 0; i < bareNames.size(); ++i) {
        auto cached = read.constFind(bareNames[i]);
        if (cached == read.constEnd()) {
            const QString path = dir.filePath(bareNames[i]);
            const std::optional<QByteArray> data = collectFile(path);
            if (!data)
                return UserMessage{QStringLiteral("Die Datei „%1“ kann nicht gelesen werden. Das "
                                                  "Sound Projekt wurde nicht gespeichert.")
                                       .arg(shownName(path))};
            cached = read.insert(bareNames[i], *data);
        }
        records[i] = {m_fileList[i], cached.value()};
    }
    m_records = records;

    const Result<QByteArray> bytes = projectFileBytes(records);
    if (!bytes)
        return bytes.error();
    QSaveFile file(projectPath);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes.value()) != bytes.value().size() ||
        !file.commit()) {
        return UserMessage{QStringLiteral("Das Sound Projekt „%1“ kann nicht gespeichert werden. "
                                          "Bitte einen anderen Ort oder Namen wählen.")
                               .arg(shownName(projectPath))};
    }
    return {};
}

Result<LoadedProject> SaveSoundProjekt::readProject(const QString &projectPath)
{
    QFile file(projectPath);
    if (!file.open(QIODevice::ReadOnly)) {
        if (!QFileInfo::exists(projectPath))
            return UserMessage{QStringLiteral("Das Sound Projekt „%1“ wurde nicht gefunden.")
                                   .arg(shownName(projectPath))};
        return UserMessage{QStringLiteral("Das Sound Projekt „%1“ kann nicht gelesen werden.")
                               .arg(shownName(projectPath))};
    }

    // Exactly 90 records are read; whatever follows them is left alone.
    LoadedProject project;
    LittleEndianReader reader(file);
    for (int i = 0; i < ProjectRecordCount; ++i) {
        const auto name = reader.readCountedString();
        const auto data = name ? reader.readCountedString() : std::nullopt;
        if (!data)
            return UserMessage{
                QStringLiteral("Das Sound Projekt „%1“ ist unvollständig oder beschädigt: "
                               "Eintrag %2 von %3 fehlt oder ist abgeschnitten. Es wurde nichts "
                               "geändert.")
                    .arg(shownName(projectPath))
                    .arg(i + 1)
                    .arg(ProjectRecordCount)};
        const auto index = static_cast<std::size_t>(i);
        project.records[index] = {fromWindows1252(*name), *data};
        const Result<QString> fileName = restoredFileName(project.records[index].name);
        if (!fileName)
            return UserMessage{QStringLiteral("Das Sound Projekt „%1“ ist beschädigt: Eintrag %2 "
                                              "nennt keine Datei im Programmordner. %3 Es wurde "
                                              "nichts geändert.")
                                   .arg(shownName(projectPath))
                                   .arg(i + 1)
                                   .arg(fileName.error().text)};
        project.fileNames[index] = fileName.value();
    }
    m_records = project.records;
    return project;
}

Status SaveSoundProjekt::restoreProject(const LoadedProject &project, const QString &targetFolder)
{
    const QDir target(targetFolder);

    // Later records naming the same file win, as when each record is written in turn.
    QStringList order;
    QHash<QString, QByteArray> contents;
    for (std::size_t i = 0; i < project.records.size(); ++i) {
        const QString &name = project.fileNames[i];
        if (!contents.contains(name))
            order.append(name);
        contents.insert(name, project.records[i].data);
    }

    QStringList writable;
    for (int i = 0; i < ProjectRecordCount; ++i)
        writable.append(workingFileName(i));
    writable << kSoundArrName << kCvListName;
    for (const QString &name : order) {
        if (!writable.contains(name))
            writable.append(name);
    }
    for (const QString &name : writable)
        ClearReadOnly(target.filePath(name));

    // Every file is written out in full before the first one replaces its old version.
    std::vector<std::unique_ptr<QSaveFile>> files;
    for (const QString &name : order) {
        auto file = std::make_unique<QSaveFile>(target.filePath(name));
        const QByteArray &data = contents[name];
        if (!file->open(QIODevice::WriteOnly) || file->write(data) != data.size())
            return UserMessage{QStringLiteral("Die Datei „%1“ kann nicht geschrieben werden. Es "
                                              "wurde nichts geändert.")
                                   .arg(shownName(target.filePath(name)))};
        files.push_back(std::move(file));
    }
    // Each commit waits for its file to reach the disk; done side by side, the file system
    // can flush them together instead of one after another.
    std::vector<char> committed(files.size(), 0);
    std::atomic<std::size_t> next{0};
    auto commitNext = [&] {
        for (std::size_t i = next++; i < files.size(); i = next++)
            committed[i] = files[i]->commit() ? 1 : 0;
    };
    {
        std::vector<std::jthread> workers;
        for (int w = 1; w < CommitThreads; ++w)
            workers.emplace_back(commitNext);
        commitNext();
    }
    QStringList failed;
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (!committed[i])
            failed.append(shownName(files[i]->fileName()));
    }
    if (!failed.isEmpty())
        return UserMessage{QStringLiteral("Das Sound Projekt wurde nur teilweise geöffnet: %1 "
                                          "konnte nicht ersetzt werden.")
                               .arg(failed.join(QStringLiteral(", ")))};
    return {};
}

Status SaveSoundProjekt::OpenProject(const QString &projectPath, const QString &targetFolder)
{
    const Result<LoadedProject> project = readProject(projectPath);
    if (!project)
        return project.error();
    return restoreProject(project.value(), targetFolder);
}

} // namespace klangor
