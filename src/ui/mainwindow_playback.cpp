// Listening: the Loop buttons, the group playback and the file browser's double-click.
#include "playback/soundservice.h"
#include "soundset/soundtable.h"
#include "ui/mainwindow.h"
#include "ui/widgets.h"

#include <QDir>
#include <QListWidget>
#include <QPushButton>

namespace klangor {

namespace {
const QString LoopCaption = QStringLiteral("Loop");
const QString StopCaption = QStringLiteral("Stop");
} // namespace

void Form1::List1_DblClick()
{
    const QString entry = m_list1->selectedEntry();
    if (entry.isEmpty())
        return;
    m_services.sound->PlaySoundOnce(pathInFolder(m_browseFolder, entry));
}

void Form1::ResetLoopButtons()
{
    for (QPushButton *button : m_tests)
        button->setText(LoopCaption);
}

void Form1::Test_Click(int k)
{
    if (slot(k)->text().isEmpty())
        return;
    if (test(k)->text() == StopCaption) {
        m_services.sound->StopSound();
        test(k)->setText(LoopCaption);
        setMousePointer(MousePointer::Default);
        return;
    }
    setMousePointer(MousePointer::ArrowHourglass);
    ResetLoopButtons();
    test(k)->setText(StopCaption);
    const int number = SoundTable::soundNumber(m_list3->currentRow(), k);
    if (number >= 0)
        m_services.sound->PlaySoundLoop(programFile(workingFileName(number)));
}

void Form1::Loeschen_Click(int k)
{
    if (test(k)->text() == StopCaption) {
        m_services.sound->StopSound();
        test(k)->setText(LoopCaption);
        setMousePointer(MousePointer::Default);
    }
    const int number = SoundTable::soundNumber(m_list3->currentRow(), k);
    if (number >= 0)
        m_slotFileNames.set(number, QString());
    slot(k)->setText(QString());
}

void Form1::Command2_Click()
{
    setMousePointer(MousePointer::ArrowHourglass);
    const int event = m_list3->currentRow();
    const int first = SoundTable::firstSoundNumber(event);
    const int count = SoundTable::slotCount(event); // 0 with no event selected
    for (int n = first; n < first + count; ++n) {
        if (m_slotFileNames.isAssigned(n))
            m_services.sound->PlaySoundWait(workingFileName(n));
    }
    setMousePointer(MousePointer::Default);
}

} // namespace klangor
