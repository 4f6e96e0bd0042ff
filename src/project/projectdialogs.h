#pragma once

#include <QString>

namespace klangor {

// A kind of file the dialogs offer: the text the user reads and the pattern of the names.
struct FileFilter
{
    QString description;
    QString pattern;
};

// The two file dialogs of sound projects. Each returns the chosen path, or "" when the user
// cancels or the dialog fails.
class ProjectDialogs
{
public:
    virtual ~ProjectDialogs() = default;
    virtual QString ShowOpenDialog(const FileFilter &filter, const QString &title,
                                   const QString &initialFolder) = 0;
    // Asks before creating a new file and before replacing an existing one.
    virtual QString ShowSaveDialog(const FileFilter &filter, const QString &title,
                                   const QString &initialFolder) = 0;
};

} // namespace klangor
