#pragma once

namespace klangor {

// The window's pointer codes: the numbers are the ones the window has always used.
enum class MousePointer
{
    Default = 0,
    Hourglass = 11,      // a project is being written
    ArrowHourglass = 13, // a loop or a group is playing
};

} // namespace klangor
