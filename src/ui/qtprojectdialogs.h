#pragma once

#include "project/projectdialogs.h"

#include <QPointer>
#include <QString>
#include <QWidget>

namespace klangor {

// The project dialogs as Qt file dialogs over the main window.
class QtProjectDialogs final : public ProjectDialogs
{
public:
    explicit QtProjectDialogs(QWidget *parent = nullptr) : m_parent(parent) {}
    void setParent(QWidget *parent) { m_parent = parent; }

    // Only an existing file can be chosen.
    QString ShowOpenDialog(const FileFilter &filter, const QString &title,
                           const QString &initialFolder) override;
    // Asks before a new file is created and before an existing one is replaced, about the
    // file a save writes (the name with the filter's extension when it lacks it); adds no
    // extension of its own.
    QString ShowSaveDialog(const FileFilter &filter, const QString &title,
                           const QString &initialFolder) override;

private:
    QPointer<QWidget> m_parent;
};

} // namespace klangor
