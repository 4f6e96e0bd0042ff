#pragma once

#include "support/fakes.h"
#include "support/wavwriter.h"
#include "ui/mainwindow.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

namespace klangor::test {

// A main window over a temporary program folder and a folder of sounds to browse.
class Form1Fixture : public ::testing::Test
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
            Form1Services services;
            services.programFolder = m_program.path();
            services.startFolder = m_sounds.path();
            services.sound = &m_sound;
            services.messages = &m_messages;
            services.waveDevice = &m_device;
            services.dialogs = &m_dialogs;
            services.registry = &m_registry;
            services.launcher = &m_launcher;
            m_window = std::make_unique<Form1>(services);
        }
        return *m_window;
    }

    QString programFile(const char *name) const { return m_program.filePath(QString::fromUtf8(name)); }
    QString soundFile(const char *name) const { return m_sounds.filePath(QString::fromUtf8(name)); }

    // Selects an entry of the file list as a user click would.
    void selectInList1(const QString &name);

    QTemporaryDir m_program;
    QTemporaryDir m_sounds;
    FakeSoundService m_sound;
    RecordingMessages m_messages;
    FakeWaveAudioDevice m_device;
    FakeProjectDialogs m_dialogs;
    FakeRegistry m_registry;
    FakeProgramLauncher m_launcher;
    std::unique_ptr<Form1> m_window;
};

} // namespace klangor::test
