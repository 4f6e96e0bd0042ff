#pragma once

#include "soundset/slotassignment.h"
#include "soundset/wavefolder.h"

#include <functional>
#include <QComboBox>
#include <QFrame>
#include <QGroupBox>
#include <QLineEdit>
#include <QListWidget>
#include <QMap>
#include <QWidget>

namespace klangor {

// A slot's text box: shows the file name, takes double-clicks and drops.
class SlotBox : public QLineEdit
{
    Q_OBJECT

public:
    explicit SlotBox(QWidget *parent = nullptr);

signals:
    void doubleClicked();
    void dropped(const klangor::DropPayload &payload);

protected:
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dropEvent(QDropEvent *event) override;
};

// The file list of the browser: its entries are dragged as plain text (the bare name). A sound
// that must be converted for the decoder is set apart; the tooltip shows every name whole.
class WaveFileListBox : public QListWidget
{
    Q_OBJECT

public:
    static constexpr int NeedsConversionRole = Qt::UserRole;

    explicit WaveFileListBox(QWidget *parent = nullptr);
    // Shows entries; the selected name and the scroll position stay where they still can.
    void setEntries(const QList<SoundFileEntry> &entries);
    // Sets apart WAV files that the decoder check refuses, each with why (name -> reason).
    void markUnfit(const QMap<QString, QString> &reasons);
    // The selected entry, "" when none is selected.
    QString selectedEntry() const;

protected:
    QStringList mimeTypes() const override;
    QMimeData *mimeData(const QList<QListWidgetItem *> &items) const override;
};

// A folder list as on the classic file browser: the open path from the root down, then the
// folders inside it. Double-click (or Enter) opens an entry.
class FolderListBox : public QListWidget
{
    Q_OBJECT

public:
    explicit FolderListBox(QWidget *parent = nullptr);

    const QString &path() const { return m_path; }
    // False, and nothing changes, when the folder cannot be read.
    bool setPath(const QString &path);

signals:
    void pathChanged();

private:
    void openItem(QListWidgetItem *item);
    QString m_path;
};

// The drive list: looks again for mounted media each time it opens, so that a stick put in
// after the start shows up.
class DriveListBox : public QComboBox
{
    Q_OBJECT

public:
    DriveListBox(std::function<QStringList()> drives, QWidget *parent = nullptr);
    // Lists the drives anew and returns them; the chosen one stays chosen while it is there.
    QStringList refresh();
    void showPopup() override;

private:
    std::function<QStringList()> m_drives;
};

// A frame as the classic dialogs draw it: an etched line whose top runs through the middle of
// the caption, which interrupts it. Controls placed below the caption clear the line.
class CaptionFrame : public QGroupBox
{
    Q_OBJECT

public:
    using QGroupBox::QGroupBox;
    // Where the caption is drawn, in the frame's own coordinates.
    QRect captionRect() const;
    // The height of the frame's top line.
    int lineTop() const { return captionRect().center().y(); }

protected:
    void paintEvent(QPaintEvent *event) override;
};

// A fixed image in a sunken box of 177 x 65 pixels.
class LogoPicture : public QFrame
{
    Q_OBJECT

public:
    enum class Motif
    {
        Waveform,
        Locomotive
    };
    explicit LogoPicture(Motif motif, QWidget *parent = nullptr);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    Motif m_motif;
};

} // namespace klangor
