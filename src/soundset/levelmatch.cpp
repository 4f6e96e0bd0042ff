#include "soundset/levelmatch.h"

#include "platform/filebatch.h"
#include "platform/programfiles.h"
#include "platform/soundfile.h"
#include "soundset/soundtable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <QDir>
#include <QFileInfo>
#include <vector>

namespace klangor {

namespace {

// A working file has passed the decoder check (at most 5.9 s); this bounds what is read of
// one that was replaced behind the program's back.
constexpr std::size_t MaxWorkingFrames = std::size_t(1) << 20;

// The event of each sound number; -1 for those of no slot.
std::array<int, SlotFileNames::Count> eventsOfSounds()
{
    std::array<int, SlotFileNames::Count> events;
    events.fill(-1);
    for (int event = 0; event < SoundTable::EventCount; ++event) {
        for (int slot = 1; slot <= SoundTable::slotCount(event); ++slot)
            events.at(static_cast<std::size_t>(*SoundTable::soundNumber(event, slot))) = event;
    }
    return events;
}

// The sounds that change together: an event's, or a sound of no slot alone.
int groupOf(const LevelMatchSound &sound)
{
    return sound.event >= 0 ? sound.event : SoundTable::EventCount + sound.soundNumber;
}

struct GroupLevels
{
    double loudnessLufs; // power mean of its measurable sounds; -inf when none is
    double peakDbfs;
};

std::map<int, GroupLevels> groupLevels(const QList<LevelMatchSound> &sounds)
{
    constexpr double none = -std::numeric_limits<double>::infinity();
    std::map<int, std::pair<double, int>> power; // sum of 10^(L/10), count
    std::map<int, GroupLevels> groups;
    for (const LevelMatchSound &sound : sounds) {
        auto [entry, fresh] = groups.try_emplace(groupOf(sound), GroupLevels{none, none});
        entry->second.peakDbfs = std::max(entry->second.peakDbfs, sound.levels.peakDbfs);
        if (std::isfinite(sound.levels.loudnessLufs)) {
            auto &[sum, count] = power[groupOf(sound)];
            sum += std::pow(10.0, sound.levels.loudnessLufs / 10);
            ++count;
        }
    }
    for (const auto &[group, sum] : power)
        groups[group].loudnessLufs = 10 * std::log10(sum.first / sum.second);
    return groups;
}

// The samples of a working file, with its bits and its rate, which the rewritten file keeps (a
// sound of a shared project may have another rate than the decoder's).
Result<std::vector<double>> workingSamples(const QString &path, bool &eightBit, int &sampleRate)
{
    const auto refused = [&](const QString &reason) {
        return UserMessage(QStringLiteral("Der Sound „%1“ kann nicht angepasst werden: %2")
                               .arg(QDir::toNativeSeparators(path), reason));
    };
    SoundFile sound;
    if (const Status opened = sound.open(path); !opened)
        return opened.error();
    if (!sound.isSound() || sound.channels() != 1 ||
        (sound.samples() != SoundFile::Samples::Unsigned8 &&
         sound.samples() != SoundFile::Samples::Signed16))
        return refused(QStringLiteral("Er ist kein Mono-Sound mit 8 oder 16 Bit."));
    eightBit = sound.samples() == SoundFile::Samples::Unsigned8;
    sampleRate = sound.sampleRate();
    std::vector<double> samples;
    constexpr std::size_t block = 16384;
    for (;;) {
        if (samples.size() > MaxWorkingFrames)
            return refused(QStringLiteral("Er ist zu lang."));
        const std::size_t done = samples.size();
        samples.resize(done + block);
        const qint64 got = sound.read(samples.data() + done, qint64(block));
        samples.resize(done + static_cast<std::size_t>(std::max<qint64>(got, 0)));
        if (got <= 0)
            break;
    }
    if (sound.damaged() || samples.empty())
        return refused(QStringLiteral("Seine Tondaten sind beschädigt."));
    return samples;
}

UserMessage aboutSound(int number, const QString &name, const UserMessage &error)
{
    return {QStringLiteral("Soundnummer %1 („%2“): %3").arg(number).arg(name, error.text)};
}

} // namespace

void LevelMatchPlan::setTarget(double lufs)
{
    targetLufs = lufs;
    const std::map<int, GroupLevels> groups = groupLevels(sounds);
    for (LevelMatchSound &sound : sounds) {
        const GroupLevels &group = groups.at(groupOf(sound));
        sound.gainDb = 0;
        sound.limited = false;
        if (!std::isfinite(group.loudnessLufs) || !std::isfinite(lufs))
            continue;
        sound.gainDb = lufs - group.loudnessLufs;
        // Not worth new rounding (and, in 8 bits, new dither) of the sound.
        if (std::abs(sound.gainDb) < 0.05)
            sound.gainDb = 0;
        // Raised only as far as the peak allows; a sound already louder is never lowered
        // for that.
        const double headroom = NormalizedPeakDbfs - group.peakDbfs;
        if (sound.gainDb > 0 && sound.gainDb > headroom) {
            sound.gainDb = std::max(0.0, headroom);
            sound.limited = true;
        }
    }
}

double LevelMatchPlan::medianLufs() const
{
    std::vector<double> loudness;
    for (const auto &[group, levels] : groupLevels(sounds)) {
        if (std::isfinite(levels.loudnessLufs))
            loudness.push_back(levels.loudnessLufs);
    }
    if (loudness.empty())
        return -std::numeric_limits<double>::infinity();
    std::sort(loudness.begin(), loudness.end());
    const std::size_t middle = loudness.size() / 2;
    return loudness.size() % 2 ? loudness[middle] : (loudness[middle - 1] + loudness[middle]) / 2;
}

Result<LevelMatchPlan> planLevelMatch(const QString &programFolder, const SlotFileNames &names,
                                      std::optional<double> targetLufs,
                                      const ConversionProgress &progress)
{
    const std::array<int, SlotFileNames::Count> events = eventsOfSounds();
    int assigned = 0;
    for (int n = 0; n <= SlotFileNames::UpperBound; ++n)
        assigned += names.isAssigned(n);
    LevelMatchPlan plan;
    for (int n = 0; n <= SlotFileNames::UpperBound; ++n) {
        if (!names.isAssigned(n))
            continue;
        const QString path = QDir(programFolder).filePath(workingFileName(n));
        const Result<SoundLevels> levels = measureSoundLevels(path);
        if (!levels)
            return aboutSound(n, names.at(n), levels.error());
        plan.sounds.append({.soundNumber = n,
                            .event = events.at(static_cast<std::size_t>(n)),
                            .name = names.at(n),
                            .levels = levels.value(),
                            .measuredFile = QFileInfo(path).lastModified()});
        if (progress && !progress(double(plan.sounds.size()) / assigned))
            return UserMessage(QStringLiteral("Die Messung der Sounds wurde abgebrochen."));
    }
    plan.setTarget(targetLufs ? *targetLufs : plan.medianLufs());
    return plan;
}

Result<QByteArray> levelMatchedWave(const QString &programFolder, const LevelMatchSound &sound)
{
    const QString path = QDir(programFolder).filePath(workingFileName(sound.soundNumber));
    // Another sound put into the slot meanwhile would get a gain meant for the old one.
    if (QFileInfo(path).lastModified() != sound.measuredFile)
        return UserMessage(QStringLiteral("Die Datei „%1“ hat sich seit der Messung geändert.")
                               .arg(QDir::toNativeSeparators(path)));
    bool eightBit = false;
    int sampleRate = DecoderSampleRate;
    Result<std::vector<double>> samples = workingSamples(path, eightBit, sampleRate);
    if (!samples)
        return samples.error();
    const double gain = std::pow(10.0, sound.gainDb / 20);
    for (double &v : samples.value())
        v *= gain;
    return decoderWaveBytes(samples.value(), eightBit, sampleRate);
}

Status applyLevelMatch(const QString &programFolder, const LevelMatchPlan &plan,
                       const ConversionProgress &progress)
{
    QList<std::pair<QString, QByteArray>> files;
    for (const LevelMatchSound &sound : plan.sounds) {
        if (sound.gainDb != 0) {
            const Result<QByteArray> bytes = levelMatchedWave(programFolder, sound);
            if (!bytes)
                return aboutSound(sound.soundNumber, sound.name, bytes.error());
            files.append({workingFileName(sound.soundNumber), bytes.value()});
        }
        if (progress && !progress(double(files.size()) / plan.sounds.size()))
            return UserMessage(QStringLiteral("Das Angleichen wurde abgebrochen; die Sounds sind "
                                              "unverändert."));
    }
    if (files.isEmpty())
        return {};
    FileBatch batch(programFolder);
    if (const Status staged = batch.stage(files); !staged)
        return staged.error();
    return batch.commit();
}

} // namespace klangor
