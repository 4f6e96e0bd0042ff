#include "ui/qtprojectdialogs.h"

#include <QFileDialog>

namespace klangor {

namespace {

// Qt's "description (pattern)"; the dialogs hide the pattern part, so the user reads the
// description alone.
QString qtFilter(const FileFilter &filter)
{
    return QStringLiteral("%1 (%2)").arg(filter.description, filter.pattern);
}

} // namespace

QString QtProjectDialogs::ShowOpenDialog(const FileFilter &filter, const QString &title,
                                         const QString &initialFolder)
{
    // getOpenFileName accepts only files that exist.
    return QFileDialog::getOpenFileName(m_parent, title, initialFolder, qtFilter(filter), nullptr,
                                        QFileDialog::HideNameFilterDetails);
}

QString QtProjectDialogs::ShowSaveDialog(const FileFilter &filter, const QString &title,
                                         const QString &initialFolder)
{
    // Without DontConfirmOverwrite the dialog asks before replacing an existing file.
    return QFileDialog::getSaveFileName(m_parent, title, initialFolder, qtFilter(filter), nullptr,
                                        QFileDialog::HideNameFilterDetails);
}

} // namespace klangor
