#include "ui/qtmessagepresenter.h"

#include <QApplication>
#include <QMessageBox>

namespace klangor {

void QtMessagePresenter::show(const UserMessage &message)
{
    // A message belongs to the window the user acted in (the about box, say): centred on it,
    // and that window has the focus again after OK.
    QWidget *owner = QApplication::activeWindow() ? QApplication::activeWindow() : m_parent;
    QMessageBox box(message.icon == MessageIcon::Critical ? QMessageBox::Critical
                                                          : QMessageBox::NoIcon,
                    message.title, message.text, QMessageBox::Ok, owner);
    box.exec();
}

} // namespace klangor
