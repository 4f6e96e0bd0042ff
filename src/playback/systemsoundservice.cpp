#include "playback/systemsoundservice.h"

#include "playback/pipewireoutput.h"
#include "playback/pulseaudiooutput.h"
#include "playback/wavedecoder.h"

#include <QDir>
#include <QFileInfo>

namespace klangor {

namespace {

// A working file is far smaller and is read at once; a file of the browser may be ten minutes
// of studio audio, which takes longer to read than a window may stand still.
constexpr qint64 ReadAtOnceBytes = 4 << 20;

// PipeWire's own protocol when its server answers and has a sink: its streams are filled in the
// cycle that plays them, where its PulseAudio server only guesses from a queue.
// KLANGOR_SOUND_OUTPUT=pulse keeps to the PulseAudio protocol (to compare the two, or where the
// native one misbehaves).
std::unique_ptr<AudioOutput> systemAudioOutput()
{
    if (qEnvironmentVariable("KLANGOR_SOUND_OUTPUT") != QLatin1String("pulse")) {
        auto pipewire = std::make_unique<PipeWireOutput>();
        if (pipewire->playsSound())
            return pipewire;
    }
    return std::make_unique<PulseAudioOutput>();
}

} // namespace

SystemSoundService::SystemSoundService(QString programFolder, std::unique_ptr<AudioOutput> output,
                                       std::function<void(const UserMessage &)> tellUser)
    : m_programFolder(std::move(programFolder)), m_engine(std::move(output)),
      m_tellUser(std::move(tellUser))
{
    m_readers.setMaxThreadCount(1);
    m_engine.onAudibleChanged([this](bool audible) {
        if (audible)
            m_toldMute = false;
        else if (!m_meantUntil.hasExpired())
            tellIfMute(); // lost while a sound was meant to be heard
    });
}

SystemSoundService::~SystemSoundService()
{
    m_readers.clear();
    m_readers.waitForDone(); // a running read still posts to m_context
}

void SystemSoundService::played(QDeadlineTimer meantUntil)
{
    m_meantUntil = meantUntil;
    tellIfMute();
}

namespace {

QDeadlineTimer heardUntil(const PcmSound &sound, bool loop)
{
    return loop ? QDeadlineTimer(QDeadlineTimer::Forever)
                : QDeadlineTimer(sound.durationMilliseconds());
}

} // namespace

void SystemSoundService::tellIfMute()
{
    // Once per loss: a user listening to a group would otherwise get a box per sound.
    if (!m_engine.isAudible() && m_tellUser && !std::exchange(m_toldMute, true))
        m_tellUser({QStringLiteral("Es ist keine Tonausgabe verfügbar (kein Soundsystem oder "
                                   "kein Ausgabegerät). Die Sounds bleiben stumm, bis "
                                   "wieder eine Tonausgabe erreichbar ist."),
                    QStringLiteral("Klangor")});
}

void SystemSoundService::playFile(const QString &path, bool loop)
{
    const quint64 asked = ++m_asked;
    if (QFileInfo(path).size() <= ReadAtOnceBytes) {
        std::shared_ptr<const PcmSound> sound = loadSoundOrDefault(path);
        m_engine.play(sound, loop);
        played(heardUntil(*sound, loop));
        return;
    }
    m_readers.clear(); // a read not begun is no longer wanted
    m_readers.start([this, path, loop, asked] {
        std::shared_ptr<const PcmSound> sound = loadSoundOrDefault(path);
        QMetaObject::invokeMethod(
            &m_context,
            [this, sound = std::move(sound), loop, asked] {
                if (asked != m_asked)
                    return; // another sound or a stop came first
                m_engine.play(sound, loop);
                played(heardUntil(*sound, loop));
            },
            Qt::QueuedConnection);
    });
}

void SystemSoundService::PlaySoundOnce(const QString &path)
{
    playFile(path, false);
}

void SystemSoundService::PlaySoundLoop(const QString &path)
{
    playFile(path, true);
}

void SystemSoundService::PlaySoundWait(const QString &bareName)
{
    ++m_asked;
    std::shared_ptr<const PcmSound> sound =
        loadSoundOrDefault(QDir(m_programFolder).filePath(bareName));
    m_engine.playInGroup(sound);
    // Behind the group's sounds still to be heard.
    played(QDeadlineTimer(std::max<qint64>(m_meantUntil.remainingTime(), 0) +
                          sound->durationMilliseconds()));
}

void SystemSoundService::WhenSoundsHeard(std::function<void()> heard)
{
    m_engine.whenHeard(std::move(heard));
}

void SystemSoundService::StopSound()
{
    ++m_asked;
    m_meantUntil = QDeadlineTimer();
    m_engine.stop();
}

std::unique_ptr<SoundService>
createSystemSoundService(const QString &programFolder,
                         std::function<void(const UserMessage &)> tellUser)
{
    return std::make_unique<SystemSoundService>(programFolder, systemAudioOutput(),
                                                std::move(tellUser));
}

} // namespace klangor
