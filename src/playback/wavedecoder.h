#pragma once

#include "playback/pcmsound.h"

#include <memory>
#include <optional>
#include <QString>

namespace klangor {

// Decodes a WAV file (any sample format libsndfile reads: 8-bit unsigned, 16/24/32-bit,
// float, ADPCM, ...) to 16-bit samples at its own rate and channel count. nullopt when the
// file is missing, not a WAV file, or shorter than its data chunk claims.
std::optional<PcmSound> decodeWaveFile(const QString &path);

// The decoded file, or the default sound when it cannot be played.
std::shared_ptr<const PcmSound> loadSoundOrDefault(const QString &path);

} // namespace klangor
