#include "ui/qtmessagepresenter.h"

#include <QMessageBox>

namespace klangor {

void QtMessagePresenter::show(const UserMessage &message)
{
    QMessageBox box(message.icon == MessageIcon::Critical ? QMessageBox::Critical
                                                          : QMessageBox::NoIcon,
                    message.title, message.text, QMessageBox::Ok, m_parent);
    box.exec();
}

} // namespace klangor
