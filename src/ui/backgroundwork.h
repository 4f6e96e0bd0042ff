#pragma once

#include "soundset/soundconversion.h"

#include <functional>
#include <optional>
#include <QString>

class QWidget;

namespace klangor {

// Runs work on a thread of its own while the window's thread keeps answering: a progress dialog
// over parent (shown once the work takes longer than half a second) follows the share the work
// reports and offers "Abbrechen", which makes the next report return false. False when the work
// was told so; its result then counts for nothing. work must touch nothing of the window.
bool runWithProgress(QWidget *parent, const QString &title, const QString &label,
                     const std::function<void(const ConversionProgress &)> &work);

// The same for work with a result: nullopt when the user cancelled.
template <typename T>
std::optional<T> runWithProgress(QWidget *parent, const QString &title, const QString &label,
                                 const std::function<T(const ConversionProgress &)> &work)
{
    std::optional<T> result;
    if (!runWithProgress(parent, title, label,
                         [&](const ConversionProgress &progress) { result = work(progress); }))
        return std::nullopt;
    return result;
}

} // namespace klangor
