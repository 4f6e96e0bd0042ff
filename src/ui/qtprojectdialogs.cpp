#include "ui/qtprojectdialogs.h"

#include "ui/qtmessagepresenter.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>

namespace klangor {

namespace {

// Qt's "description (pattern)"; the dialogs hide the pattern part, so the user reads the
// description alone.
QString qtFilter(const FileFilter &filter)
{
    return QStringLiteral("%1 (%2)").arg(filter.description, filter.pattern);
}

// ".spj" of "*.spj": the extension of a single pattern.
QString filterExtension(const FileFilter &filter)
{
    const QString extension = filter.pattern.trimmed().mid(1);
    if (!filter.pattern.trimmed().startsWith(QLatin1String("*.")) ||
        extension.contains(QLatin1Char('*')) || extension.contains(QLatin1Char(';')) ||
        extension.contains(QLatin1Char(' ')))
        return {};
    return extension;
}

// The save dialog asks before it lets a new file be created, as well as before it replaces
// one, about the file the save will write: the chosen name with the filter's extension
// added when it lacks it. "Nein" leaves the dialog open for another name.
class SaveDialog final : public QFileDialog
{
public:
    SaveDialog(QWidget *parent, const QString &title, const QString &folder,
               const FileFilter &filter)
        : QFileDialog(parent, title, folder, qtFilter(filter)), m_extension(filterExtension(filter))
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
        QMessageBox box(QMessageBox::Question, windowTitle(), question.arg(target.fileName()),
                        QMessageBox::Yes | QMessageBox::No, this);
        box.setDefaultButton(exists ? QMessageBox::No : QMessageBox::Yes);
        if (showPlainMessageBox(box) == QMessageBox::Yes)
            QFileDialog::accept();
    }

private:
    QString m_extension;
};

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
    SaveDialog dialog(m_parent, title, initialFolder, filter);
    if (dialog.exec() != QDialog::Accepted)
        return {};
    return dialog.selectedFiles().value(0);
}

} // namespace klangor
