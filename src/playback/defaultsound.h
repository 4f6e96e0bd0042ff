#pragma once

#include "playback/pcmsound.h"

namespace klangor {

// What plays in place of a missing or unplayable file: a soft two-partial chime of about
// 0.3 s at the working files' rate, so that it joins a group without reopening the output.
// It starts and ends at zero, so it also loops without a click.
const PcmSound &defaultSound();

} // namespace klangor
