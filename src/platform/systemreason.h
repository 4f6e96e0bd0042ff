#pragma once

#include <QString>

namespace klangor {

// The reason the system gave for a failed file operation (an errno value), in German.
QString systemReason(int errorNumber);

} // namespace klangor
