#pragma once

#include <QString>

namespace klangor {

// Makes an existing file writable for its owner (the read-only attribute on Windows).
// Returns false when the file does not exist or its permissions cannot be changed.
bool clearReadOnlyAttribute(const QString &path);

} // namespace klangor
