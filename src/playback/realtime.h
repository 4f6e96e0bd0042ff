#pragma once

#include <future>

namespace klangor {

// Asks for real-time scheduling of the calling thread at a low priority, the desktop's way:
// directly where the limits allow it, otherwise from RealtimeKit over the system bus, in the
// background. Where neither grants it the thread runs as before. The result tells whether it
// was granted, once the request is over; nothing, not even the program's exit, waits for it.
std::future<bool> makeThreadRealtime(int priority);

} // namespace klangor
