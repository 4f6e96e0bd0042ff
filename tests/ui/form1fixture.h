#pragma once

#include "support/fakes.h"
#include "support/fakeservices.h"
#include "support/wavwriter.h"
#include "ui/mainwindow.h"

#include <gtest/gtest.h>
#include <memory>
#include <QDir>
#include <QTemporaryDir>

namespace klangor::test {

// A main window over a temporary program folder and a folder of sounds to browse.
class Form1Fixture : public ::testing::Test, public FakeServices
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_program.isValid() && m_sounds.isValid());
        writeFile(programFile("cvdiesele.dat"), "; Diesel\r\n1=3\r\n");
        writeFile(programFile("cvdampf.dat"), "; Dampf\r\n1=4\r\n");
        writeFile(programFile("cvselectrix.dat"), "; Selectrix\r\n1=5\r\n");
        writeFile(soundFile("horn.wav"), makeWav({}));
        WavSpec bell;
        bell.bitsPerSample = 16;
        bell.dataBytes = 2000;
        writeFile(soundFile("Bell.WAV"), makeWav(bell));
        WavSpec stereo;
        stereo.channels = 2;
        writeFile(soundFile("stereo.wav"), makeWav(stereo));
        writeFile(soundFile("readme.txt"), "no sound");
    }

    Form1 &window()
    {
        if (!m_window) {
            Form1Services services = fakeServices(m_program.path(), m_sounds.path());
            m_window = std::make_unique<Form1>(services);
        }
        return *m_window;
    }

    QString programFile(const char *name) const
    {
        return m_program.filePath(QString::fromUtf8(name));
    }
    QString soundFile(const char *name) const { return m_sounds.filePath(QString::fromUtf8(name)); }

    // Selects an entry of the file list as a user click would.
    void selectInList1(const QString &name);

    QTemporaryDir m_program;
    QTemporaryDir m_sounds;
    std::unique_ptr<Form1> m_window;
};

} // namespace klangor::test
