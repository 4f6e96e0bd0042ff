#pragma once

#include "support/fakes.h"
#include "ui/mainwindow.h"

namespace klangor::test {

// Every outside service of the window, faked; the test fills in the folders and the tool maker.
struct FakeServices
{
    FakeSoundService m_sound;
    RecordingMessages m_messages;
    RiffWaveAudioDevice m_wave;
    FakeProjectDialogs m_dialogs;
    FakeProgramLauncher m_launcher;
    WindowServices m_services{{}, {}, &m_sound, &m_messages, &m_wave, &m_dialogs, &m_launcher, {}};
};

} // namespace klangor::test
