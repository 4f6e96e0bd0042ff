#include "cli/commands.h"
#include "common/namelist.h"
#include "platform/filebatch.h"
#include "platform/programfiles.h"
#include "platform/regularfile.h"
#include "platform/waveaudiodevice.h"
#include "programming/cvlistfile.h"
#include "project/soundprojectfile.h"
#include "soundset/levelmatch.h"
#include "soundset/soundtable.h"

#include <algorithm>
#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

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

// Which sound numbers go out as files of their own, and what is reported about the rest.
struct UnpackPlan
{
    QList<std::pair<QString, QByteArray>> files;
    QStringList refused;
};

// Why a name cannot be a file of its own in the target folder, which may be the program
// folder or go to Windows on a stick; empty when it can.
QString unsafeNameReason(const QString &name)
{
    if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
        return QStringLiteral("Er ist kein Dateiname.");
    for (const QChar c : name) {
        if (c.category() == QChar::Other_Control || c.category() == QChar::Other_Format)
            return QStringLiteral("Er enthält Steuerzeichen.");
        if (QStringLiteral(":*?\"<>|").contains(c))
            return QStringLiteral("Windows lässt das Zeichen „%1“ nicht zu.").arg(c);
    }
    if (QFile::encodeName(name).size() > 255)
        return QStringLiteral("Er ist zu lang.");
    if (name.startsWith(QLatin1Char('.')))
        return QStringLiteral("Er beginnt mit einem Punkt und wäre versteckt.");
    if (name.endsWith(QLatin1Char('.')) || name.endsWith(QLatin1Char(' ')))
        return QStringLiteral("Windows lässt keinen Punkt und kein Leerzeichen am Ende zu.");
    static const QRegularExpression device(
        QStringLiteral("^(CON|PRN|AUX|NUL|COM[1-9]|LPT[1-9]) *(\\..*)?$"),
        QRegularExpression::CaseInsensitiveOption);
    if (device.match(name).hasMatch())
        return QStringLiteral("Der Name ist unter Windows einem Gerät vorbehalten.");
    static const QRegularExpression program(QStringLiteral("\\.(exe|bat|com|cmd|sh)$"),
                                            QRegularExpression::CaseInsensitiveOption);
    const QString self = QFileInfo(QCoreApplication::applicationFilePath()).fileName();
    if (program.match(name).hasMatch() ||
        (!self.isEmpty() && name.compare(self, Qt::CaseInsensitive) == 0))
        return QStringLiteral("Er wäre ein Programm.");
    if (programOwnFileNames().contains(name, Qt::CaseInsensitive))
        return QStringLiteral("Der Name gehört Klangor.");
    return {};
}

UnpackPlan planUnpack(const LoadedProject &project, const SlotFileNames &names)
{
    UnpackPlan plan;
    QHash<QString, const QByteArray *> taken; // file name (as Windows compares) -> its sound
    const auto take = [&](const QString &name, const QByteArray *data) {
        const auto it = taken.constFind(name.toCaseFolded());
        if (it != taken.constEnd())
            return **it == *data; // the same sound in two slots is written once
        taken.insert(name.toCaseFolded(), data);
        plan.files.append({name, *data});
        return true;
    };
    for (int n = 0; n <= SlotFileNames::UpperBound; ++n) {
        if (!names.isAssigned(n))
            continue;
        const QString &slotName = names.at(n);
        const QString shownName =
            QStringLiteral("Soundnummer %1 („%2“)").arg(n).arg(outputField(slotName));
        const QByteArray *data = project.file(workingFileName(n));
        if (!data) {
            plan.refused.append(shownName + QStringLiteral(" wurde nicht ausgepackt. Das Sound "
                                                           "Projekt enthält den Sound nicht."));
            continue;
        }
        const QString name = slotName.section(QRegularExpression(QStringLiteral("[/\\\\]")), -1);
        QString reason = unsafeNameReason(name);
        if (reason.isEmpty() && take(name, data))
            continue;
        if (reason.isEmpty())
            reason = QStringLiteral("Ein anderer Sound trägt schon diesen Namen.");
        const QString instead = QStringLiteral("slot-%1.wav").arg(n);
        plan.refused.append(
            shownName + (take(instead, data)
                             ? QStringLiteral(" wurde als „%1“ ausgepackt. %2").arg(instead, reason)
                             : QStringLiteral(" wurde nicht ausgepackt. %1 Auch „%2“ ist schon "
                                              "vergeben.")
                                   .arg(reason, instead)));
    }
    if (const QByteArray *cv = project.file(CvListFileName))
        plan.files.append({CvListFileName, *cv});
    else
        plan.refused.append(
            QStringLiteral("Das Sound Projekt enthält keine %1.").arg(CvListFileName));
    return plan;
}

