// Decoder programming: the run of the external tool, its cancel and the progress bar.
#include "platform/toolprocess.h"
#include "programming/programmingrun.h"
#include "ui/mainwindow.h"

#include <QLabel>
#include <QProgressBar>
#include <QRadioButton>
#include <QTimer>

namespace klangor {

void Form1::setupProgramming()
{
    // The run holds the state; the window shows it. Timer1 drives the ticks.
    m_run = std::make_unique<ProgrammingRun>(m_services.programFolder, m_services.makeToolProcess);
    connect(m_run.get(), &ProgrammingRun::statusTextChanged, this, [this](const QString &text) {
        m_label2->setText(text);
        m_label2->repaint(); // visible before the wait begins
    });
    connect(m_run.get(), &ProgrammingRun::progressValueChanged, m_progressBar1,
            &QProgressBar::setValue);
    connect(m_run.get(), &ProgrammingRun::progressVisibleChanged, m_progressBar1,
            &QProgressBar::setVisible);
    connect(m_run.get(), &ProgrammingRun::timerActiveChanged, this, [this](bool active) {
        if (active)
            m_timer1->start();
        else
            m_timer1->stop();
    });
}

void Form1::Command1_Click()
{
    // The options are read when the tool starts, after the sound list has been written.
    m_run->run(m_slotFileNames, m_memoryMBit,
               [this] { return toolCommand(m_selectrix->isChecked(), m_comPort); });
}

void Form1::Abbrechen_Click()
{
    m_run->cancel();
}

void Form1::Timer1_Timer()
{
    m_run->tick();
}

} // namespace klangor
