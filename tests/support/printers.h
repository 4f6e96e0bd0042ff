#pragma once

#include "common/result.h"

#include <ostream>
#include <QString>

// Readable failure output for the program's own types.
inline void PrintTo(const QString &text, std::ostream *os)
{
    *os << '"' << text.toStdString() << '"';
}

namespace klangor {

inline void PrintTo(const UserMessage &message, std::ostream *os)
{
    *os << '"' << message.title.toStdString() << ": " << message.text.toStdString() << '"';
}

} // namespace klangor
