#pragma once

namespace klangor {

// Asks for real-time scheduling of the calling thread at a low priority, the desktop's way:
// directly where the limits allow it, otherwise from RealtimeKit over the system bus. False
// when neither grants it; the thread then runs as before.
bool makeThreadRealtime(int priority);

// Whether the calling thread runs with real-time scheduling.
bool threadIsRealtime();

} // namespace klangor
