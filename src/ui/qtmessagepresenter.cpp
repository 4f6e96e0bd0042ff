#include "ui/qtmessagepresenter.h"

#include <QApplication>
#include <QMessageBox>
#include <QTextDocument>

namespace klangor {

QString screenSizedText(const QString &text)
{
    // A word wraps nowhere, so a long one sets the box's width; lines set its height.
    constexpr qsizetype MaxWord = 60, MaxLines = 30;
    QStringList lines = text.split(QLatin1Char('\n'));
    if (lines.size() > MaxLines) {
        lines.resize(MaxLines);
        lines.append(QStringLiteral("…"));
    }
    for (QString &line : lines) {
        QStringList words = line.split(QLatin1Char(' '));
        for (QString &word : words) {
            if (word.size() > MaxWord)
                word =
                    word.left(MaxWord / 2 - 1) + QStringLiteral("…") + word.right(MaxWord / 2 - 1);
        }
        line = words.join(QLatin1Char(' '));
    }
    return lines.join(QLatin1Char('\n'));
}

QString plainToolTip(const QString &text)
{
    return Qt::convertFromPlainText(text, Qt::WhiteSpaceNoWrap);
}

int showPlainMessageBox(QMessageBox &box)
{
    // A file name is text, never markup: "<img width=20000 ...>.spj" shows as just that.
    box.setTextFormat(Qt::PlainText);
    box.setText(screenSizedText(box.text()));
    return box.exec();
}

void QtMessagePresenter::show(const UserMessage &message)
{
    // A message belongs to the window the user acted in (the about box, say): centred on it,
    // and that window has the focus again after OK.
    QWidget *owner = QApplication::activeWindow() ? QApplication::activeWindow() : m_parent;
    QMessageBox box(message.icon == MessageIcon::Critical ? QMessageBox::Critical
                                                          : QMessageBox::NoIcon,
                    message.title, message.text, QMessageBox::Ok, owner);
    showPlainMessageBox(box);
}

} // namespace klangor
