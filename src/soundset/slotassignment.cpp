#include "soundset/slotassignment.h"

#include "platform/programfiles.h"
#include "platform/regularfile.h"
#include "platform/safefile.h"
#include "soundset/wavefolder.h"

#include <QDir>
#include <QRegularExpression>
#include <QUrl>

namespace klangor {

namespace {

// A failed copy leaves the old working file whole.
Status copyReplacing(const QString &source, const QString &target)
{
    const Result<QByteArray> sound = readRegularFile(source, MaxWorkingFileBytes);
    if (!sound)
        return sound.error();
    return writeFileSafely(target, sound.value());
}

} // namespace

QString pathInFolder(const QString &folder, const QString &name)
{
    if (folder.endsWith(QLatin1Char('/')))
        return folder + name;
    return folder + QLatin1Char('/') + name;
}

SlotAssigner::SlotAssigner(QString programFolder, WaveChecker &checker)
    : m_programFolder(std::move(programFolder)), m_checker(checker)
{}

QString SlotAssigner::workingFilePath(int soundNumber) const
{
    return QDir(m_programFolder).filePath(workingFileName(soundNumber));
}

Status SlotAssigner::prepare(int soundNumber, const QString &sourcePath, AssignWay way)
{
    if (Status checked = m_checker.CheckWaveFile(sourcePath); !checked)
        return checked;
    if (way == AssignWay::DoubleClick)
        ClearReadOnly(workingFilePath(soundNumber));
    return {};
}

Status SlotAssigner::take(SlotFileNames &names, int soundNumber, const QString &slotText,
                          const QString &sourcePath)
{
    const QString target = workingFilePath(soundNumber);
    const QString previous = names.at(soundNumber);
    names.set(soundNumber, slotText);
    const Status copied = copyReplacing(sourcePath, target);
    if (copied)
        return {};

    // The slot must not claim a sound that did not arrive.
    names.set(soundNumber, previous);
    return UserMessage{
        QStringLiteral("Die Sound-Datei konnte nicht als \"%1\" in den Programmordner "
                       "kopiert werden. %2 Der Slot bleibt unverändert.")
            .arg(workingFileName(soundNumber), copied.error().text),
        QStringLiteral("Kopieren fehlgeschlagen")};
}

namespace {

// The local file a line of dropped text names: a file URL, percent-encoded or not, or an
// absolute path. Empty for anything else, such as a bare name.
QString localFileNamedBy(const QString &line)
{
    const QString text = line.trimmed();
    if (text.startsWith(QLatin1String("file:"), Qt::CaseInsensitive)) {
        const QUrl url(text);
        return url.isLocalFile() ? url.toLocalFile() : QString();
    }
    return QDir::isAbsolutePath(text) ? text : QString();
}

} // namespace

DropPayload dropPayloadFrom(const QMimeData &mime)
{
    DropPayload payload;
    if (mime.hasUrls()) {
        for (const QUrl &url : mime.urls()) {
            if (url.isLocalFile())
                payload.files.append(url.toLocalFile());
        }
    }
    if (mime.hasText()) {
        // File managers spell the dropped files as text too, in any of their forms; such text
        // names files rather than a name in the browsed folder.
        const QString text = mime.text();
        QStringList named;
        for (const QString &line :
             text.split(QRegularExpression(QStringLiteral("[\r\n]+")), Qt::SkipEmptyParts))
            named.append(localFileNamedBy(line));
        if (named.isEmpty() || named.contains(QString()))
            payload.text = text;
        else if (payload.files.isEmpty())
            payload.files = named;
    }
    return payload;
}

std::optional<DropChoice> chooseDrop(const DropPayload &payload, const QString &browseFolder)
{
    if (payload.text)
        return DropChoice{*payload.text, pathInFolder(browseFolder, *payload.text)};
    if (!payload.files.isEmpty()) {
        const QString &first = payload.files.first();
        if (hasWaveExtension(first))
            return DropChoice{first, first};
    }
    return std::nullopt;
}

} // namespace klangor
