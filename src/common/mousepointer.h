#pragma once

namespace klangor {

// What the mouse pointer tells the user; the window picks the cursor for each.
enum class MousePointer
{
    Idle,
    Busy,    // a project is being written, a sound converted: wait
    Playing, // a loop or a group is playing
};

} // namespace klangor
