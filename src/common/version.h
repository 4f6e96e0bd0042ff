#pragma once

#include <QString>

namespace klangor {

// "1.0.0", from the project's version in CMake.
inline QString programVersion()
{
    return QStringLiteral("%1.%2.%3")
        .arg(KLANGOR_VERSION_MAJOR)
        .arg(KLANGOR_VERSION_MINOR)
        .arg(KLANGOR_VERSION_PATCH);
}

} // namespace klangor
