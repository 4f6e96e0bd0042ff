#pragma once

#include "platform/messagebox.h"

#include <QString>

class QMessageBox;
class QWidget;

namespace klangor {

// The text with every word cut to a width and the lines to a number that fit on a screen.
QString screenSizedText(const QString &text);
// A tooltip showing text as plain text: a file name such as "<img width=9999 ...>.ogg" would
// otherwise be laid out as markup.
QString plainToolTip(const QString &text);
// Shows box modally with its text as plain, screen-sized text; returns exec()'s answer.
int showPlainMessageBox(QMessageBox &box);

// Shows messages as modal boxes with the OK button only.
class QtMessagePresenter final : public MessagePresenter
{
public:
    explicit QtMessagePresenter(QWidget *parent = nullptr) : m_parent(parent) {}
    void setParent(QWidget *parent) { m_parent = parent; }
    void show(const UserMessage &message) override;

private:
    QWidget *m_parent;
};

} // namespace klangor
