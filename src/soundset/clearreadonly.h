#pragma once

#include <QString>

namespace klangor {

// Makes an existing file writable before it is overwritten, then lets pending window
// events run once. Every failure is ignored.
void ClearReadOnly(const QString &path);

} // namespace klangor
