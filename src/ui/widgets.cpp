#include "ui/widgets.h"

#include "ui/qtmessagepresenter.h"

#include <cmath>
#include <QDir>
#include <QDragEnterEvent>
#include <QFileInfo>
#include <QMimeData>
#include <QPainter>
#include <QPainterPath>
#include <QScrollBar>
#include <QStyle>

namespace klangor {

SlotBox::SlotBox(QWidget *parent) : QLineEdit(parent)
{
    // The box shows what was taken; typing in it would record nothing.
    setReadOnly(true);
    setAcceptDrops(true);
}

void SlotBox::mouseDoubleClickEvent(QMouseEvent *event)
{
    QLineEdit::mouseDoubleClickEvent(event);
    emit doubleClicked();
}

void SlotBox::dragEnterEvent(QDragEnterEvent *event)
{
    if (event->mimeData()->hasText() || event->mimeData()->hasUrls())
        event->acceptProposedAction();
}

void SlotBox::dragMoveEvent(QDragMoveEvent *event)
{
    event->acceptProposedAction();
}

void SlotBox::dropEvent(QDropEvent *event)
{
    // The file is copied, never moved: tell the source so.
    event->setDropAction(Qt::CopyAction);
    event->accept();
    emit dropped(dropPayloadFrom(*event->mimeData()));
}

WaveFileListBox::WaveFileListBox(QWidget *parent) : QListWidget(parent)
{
    setDragEnabled(true);
    setDragDropMode(QAbstractItemView::DragOnly);
    setDefaultDropAction(Qt::CopyAction);
    setSelectionMode(QAbstractItemView::SingleSelection);
}

namespace {

void setApart(QListWidgetItem &item, const QString &why)
{
    QFont marked = item.listWidget()->font();
    marked.setItalic(true);
    item.setFont(marked);
    item.setForeground(QColor(0x9c, 0x4a, 0x00));
    item.setToolTip(plainToolTip(item.text() + u'\n' + why));
}

} // namespace

void WaveFileListBox::setEntries(const QList<SoundFileEntry> &entries)
{
    const QString selected = selectedEntry();
    const int scrolled = verticalScrollBar()->value();
    clear();
    for (const SoundFileEntry &entry : entries) {
        auto *item = new QListWidgetItem(entry.name, this);
        item->setData(NeedsConversionRole, entry.needsConversion);
        item->setToolTip(plainToolTip(entry.name));
        if (entry.needsConversion)
            setApart(*item, QStringLiteral("Wird für den Decoder umgewandelt, bevor ein Slot ihn "
                                           "übernimmt."));
        if (entry.name == selected)
            setCurrentItem(item);
    }
    verticalScrollBar()->setValue(scrolled);
}

void WaveFileListBox::markUnfit(const QMap<QString, QString> &reasons)
{
    for (int row = 0; row < count(); ++row) {
        QListWidgetItem *entry = item(row);
        if (const auto reason = reasons.constFind(entry->text()); reason != reasons.constEnd())
            setApart(*entry,
                     *reason + QStringLiteral("\nRechtsklick: Für den Decoder umwandeln..."));
    }
}

QString WaveFileListBox::selectedEntry() const
{
    const QListWidgetItem *item = currentItem();
    return item && item->isSelected() ? item->text() : QString();
}

QStringList WaveFileListBox::mimeTypes() const
{
    return {QStringLiteral("text/plain")};
}

QMimeData *WaveFileListBox::mimeData(const QList<QListWidgetItem *> &items) const
{
    if (items.isEmpty())
        return nullptr;
    auto *mime = new QMimeData;
    mime->setText(items.first()->text());
    return mime;
}

FolderListBox::FolderListBox(QWidget *parent) : QListWidget(parent)
{
    setSelectionMode(QAbstractItemView::SingleSelection);
    connect(this, &QListWidget::itemActivated, this, &FolderListBox::openItem);
}

bool FolderListBox::setPath(const QString &path)
{
    const QString clean = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    QDir dir(clean);
    if (!dir.exists() || !dir.isReadable())
        return false;
    const QFileInfoList children =
        dir.entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name | QDir::IgnoreCase);
    if (!QFileInfo(clean).isExecutable())
        return false;

