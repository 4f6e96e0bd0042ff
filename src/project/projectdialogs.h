#pragma once

#include <QString>

namespace klangor {

// The two file dialogs of sound projects. Each returns the chosen path, or "" when the user
// cancels or the dialog fails. filter is "description|pattern", e.g. "*.spj (Sounds)|*.spj".
class ProjectDialogs
{
public:
    virtual ~ProjectDialogs() = default;
    virtual QString ShowOpenDialog(const QString &filter, const QString &title,
                                   const QString &initialFolder) = 0;
    // Asks before creating a new file and before replacing an existing one.
    virtual QString ShowSaveDialog(const QString &filter, const QString &title,
                                   const QString &initialFolder) = 0;
};

} // namespace klangor
