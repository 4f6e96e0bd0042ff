#pragma once

#include "playback/pcmsound.h"

#include <memory>
#include <QString>
#include <vector>

namespace klangor::test {

// Writes a sound file with libsndfile; format is an SF_FORMAT_* combination. Samples are
// interleaved and in the range -1..1.
bool writeSoundFile(const QString &path, int format, int sampleRate, int channels,
                    const std::vector<double> &samples);

// The same from 16-bit samples, which libsndfile stores exactly in every PCM width.
bool writeSoundFile16(const QString &path, int format, int sampleRate, int channels,
                      const std::vector<qint16> &samples);

// A mono 16-bit sound whose samples are distinct (a ramp that starts at start), so any
// dropped, doubled or inserted frame shows.
std::shared_ptr<const PcmSound> rampSound(qint64 frames, qint16 start, int sampleRate = 11025,
                                          int channels = 1);

} // namespace klangor::test
