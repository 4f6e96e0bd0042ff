#pragma once

namespace klangor {

class SoundService;

// Runs the event loop without the user's input until the sounds of PlaySoundWait have been
// heard to their end: clicks made while a group plays are taken after it.
void waitUntilSoundsHeard(SoundService &sound);

} // namespace klangor
