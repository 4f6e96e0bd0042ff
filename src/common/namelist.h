#pragma once

#include <QString>
#include <QStringList>

namespace klangor {

// A message names at most this many files; a shared project may bring a hundred.
inline constexpr int MaxListedNames = 10;

// The names one a line, at most MaxListedNames of them, then "und N weitere".
QString listedNames(const QStringList &names);

} // namespace klangor