// What lies in folder besides leftovers of the program's own interrupted writes.
bool holdsUserFiles(const QString &folder)
{
    const QStringList entries = QDir(folder).entryList(QDir::AllEntries | QDir::Hidden |
                                                       QDir::System | QDir::NoDotAndDotDot);
    return std::any_of(entries.cbegin(), entries.cend(),
                       [](const QString &name) { return !isInterruptedWriteName(name); });
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

    // An unpack that was killed half-way is completed first, so that a refusal leaves no
    // half-written folder behind.
    if (QFileInfo(folder).isDir())
        recoverInterruptedWrites(folder);
    if (!arguments.has(QStringLiteral("--overwrite")) && holdsUserFiles(folder))
        return fail(console, {QStringLiteral("Der Ordner „%1“ ist nicht leer. Ausgepackt wird nur "
                                             "in einen leeren oder neuen Ordner; „--overwrite“ "
                                             "ersetzt darin Dateien gleichen Namens.")
                                  .arg(outputField(QDir::toNativeSeparators(folder)))});
    if (!QDir().mkpath(folder))
        return fail(console, {QStringLiteral("Der Ordner „%1“ kann nicht angelegt werden.")
                                  .arg(QDir::toNativeSeparators(folder))});
    FileBatch batch(folder); // completes or clears what an unpack that was killed left behind
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

// A file of the user's where the project goes is replaced only when asked to.
bool replacesUnasked(const CommandArguments &arguments, const QString &path, Console &console)
{
    const QFileInfo out(path);
    if (arguments.has(QStringLiteral("--overwrite")) || !(out.exists() || out.isSymLink()))
        return false;
    fail(console, {QStringLiteral("Die Datei „%1“ gibt es schon; ersetzt wird sie nur mit "
                                  "„--overwrite“. Es wurde nichts geschrieben.")
                       .arg(QDir::toNativeSeparators(path))});
    return true;
}

int runProjectPack(const CommandArguments &arguments, Console &console)
{
    if (replacesUnasked(arguments, arguments.positional.at(1), console))
        return ExitFailure;
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
    if (const Status written = writeProjectFile(arguments.positional.at(1), records.value());
        !written)
        return fail(console, written.error());
    return ExitSuccess;
}

namespace {

// The target a call names, or the median of the set's events.
std::optional<std::optional<double>> targetOf(const CommandArguments &arguments)
{
    const QString option = QStringLiteral("--target");
    if (!arguments.has(option))
        return std::optional<double>();
    bool number = false;
    const double lufs =
        arguments.value(option).replace(QLatin1Char(','), QLatin1Char('.')).toDouble(&number);
    if (!number || !(lufs >= -70 && lufs <= 0))
        return std::nullopt;
    return std::optional<double>(lufs);
}

} // namespace

int runProjectNormalize(const CommandArguments &arguments, Console &console)
{
    const std::optional<std::optional<double>> target = targetOf(arguments);
    if (!target) {
        console.err << "klangor: Der Zielwert „" << outputField(arguments.value("--target"))
                    << "“ ist keine Lautheit von -70 bis 0 LUFS.\n";
        return ExitUsage;
    }
    if (replacesUnasked(arguments, arguments.positional.at(1), console))
        return ExitFailure;
    const Result<OpenedProject> opened = openProject(arguments.positional.at(0));
    if (!opened)
        return fail(console, opened.error());
    const LoadedProject &project = opened.value().project;
    const SlotFileNames &names = opened.value().names;
    // Records the program does not restore are not read, so they could not be written back.
    if (!project.leftOut.isEmpty())
        return fail(console, {QStringLiteral("Das Sound Projekt enthält Einträge, die Klangor "
                                             "nicht liest:\n%1\nEs wurde nichts geschrieben.")
                                  .arg(listedNames(project.leftOut))});

    // The sounds are matched where the window matches them: as working files of a folder.
    QTemporaryDir work;
    QList<std::pair<QString, QByteArray>> sounds;
    for (int n = 0; n <= SlotFileNames::UpperBound; ++n) {
        if (!names.isAssigned(n))
            continue;
        const QByteArray *data = project.file(workingFileName(n));
        if (!data)
            return fail(console, {QStringLiteral("Das Sound Projekt enthält den Sound der "
                                                 "Soundnummer %1 nicht. Es wurde nichts "
                                                 "geschrieben.")
                                      .arg(n)});
        sounds.append({workingFileName(n), *data});
    }
    FileBatch unpacked(work.path());
    Status done =
        work.isValid()
            ? unpacked.stage(sounds)
            : Status(UserMessage(QStringLiteral("Es lässt sich kein temporärer Ordner anlegen.")));
    if (done)
        done = unpacked.commit();
    const Result<LevelMatchPlan> plan =
        done ? planLevelMatch(work.path(), names, *target) : Result<LevelMatchPlan>(done.error());
    done = plan ? applyLevelMatch(work.path(), plan.value()) : Status(plan.error());
    ProjectRecords records = project.records;
    for (ProjectRecord &record : records) {
        const QString name = restoredFileName(record.name);
        const bool matchedSound =
            std::any_of(sounds.begin(), sounds.end(),
                        [&](const std::pair<QString, QByteArray> &s) { return s.first == name; });
        if (!done || !matchedSound)
            continue;
        const Result<QByteArray> matched =
            readRegularFile(QDir(work.path()).filePath(name), MaxProjectBytes);
        if (!matched)
            done = matched.error();
        else
            record.data = matched.value();
    }
    if (done)
        done = writeProjectFile(arguments.positional.at(1), records);
    if (!done)
        return fail(console,
                    {QStringLiteral("%1 Es wurde nichts geschrieben.").arg(done.error().text)});

    console.out << "ziel\t" << levelField(plan.value().targetLufs) << '\n';
    for (const LevelMatchSound &sound : plan.value().sounds)
        console.out << "sound\t" << sound.soundNumber << '\t' << outputField(sound.name) << '\t'
                    << levelField(sound.levels.loudnessLufs) << '\t'
                    << levelField(sound.levels.peakDbfs) << '\t' << levelField(sound.gainDb) << '\t'
                    << levelField(sound.newLoudnessLufs()) << '\t'
                    << levelField(sound.newPeakDbfs()) << (sound.limited ? "\tbegrenzt" : "")
                    << '\n';
    return ExitSuccess;
}

} // namespace klangor
