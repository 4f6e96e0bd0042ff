#pragma once

#include "playback/pcmsound.h"

namespace klangor {

// Converts to another rate and channel count: linear interpolation between frames, channels
// averaged down to mono, mono copied to every channel. Used when the output cannot take a
// sound's own format or when a sound joins a stream of another format.
PcmSound convertPcm(const PcmSound &sound, const PcmFormat &to);

} // namespace klangor
