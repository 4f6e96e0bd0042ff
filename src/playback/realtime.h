#pragma once

namespace klangor {

// Asks for real-time scheduling of the calling thread at a low priority, the desktop's way:
// directly where the limits allow it, otherwise from RealtimeKit over the system bus, in the
// background. Where neither grants it the thread runs as before.
void makeThreadRealtime(int priority);

} // namespace klangor
