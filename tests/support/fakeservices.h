#pragma once

#include "support/fakes.h"
#include "ui/mainwindow.h"

namespace klangor::test {

// Every outside service of the window, faked, and their wiring into WindowServices.
struct FakeServices
{
    WindowServices fakeServices(const QString &programFolder, const QString &startFolder)
    {
        WindowServices services;
        services.programFolder = programFolder;
        services.startFolder = startFolder;
        services.sound = &m_sound;
        services.messages = &m_messages;
        services.waveDevice = &m_wave;
        services.dialogs = &m_dialogs;
        services.launcher = &m_launcher;
        return services;
    }

    FakeSoundService m_sound;
    RecordingMessages m_messages;
    FakeWaveAudioDevice m_wave; // measures real files unless told a length
    FakeProjectDialogs m_dialogs;
    FakeProgramLauncher m_launcher;
};

} // namespace klangor::test
