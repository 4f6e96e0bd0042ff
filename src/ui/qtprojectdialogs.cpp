#include "ui/qtprojectdialogs.h"

#include <QFileDialog>
#include <QStringList>

namespace klangor {

// "*.spj (Sounds)|*.spj" becomes "*.spj (Sounds) (*.spj)"; the dialogs hide the pattern part,
// so the user sees the description alone.
QString qtFileDialogFilter(const QString &filter)
{
    const QStringList parts = filter.split(QLatin1Char('|'));
    QStringList types;
    for (qsizetype i = 0; i + 1 < parts.size(); i += 2) {
        QString patterns = parts.at(i + 1).trimmed();
        patterns.replace(QLatin1Char(';'), QLatin1Char(' '));
        if (patterns.isEmpty())
            continue;
        types.append(QStringLiteral("%1 (%2)").arg(parts.at(i), patterns));
    }
    return types.join(QStringLiteral(";;"));
}

QString QtProjectDialogs::ShowOpenDialog(const QString &filter, const QString &title,
                                         const QString &initialFolder)
{
    // getOpenFileName accepts only files that exist.
    return QFileDialog::getOpenFileName(m_parent, title, initialFolder, qtFileDialogFilter(filter),
                                        nullptr, QFileDialog::HideNameFilterDetails);
}

QString QtProjectDialogs::ShowSaveDialog(const QString &filter, const QString &title,
                                         const QString &initialFolder)
{
    // Without DontConfirmOverwrite the dialog asks before replacing an existing file.
    return QFileDialog::getSaveFileName(m_parent, title, initialFolder, qtFileDialogFilter(filter),
                                        nullptr, QFileDialog::HideNameFilterDetails);
}

} // namespace klangor
