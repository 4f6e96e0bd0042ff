#pragma once

#include "project/projectdialogs.h"

#include <QList>
#include <QStringList>

namespace klangor::test {

// Answers the dialogs from a queue of paths ("" is a cancel) and records what was asked.
class FakeProjectDialogs final : public ProjectDialogs
{
public:
    struct Request
    {
        bool save;
        FileFilter filter;
        QString title, initialFolder;
    };
    QString ShowOpenDialog(const FileFilter &filter, const QString &title,
                           const QString &folder) override
    {
        requests.append({false, filter, title, folder});
        return answers.isEmpty() ? QString() : answers.takeFirst();
    }
    QString ShowSaveDialog(const FileFilter &filter, const QString &title,
                           const QString &folder) override
    {
        requests.append({true, filter, title, folder});
        return answers.isEmpty() ? QString() : answers.takeFirst();
    }
    QStringList answers;
    QList<Request> requests;
};

} // namespace klangor::test
