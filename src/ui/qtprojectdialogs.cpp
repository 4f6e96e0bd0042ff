#include "ui/qtprojectdialogs.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QStringList>

namespace klangor {

namespace {

// The save dialog asks before it lets a new file be created, as well as before it replaces
// one, about the file the save will write: the chosen name with the filter's extension
// added when it lacks it. "Nein" leaves the dialog open for another name.
class SaveDialog final : public QFileDialog
{
public:
    SaveDialog(QWidget *parent, const QString &title, const QString &folder, const QString &filter,
               QString extension)
        : QFileDialog(parent, title, folder, qtFileDialogFilter(filter)),
          m_extension(std::move(extension))
    {
        setAcceptMode(AcceptSave);
        // Our own widgets, so that accept() below decides; the question asks about replacing.
        setOptions(HideNameFilterDetails | DontConfirmOverwrite | DontUseNativeDialog);
    }

    void accept() override
    {
        const QString chosen = selectedFiles().value(0);
        if (chosen.isEmpty() || QFileInfo(chosen).isDir()) {
            QFileDialog::accept(); // opens the folder
            return;
        }
        QString saved = chosen;
        if (!m_extension.isEmpty() && !saved.endsWith(m_extension, Qt::CaseInsensitive))
            saved += m_extension;
        const QFileInfo target(saved);
        const bool exists = target.exists() || target.isSymLink();
        const QString question =
            exists ? QStringLiteral("„%1“ ist bereits vorhanden.\nSoll die Datei ersetzt werden?")
                   : QStringLiteral("„%1“ ist nicht vorhanden.\nSoll die Datei erstellt werden?");
        if (QMessageBox::question(this, windowTitle(), question.arg(target.fileName()),
                                  QMessageBox::Yes | QMessageBox::No,
                                  exists ? QMessageBox::No : QMessageBox::Yes) == QMessageBox::Yes)
            QFileDialog::accept();
    }

private:
    QString m_extension;
};

// ".spj" of "*.spj (Sounds)|*.spj": the extension of the first type's single pattern.
QString filterExtension(const QString &filter)
{
    const QString pattern = filter.section(QLatin1Char('|'), 1, 1).trimmed();
    const QString extension = pattern.mid(1);
    if (!pattern.startsWith(QLatin1String("*.")) || extension.contains(QLatin1Char('*')) ||
        extension.contains(QLatin1Char(';')))
        return {};
    return extension;
}

} // namespace

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
    SaveDialog dialog(m_parent, title, initialFolder, filter, filterExtension(filter));
    if (dialog.exec() != QDialog::Accepted)
        return {};
    return dialog.selectedFiles().value(0);
}

} // namespace klangor
