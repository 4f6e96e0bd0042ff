#pragma once

#include "programming/faketoolprocess.h"
#include "support/fakes.h"
#include "support/fakeservices.h"
#include "support/wavwriter.h"
#include "ui/mainwindow.h"

#include <gtest/gtest.h>
#include <memory>
#include <QAbstractButton>
#include <QLineEdit>
#include <QListWidget>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

namespace klangor::test {

// The main window over a temporary program folder, a folder of sounds to browse and fake
// services; the programming tool is a fake that ends when the test says so.
class WindowFixture : public ::testing::Test, public FakeServices
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_program.isValid() && m_sounds.isValid());
        for (const char *cv : {"cvdiesele", "cvdampf", "cvselectrix"})
            writeFile(programFile(QString::fromLatin1(cv) + ".dat"), QByteArray("; ") + cv);
        writeFile(soundFile("horn.wav"), makeWav({}));
        WavSpec stereo;
        stereo.channels = 2;
        writeFile(soundFile("stereo.wav"), makeWav(stereo));
        ASSERT_TRUE(QDir(m_sounds.path()).mkdir(QStringLiteral("Dampf")));
        writeFile(soundFile("Dampf/pfiff.wav"), makeWav({}));
        WindowServices services = fakeServices(m_program.path(), m_sounds.path());
        m_tools.script.finishAfterMs = std::nullopt; // the test ends each tool itself
        services.makeToolProcess = [this, make = m_tools.factory()] {
            auto tool = make();
            // Runs once the run waits for the tool; by default the tool ends well.
            QMetaObject::invokeMethod(
                m_window.get(), [this] { m_whileToolRuns ? m_whileToolRuns() : endTool(0); },
                Qt::QueuedConnection);
            return tool;
        };
        m_window = std::make_unique<Form1>(services);
        m_window->show();
    }

    // A control of the window by its object name.
    template <typename T = QWidget> T *control(const QString &name) const
    {
        T *found = m_window->findChild<T *>(name);
        EXPECT_NE(found, nullptr) << name.toStdString();
        return found;
    }
    void click(const QString &name) { control<QAbstractButton>(name)->click(); }
    void selectEvent(int event) { control<QListWidget>("List3")->setCurrentRow(event); }
    // Selects name in the file list, then double-clicks slot k.
    void assign(int k, const char *name)
    {
        auto *list = control<QListWidget>("List1");
        const auto items = list->findItems(QString::fromUtf8(name), Qt::MatchExactly);
        ASSERT_EQ(items.size(), 1) << name;
        list->setCurrentItem(items.first());
        QTest::mouseDClick(control(QStringLiteral("Slot%1").arg(k)), Qt::LeftButton);
    }
    QString slotText(int k) const
    {
        return control<QLineEdit>(QStringLiteral("Slot%1").arg(k))->text();
    }
    // The sound service's calls; what the stop call carries is the service's business.
    QStringList soundCalls() const
    {
        return QStringList(m_sound.calls).replaceInStrings(QRegularExpression("^stop.*"), "stop");
    }
    void endTool(int exitCode) { m_tools.latest->finish(exitCode); }

    QString programFile(const QString &name) const { return m_program.filePath(name); }
    QString soundFile(const char *name) const { return m_sounds.filePath(QString::fromUtf8(name)); }

    QTemporaryDir m_program;
    QTemporaryDir m_sounds;
    FakeToolFactory m_tools;
    std::function<void()> m_whileToolRuns;
    std::unique_ptr<Form1> m_window;
};

} // namespace klangor::test
