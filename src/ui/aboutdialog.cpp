#include "ui/aboutdialog.h"

#include "common/version.h"
#include "platform/messagebox.h"
#include "platform/systeminfo.h"

#include <array>
#include <QFont>
#include <QFrame>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QPushButton>

namespace klangor {

namespace {

// The program's icon: a loudspeaker sending sound waves, drawn so no image file is needed.
QPixmap programIcon()
{
    QPixmap pixmap(32, 32);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QColor(0x20, 0x30, 0x60), 1.5));
    painter.setBrush(QColor(0x30, 0x60, 0xB0));
    QPainterPath speaker;
    speaker.moveTo(3, 12);
    speaker.lineTo(9, 12);
    speaker.lineTo(16, 5);
    speaker.lineTo(16, 27);
    speaker.lineTo(9, 20);
    speaker.lineTo(3, 20);
    speaker.closeSubpath();
    painter.drawPath(speaker);
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(QColor(0xC0, 0x30, 0x20), 2));
    painter.drawArc(QRectF(12, 10, 10, 12), -50 * 16, 100 * 16);
    painter.drawArc(QRectF(12, 5, 17, 22), -50 * 16, 100 * 16);
    return pixmap;
}

QLabel *placedLabel(const QString &text, QWidget *parent, int left, int top, int width, int height)
{
    auto *l = new QLabel(text, parent);
    l->setTextFormat(Qt::PlainText);
    l->setGeometry(left, top, width, height);
    return l;
}

UserMessage sysInfoUnavailableMessage()
{
    return {QStringLiteral("Systeminformationen sind momentan nicht verfügbar"),
            QStringLiteral("Klangor"), MessageIcon::None};
}

} // namespace

frmAbout::frmAbout(ProgramLauncher *launcher, MessagePresenter *messages, QWidget *parent)
    : QDialog(parent), m_launcher(launcher), m_messages(messages)
{
    setObjectName(QStringLiteral("frmAbout"));
    setWindowTitle(QStringLiteral("Info zu Klangor"));
    setFixedSize(420, 290);
    setModal(false);

    QLabel *picIcon = placedLabel(QString(), this, 16, 16, 40, 40);
    picIcon->setPixmap(programIcon());
    picIcon->setObjectName(QStringLiteral("picIcon"));
    setWindowIcon(QIcon(programIcon()));

    QLabel *lblTitle = placedLabel(QStringLiteral("Klangor"), this, 72, 12, 330, 30);
    lblTitle->setObjectName(QStringLiteral("lblTitle"));
    QFont titleFont = lblTitle->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.6);
    titleFont.setBold(true);
    lblTitle->setFont(titleFont);
    placedLabel(QStringLiteral("Version ") + programVersion(), this, 72, 44, 330, 18)
        ->setObjectName(QStringLiteral("lblVersion"));

    const std::array<QString, 6> contact = {
        QStringLiteral("Tönwerk Modellbahn-Elektronik GmbH"),
        QStringLiteral("Lindenallee 17"),
        QStringLiteral("34125 Kassel"),
        QStringLiteral("Deutschland"),
        QStringLiteral("E-Mail: service@toenwerk-modellbahn.de"),
        QStringLiteral("Internet: www.toenwerk-modellbahn.de"),
    };
    for (std::size_t i = 0; i < contact.size(); ++i) {
        QLabel *line = placedLabel(contact[i], this, 72, 84 + 20 * static_cast<int>(i), 330, 18);
        line->setObjectName(QStringLiteral("Label%1").arg(i + 1));
    }

    // Decoration: a line under the version, two framing the contact lines, two above the buttons.
    const std::array<int, 5> lineTops = {72, 78, 210, 232, 236};
    for (std::size_t i = 0; i < lineTops.size(); ++i) {
        auto *line = new QFrame(this);
        line->setObjectName(QStringLiteral("Line1_%1").arg(i));
        line->setFrameShape(QFrame::HLine);
        line->setFrameShadow(i % 2 == 0 ? QFrame::Sunken : QFrame::Plain);
        line->setGeometry(i < 2 ? 72 : 16, lineTops[i], i < 2 ? 330 : 388, 2);
    }

    auto *cmdOK = new QPushButton(QStringLiteral("OK"), this);
    cmdOK->setObjectName(QStringLiteral("cmdOK"));
    cmdOK->setGeometry(300, 246, 104, 28);
    cmdOK->setDefault(true);
    cmdOK->setAutoDefault(true);
    auto *cmdSysInfo = new QPushButton(QStringLiteral("&Systeminfo..."), this);
    cmdSysInfo->setObjectName(QStringLiteral("cmdSysInfo"));
    cmdSysInfo->setGeometry(184, 246, 104, 28);
    cmdSysInfo->setAutoDefault(false);

    connect(cmdOK, &QPushButton::clicked, this, &QDialog::close);
    connect(cmdSysInfo, &QPushButton::clicked, this, &frmAbout::cmdSysInfo_Click);
}

void frmAbout::done(int result)
{
    QDialog::done(result);
    emit unloaded();
}

void frmAbout::cmdSysInfo_Click()
{
    // The box stays open whatever happens.
    if (!(m_launcher && startSystemInfo(*m_launcher)) && m_messages)
        m_messages->show(sysInfoUnavailableMessage());
}

} // namespace klangor
