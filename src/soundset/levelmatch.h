#pragma once

#include "common/result.h"
#include "soundset/slotfilenames.h"
#include "soundset/soundconversion.h"

#include <optional>
#include <QByteArray>
#include <QList>
#include <QString>

namespace klangor {

// One assigned sound of a set and what matching the set's loudness does to it.
struct LevelMatchSound
{
    int soundNumber = 0;
    int event = -1; // 0..19; -1 for the numbers 72..87, which belong to no slot
    QString name;   // the slot's name
    SoundLevels levels;
    double gainDb = 0;    // how much louder (or, below 0, quieter) it becomes
    bool limited = false; // its event stops short of the target: its peak would pass -1 dBFS

    double newLoudnessLufs() const { return levels.loudnessLufs + gainDb; }
    double newPeakDbfs() const { return levels.peakDbfs + gainDb; }
};

// Every assigned sound measured, with the gains that bring each sound event to one target
// loudness. All sounds of an event get the same gain, so their levels against each other stay;
// the event's loudness is the power mean of its sounds'. A sound is raised at most until its
// event's loudest peak reaches -1 dBFS. Silent sounds stay as they are.
struct LevelMatchPlan
{
    double targetLufs = 0;
    QList<LevelMatchSound> sounds; // by sound number

    // Only the gains follow a new target; nothing is measured again.
    void setTarget(double lufs);
    // The target that changes the set least: the median of the events' loudness.
    double medianLufs() const;
};

// Measures the working files of the assigned sounds in programFolder. Without a target the
// median is taken. Refused when any sound cannot be measured.
Result<LevelMatchPlan> planLevelMatch(const QString &programFolder, const SlotFileNames &names,
                                      std::optional<double> targetLufs = {},
                                      const ConversionProgress &progress = {});

// The working file of sound with its planned gain, as it would be written (for a preview).
Result<QByteArray> levelMatchedWave(const QString &programFolder, const LevelMatchSound &sound);

// Rewrites the working files whose gain is not 0 with it, all together or none.
Status applyLevelMatch(const QString &programFolder, const LevelMatchPlan &plan,
                       const ConversionProgress &progress = {});

} // namespace klangor
