#include "cli/commands.h"
#include "platform/filebatch.h"
#include "platform/programfiles.h"
#include "platform/regularfile.h"
#include "platform/waveaudiodevice.h"
#include "programming/cvlistfile.h"
#include "project/soundprojectfile.h"
#include "soundset/soundtable.h"

#include <QBuffer>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

namespace klangor {

namespace {

const QString kEmpty = QStringLiteral("-");

int fail(Console &console, const UserMessage &message)
{
    console.err << "klangor: " << message.text << '\n';
    return ExitFailure;
}

// A project read whole with the slot names its sound.arr gives.
struct OpenedProject
{
    LoadedProject project;
    SlotFileNames names;
};

Result<OpenedProject> openProject(const QString &path)
{
    Result<LoadedProject> project = readProjectFile(path);
    if (!project)
        return project.error();
    const QByteArray *soundArr = project.value().file(SoundArrFileName);
    if (!soundArr)
        return UserMessage{
            QStringLiteral("Das Sound Projekt „%1“ enthält keine %2 und damit keine Slot-Belegung.")
                .arg(QDir::toNativeSeparators(path), SoundArrFileName)};
    SlotFileNames names;
    if (const Status read = readSlotNames(*soundArr, names); !read)
        return read.error();
    return OpenedProject{std::move(project).value(), names};
}

// Which sound numbers go out as files of their own, and which are refused with why.
struct UnpackPlan
{
    QList<std::pair<QString, QByteArray>> files;
    QStringList refused;
};

// Why a name cannot be a file of its own in the target folder; empty when it can.
QString unsafeNameReason(const QString &name)
{
    if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
        return QStringLiteral("Er ist kein Dateiname.");
    for (const QChar c : name) {
        if (c.category() == QChar::Other_Control || c.category() == QChar::Other_Format)
            return QStringLiteral("Er enthält Steuerzeichen.");
    }
    if (QFile::encodeName(name).size() > 255)
        return QStringLiteral("Er ist zu lang.");
    // Devices on Windows, where the folder may be shared; Klangor's own temporaries and list.
    static const QStringList devices = [] {
        QStringList names = {QStringLiteral("CON"), QStringLiteral("PRN"), QStringLiteral("AUX"),
                             QStringLiteral("NUL")};
        for (int i = 1; i <= 9; ++i)
            names << QStringLiteral("COM%1").arg(i) << QStringLiteral("LPT%1").arg(i);
        return names;
    }();
    if (devices.contains(name.section(QLatin1Char('.'), 0, 0).trimmed(), Qt::CaseInsensitive) ||
        name.startsWith(SafeFilePrefix) || name.compare(CvListFileName, Qt::CaseInsensitive) == 0)
        return QStringLiteral("Der Name ist vorbehalten.");
    return {};
}

UnpackPlan planUnpack(const LoadedProject &project, const SlotFileNames &names)
{
    UnpackPlan plan;
    QHash<QString, int> taken; // file name -> sound number that brings it
    for (int n = 0; n <= SlotFileNames::UpperBound; ++n) {
        if (!names.isAssigned(n))
            continue;
        const QString &slotName = names.at(n);
        const QString name = slotName.section(QRegularExpression(QStringLiteral("[/\\\\]")), -1);
        const QByteArray *data = project.file(workingFileName(n));
        QString reason = unsafeNameReason(name);
        if (reason.isEmpty() && !data)
            reason = QStringLiteral("Das Sound Projekt enthält den Sound nicht.");
        if (reason.isEmpty() && taken.contains(name)) {
            if (*project.file(workingFileName(taken.value(name))) == *data)
                continue; // the same sound in two slots is written once
            reason = QStringLiteral("Soundnummer %1 bringt einen anderen Sound dieses Namens.")
                         .arg(taken.value(name));
        }
        if (!reason.isEmpty()) {
            plan.refused.append(QStringLiteral("Soundnummer %1 („%2“) wurde nicht ausgepackt. %3")
                                    .arg(n)
                                    .arg(outputField(slotName), reason));
            continue;
        }
        taken.insert(name, n);
        plan.files.append({name, *data});
    }
    if (const QByteArray *cv = project.file(CvListFileName))
        plan.files.append({CvListFileName, *cv});
    else
        plan.refused.append(
            QStringLiteral("Das Sound Projekt enthält keine %1.").arg(CvListFileName));
    return plan;
}

} // namespace

int runProjectShow(const CommandArguments &arguments, Console &console)
{
    const Result<OpenedProject> opened = openProject(arguments.positional.at(0));
    if (!opened)
        return fail(console, opened.error());
    const LoadedProject &project = opened.value().project;
    const SlotFileNames &names = opened.value().names;

    qint64 totalMs = 0, totalBytes = 0;
    const auto printSound = [&](const QString &event, const QString &slot, int number) {
        std::optional<RiffWaveData> wave;
        const QByteArray *data = project.file(workingFileName(number));
        if (names.isAssigned(number) && data) {
            QBuffer buffer;
            buffer.setData(*data);
            buffer.open(QIODevice::ReadOnly);
            wave = readRiffWaveData(buffer);
        }
        if (wave) {
            totalMs += wave->milliseconds();
            totalBytes += wave->dataBytes;
        }
        const QStringList measured = wave ? QStringList{QString::number(wave->milliseconds()),
                                                        QString::number(wave->bitsPerSample),
                                                        QString::number(wave->dataBytes)}
                                          : QStringList{kEmpty, kEmpty, kEmpty};
        const QString &name = names.at(number);
        console.out << "slot\t" << event << '\t' << slot << '\t' << number << '\t'
                    << (name.isEmpty() ? kEmpty : outputField(name)) << '\t'
                    << measured.join(QLatin1Char('\t')) << '\n';
    };
    for (int event = 0; event < SoundTable::EventCount; ++event) {
        console.out << "ereignis\t" << event + 1 << '\t' << outputField(SoundTable::text(event))
                    << '\n';
        for (int slot = 1; slot <= SoundTable::slotCount(event); ++slot)
            printSound(QString::number(event + 1), QString::number(slot),
                       SoundTable::soundNumber(event, slot).value()); // within slotCount
    }
    for (int number = SoundTable::SoundCount; number <= SlotFileNames::UpperBound; ++number) {
        if (names.isAssigned(number))
            printSound(kEmpty, kEmpty, number);
    }
    console.out << "gesamt\t" << totalMs << '\t' << totalBytes << '\n';

    if (const QByteArray *cv = project.file(CvListFileName)) {
        QStringList lines = cvTextFromBytes(*cv).split(QLatin1Char('\n'));
        if (lines.constLast().isEmpty())
            lines.removeLast();
        for (const QString &line : lines)
            console.out << "cv\t" << outputField(line) << '\n';
    }
    return ExitSuccess;
}

int runProjectUnpack(const CommandArguments &arguments, Console &console)
{
    const QString folder = arguments.positional.at(1);
    const Result<OpenedProject> opened = openProject(arguments.positional.at(0));
    if (!opened)
        return fail(console, opened.error());
    const UnpackPlan plan = planUnpack(opened.value().project, opened.value().names);

    if (!QDir().mkpath(folder))
        return fail(console, {QStringLiteral("Der Ordner „%1“ kann nicht angelegt werden.")
                                  .arg(QDir::toNativeSeparators(folder))});
    recoverInterruptedWrites(folder); // what an unpack that was killed left behind
    FileBatch batch(folder);
    Status written = batch.stage(plan.files);
    if (written)
        written = batch.commit();
    if (!written)
        return fail(console, written.error());

    for (const auto &file : plan.files)
        console.out << outputField(file.first) << '\n';
    for (const QString &refused : plan.refused)
        fail(console, {refused});
    return plan.refused.isEmpty() ? ExitSuccess : ExitFailure;
}

int runProjectPack(const CommandArguments &arguments, Console &console)
{
    // Record names carry the folder as the window's save carries its program folder: whole.
    const QString folder = QFileInfo(arguments.positional.at(0)).absoluteFilePath();
    if (!QFileInfo(folder).isDir())
        return fail(console, {QStringLiteral("Den Ordner „%1“ gibt es nicht.")
                                  .arg(QDir::toNativeSeparators(folder))});
    const Result<QByteArray> soundArr =
        readRegularFile(QDir(folder).filePath(SoundArrFileName), MaxArrayFileBytes);
    if (!soundArr)
        return fail(console, soundArr.error());
    SlotFileNames names;
    if (const Status read = readSlotNames(soundArr.value(), names); !read)
        return fail(console, read.error());
    const Result<ProjectRecords> records = collectProjectRecords(folder, names, false);
    if (!records)
        return fail(console, records.error());
    // A folder from someone else may link to the packer's own files (a key, a letter); a
    // project to be shared takes only what lies in the folder itself.
    const QString inside = QDir(folder).canonicalPath() + QLatin1Char('/');
    for (const ProjectRecord &record : records.value()) {
        const QFileInfo file(QDir(folder).filePath(record.name.section(QLatin1Char('\\'), -1)));
        if (file.isSymLink() && !file.canonicalFilePath().startsWith(inside))
            return fail(console, {QStringLiteral("„%1“ ist eine Verknüpfung nach außerhalb des "
                                                 "Ordners und wird nicht eingepackt.")
                                      .arg(QDir::toNativeSeparators(file.filePath()))});
    }
    if (const Status written = writeProjectFile(arguments.positional.at(1), records.value());
        !written)
        return fail(console, written.error());
    return ExitSuccess;
}

} // namespace klangor
