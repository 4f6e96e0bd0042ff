#pragma once

#include "project/fakeprojectdialogs.h"
#include "project/projectcommands.h"
#include "support/printers.h"

#include <QByteArray>
#include <QDataStream>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QRandomGenerator>
#include <QString>
#include <QtEndian>
#include <tuple>

namespace klangor::test {

// Every entry below a folder with its bytes (a link with its target, a folder as such), to
// show that an operation changed nothing.
inline QMap<QString, QByteArray> snapshot(const QString &folder)
{
    QMap<QString, QByteArray> entries;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QFileInfo info(it.next());
        QByteArray content = "<folder>";
        if (info.isSymLink()) {
            content = "-> " + info.symLinkTarget().toUtf8();
        } else if (info.isFile()) {
            QFile file(info.filePath());
            content = file.open(QIODevice::ReadOnly) ? file.readAll() : "<unreadable>";
            content += " mode " + QByteArray::number(static_cast<int>(info.permissions()), 16);
        }
        entries.insert(QDir(folder).relativeFilePath(info.filePath()), content);
    }
    return entries;
}

// Bytes that differ from position to position, so a shifted or cut copy is noticed.
inline QByteArray noise(qsizetype size, quint32 seed)
{
    QRandomGenerator generator(seed);
    QByteArray bytes(size, '\0');
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(generator.generate() & 0xFF);
    return bytes;
}

// The 44-byte header and 130,094 data bytes of a 5.9-second 16-bit mono sound.
inline constexpr qsizetype FullSoundBytes = 44 + 130094;

// Counted string as the files store it, built by hand for the expected bytes of tests.
inline QByteArray counted(const QByteArray &bytes)
{
    QByteArray out;
    QDataStream count(&out, QIODevice::WriteOnly);
    count.setByteOrder(QDataStream::LittleEndian);
    if (bytes.size() < 0xFFFF)
        count << quint16(bytes.size());
    else
        count << quint16(0xFFFF) << quint32(bytes.size());
    return out + bytes;
}

// A project file built by hand from (name, data) records.
inline QByteArray projectBytes(const QList<std::pair<QByteArray, QByteArray>> &records)
{
    QByteArray out;
    for (const auto &[name, data] : records)
        out += counted(name) + counted(data);
    return out;
}

// The 90 records of a project without sounds, saved in folder, with this CV list.
inline QList<std::pair<QByteArray, QByteArray>> plainRecords(const QByteArray &soundArr,
                                                             const QByteArray &cv = "CV")
{
    QList<std::pair<QByteArray, QByteArray>> records;
    for (int i = 0; i < 88; ++i)
        records.append({"C:\\K\\placeholder.dat", QByteArray()});
    records.append({"C:\\K\\sound.arr", soundArr});
    records.append({"C:\\K\\cvlist.dat", cv});
    return records;
}

// The window as the project commands see it, recording what they ask of it.
class RecordingHost final : public ProjectHost
{
public:
    explicit RecordingHost(QString folder) : m_folder(std::move(folder)) {}
    QString programFolder() const override { return m_folder; }
    const SlotFileNames &slotFileNames() const override { return names; }
    void setSlotFileNames(const SlotFileNames &n) override
    {
        names = n;
        calls << "names";
    }
    QString projectPath() const override { return path; }
    void setProjectPath(const QString &p) override { path = p; }
    QString cvText() const override { return cv; }
    void setCvText(const QString &text) override
    {
        cv = text;
        calls << "cv";
    }
    void refreshEventView() override { calls << "refresh"; }
    void setMousePointer(MousePointer pointer) override
    {
        const char *pointers[] = {"idle", "busy", "playing"};
        calls << QStringLiteral("pointer:") + pointers[static_cast<int>(pointer)];
    }
    void showMessage(const UserMessage &message) override { messages << message; }
    void runLongWork(const QString &,
                     const std::function<void(const ConversionProgress &)> &work) override
    {
        work(progress);
    }
    ConversionProgress progress;
    // The text of the one message shown since the last call; else how many there were.
    QString onlyMessage()
    {
        const auto shown = std::exchange(messages, {});
        return shown.size() == 1 ? shown[0].text : QString("%1 Meldungen").arg(shown.size());
    }
    // What the window shows of a project.
    auto state() const { return std::tuple(names, cv, path); }

    QString m_folder;
    SlotFileNames names;
    QString path, cv;
    QStringList calls;
    QList<UserMessage> messages;
};

// The project commands over a recording host, working in a program folder of their own.
struct CommandsFixture
{
    explicit CommandsFixture(const QString &folder)
        : host(new RecordingHost(folder)), commands(std::unique_ptr<RecordingHost>(host), dialogs)
    {}
    void open(const QString &project)
    {
        dialogs.answers = {project};
        commands.open();
    }
    void saveAs(const QString &project)
    {
        dialogs.answers = {project};
        commands.saveAs();
    }

    FakeProjectDialogs dialogs;
    RecordingHost *host; // owned by the commands
    ProjectCommands commands;
};

} // namespace klangor::test