    clear();
    const QIcon openIcon = style()->standardIcon(QStyle::SP_DirOpenIcon);
    const QIcon closedIcon = style()->standardIcon(QStyle::SP_DirClosedIcon);
    QStringList ancestors;
    for (QDir up(clean);;) {
        ancestors.prepend(up.absolutePath());
        if (up.isRoot() || !up.cdUp())
            break;
    }
    int depth = 0;
    for (const QString &ancestor : ancestors) {
        const QString label = QDir(ancestor).isRoot() ? ancestor : QDir(ancestor).dirName();
        auto *item =
            new QListWidgetItem(openIcon, QString(depth * 2, QLatin1Char(' ')) + label, this);
        item->setData(Qt::UserRole, ancestor);
        ++depth;
    }
    setCurrentRow(count() - 1);
    for (const QFileInfo &child : children) {
        auto *item = new QListWidgetItem(
            closedIcon, QString(depth * 2, QLatin1Char(' ')) + child.fileName(), this);
        item->setData(Qt::UserRole, child.absoluteFilePath());
    }
    const bool changed = clean != m_path;
    m_path = clean;
    if (changed)
        emit pathChanged();
    return true;
}

void FolderListBox::openItem(QListWidgetItem *item)
{
    if (item)
        setPath(item->data(Qt::UserRole).toString());
}

DriveListBox::DriveListBox(std::function<QStringList()> drives, QWidget *parent)
    : QComboBox(parent), m_drives(std::move(drives))
{}

QStringList DriveListBox::refresh()
{
    const QString chosen = currentText();
    const QStringList drives = m_drives();
    const QSignalBlocker quiet(this);
    clear();
    addItems(drives);
    if (const int index = findText(chosen); index >= 0)
        setCurrentIndex(index);
    return drives;
}

void DriveListBox::showPopup()
{
    refresh();
    QComboBox::showPopup();
}

QRect CaptionFrame::captionRect() const
{
    const QFontMetrics metrics = fontMetrics();
    return {6, 0, metrics.horizontalAdvance(title()) + 4, metrics.height()};
}

void CaptionFrame::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    const QRect caption = captionRect();
    const QRect box = rect().adjusted(0, lineTop(), -2, -2);
    p.setPen(palette().color(QPalette::Mid));
    p.drawRect(box);
    p.setPen(palette().color(QPalette::Light));
    p.drawRect(box.translated(1, 1));
    p.fillRect(caption, palette().window());
    p.setPen(palette().color(QPalette::WindowText));
    p.drawText(caption, Qt::AlignCenter, title());
}

LogoPicture::LogoPicture(Motif motif, QWidget *parent) : QFrame(parent), m_motif(motif)
{
    setFrameStyle(QFrame::Panel | QFrame::Sunken);
    setFixedSize(177, 65);
}

void LogoPicture::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    drawFrame(&p);
    const QRect inside = contentsRect();
    p.setClipRect(inside);
    p.translate(inside.topLeft());
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r = QRectF(QPointF(), inside.size()).adjusted(0.5, 0.5, -0.5, -0.5);
    QLinearGradient sky(r.topLeft(), r.bottomLeft());
    sky.setColorAt(0, QColor(0x1f, 0x3b, 0x5c));
    sky.setColorAt(1, QColor(0x0b, 0x18, 0x28));
    p.fillRect(r, sky);
    p.setPen(QColor(0x6f, 0x8f, 0xb0));
    p.drawRect(r);

    if (m_motif == Motif::Waveform) {
        QPainterPath wave;
        for (int x = 0; x <= 160; ++x) {
            const double t = x / 160.0;
            const double env = std::sin(t * M_PI);
            const double y = 24 + 16 * env * std::sin(t * 38.0) * std::cos(t * 7.0);
            x == 0 ? wave.moveTo(8 + x, y) : wave.lineTo(8 + x, y);
        }
        p.setPen(QPen(QColor(0xff, 0xc8, 0x3a), 1.6));
        p.drawPath(wave);
        QFont f = font();
        f.setBold(true);
        f.setPixelSize(13);
        p.setFont(f);
        p.setPen(Qt::white);
        p.drawText(QRectF(0, 42, inside.width(), 18), Qt::AlignCenter, QStringLiteral("Klangor"));
    } else {
        // A small diesel locomotive on its rails.
        p.setPen(QPen(QColor(0x9a, 0xa5, 0xb1), 2));
        p.drawLine(QPointF(6, 52), QPointF(169, 52));
        p.setPen(Qt::NoPen);
        p.setBrush(QColor(0xc0, 0x2b, 0x2b));
        p.drawRoundedRect(QRectF(30, 22, 115, 22), 3, 3);
        p.drawRoundedRect(QRectF(118, 12, 27, 14), 2, 2);
        p.setBrush(QColor(0xe8, 0xe8, 0xe0));
        p.drawRect(QRectF(123, 15, 17, 7));
        p.drawRect(QRectF(36, 27, 70, 4));
        p.setBrush(QColor(0x22, 0x22, 0x22));
        for (const double x : {46.0, 62.0, 112.0, 128.0})
            p.drawEllipse(QPointF(x, 47), 5.5, 5.5);
        p.setBrush(QColor(0xff, 0xc8, 0x3a));
        p.drawEllipse(QPointF(146, 36), 2.2, 2.2);
    }
}

} // namespace klangor
