#include "common/namelist.h"
#include "hostileinputs.h"
#include "playback/wavedecoder.h"
#include "soundset/wavecheck.h"
#include "support/fakeservices.h"
#include "support/sanitizer.h"
#include "ui/qtmessagepresenter.h"

#include <gtest/gtest.h>
#include <QElapsedTimer>
#include <QLabel>
#include <QMessageBox>
#include <QScreen>
#include <QTemporaryDir>

namespace klangor::test {
namespace {

// The process's peak resident memory since the last reset, in MB.
qint64 peakResidentMb()
{
    QFile status("/proc/self/status");
    status.open(QIODevice::ReadOnly);
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong() / 1024;
    }
    return -1;
}

void resetPeakResident()
{
    QFile clear("/proc/self/clear_refs");
    clear.open(QIODevice::WriteOnly);
    clear.write("5");
}

// The window over a sound folder full of hostile files, with real message boxes that a timer
// reads and closes.
class HostileInputs : public ::testing::Test, public FakeServices
{
protected:
    struct Shown
    {
        QString text;
        Qt::TextFormat format;
        QSize size;
    };

    void SetUp() override
    {
        m_inputs = writeHostileInputs(m_files.path());
        m_services.programFolder = m_program.path();
        m_services.startFolder = m_files.path();
        m_services.messages = &m_presenter;
        m_window = std::make_unique<Form1>(m_services);
        m_window->show();
        m_presenter.setParent(m_window.get());
        QObject::connect(&m_closer, &QTimer::timeout, [this] {
            if (auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget())) {
                const auto *label = box->findChild<QLabel *>("qt_msgbox_label");
                m_shown.append({box->text(), label->textFormat(), box->size()});
                box->done(QMessageBox::Ok);
            }
        });
        m_closer.start(5);
    }

    QTemporaryDir m_program, m_files;
    QList<HostileInput> m_inputs;
    QtMessagePresenter m_presenter;
    QTimer m_closer;
    QList<Shown> m_shown;
};

TEST_F(HostileInputs, AreRefusedOrDoneWithinASecondShowingAtMostTenNamesAsPlainText)
{
    ASSERT_FALSE(m_inputs.isEmpty());
    const QSize screen = QGuiApplication::primaryScreen()->availableSize();
    for (const HostileInput &input : m_inputs) {
        SCOPED_TRACE(input.name.toStdString());
        m_shown.clear();
        resetPeakResident();
        QElapsedTimer clock;
        clock.start();
        if (input.kind == HostileInput::Kind::Project) {
            m_window->openProject(input.path);
            click("Test1"); // Loop, where the project gave a sound
            loadSoundOrDefault(m_program.filePath("0.wav"));
        } else {
            assign(1, QFileInfo(input.path).fileName());
            loadSoundOrDefault(input.path);
            WaveChecker checker(m_wave);
            (void)checker.CheckWaveFile(input.path);
        }
        EXPECT_LT(clock.elapsed(), 1000);
        EXPECT_TRUE(!test::MeasuresMemory || peakResidentMb() < 300) << peakResidentMb();
        for (const Shown &shown : m_shown) {
            EXPECT_EQ(shown.format, Qt::PlainText);
            EXPECT_LE(shown.size.width(), screen.width());
            EXPECT_LE(shown.size.height(), screen.height());
            EXPECT_LE(shown.text.count(".txt"), MaxListedNames) << shown.text.toStdString();
        }
        if (input.path.endsWith("names-259.spj")) {
            ASSERT_EQ(m_shown.size(), 1);
            EXPECT_TRUE(m_shown[0].text.endsWith("\nund 78 weitere"));
        }
    }
}

} // namespace
} // namespace klangor::test
