#include "playback/playbackengine.h"

#include "playback/framesource.h"

#include <algorithm>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QMutex>
#include <QSemaphore>
#include <QtDebug>
#include <QThread>
#include <QTimer>
#include <QWaitCondition>
#include <vector>

namespace klangor {

namespace {

// Often enough that the output, holding about 100 ms, never runs short.
constexpr int feedIntervalMs = 5;
// A stream that got less than its buffer's worth after running dry waits for more before it
// starts; silence is added when nothing follows within this time.
constexpr qint64 settleBeforePaddingMs = 20;
// PlaySoundWait gives up this long after the sound should have been handed over.
constexpr qint64 waitMarginMs = 2000;
constexpr qint64 chunkFrames = 4096;

} // namespace

struct PlaybackEngine::Shared
{
    QMutex mutex;
    QWaitCondition progressed;
    FrameSource source;
    bool restart = false;  // drop what the output holds before feeding on
    bool chaining = false; // the last command was a playAndWait
    bool mute = false;
    bool quitting = false;
};

class PlaybackEngine::Worker final : public QObject
{
public:
    Worker(std::shared_ptr<Shared> shared, const OutputFactory &factory)
        : m_shared(std::move(shared)), m_output(factory ? factory() : nullptr),
          m_buffer(static_cast<std::size_t>(chunkFrames * 8))
    {
        m_timer.setTimerType(Qt::PreciseTimer);
        m_timer.setInterval(feedIntervalMs);
        connect(&m_timer, &QTimer::timeout, this, &Worker::pump);
        if (!m_output) {
            QMutexLocker lock(&m_shared->mutex);
            goMute();
        }
    }

    ~Worker() override
    {
        if (m_output)
            m_output->close();
    }

    void pump()
    {
        Shared &s = *m_shared;
        QMutexLocker lock(&s.mutex);
        if (s.mute || s.quitting) {
            m_timer.stop();
            return;
        }
        if (s.restart) {
            s.restart = false;
            m_output->close();
            m_sinceDry = 0;
        }
        if (s.source.isEmpty()) {
            padShortStart();
            if (m_output->isOpen() && m_sinceDry < m_output->capacityFrames() && m_sinceDry > 0)
                m_timer.start();
            else
                m_timer.stop();
            return;
        }
        if (!prepareOutput()) {
            if (m_output->hasFailed() || !m_output->isOpen()) {
                qWarning("Klangor: the sound output failed; playback stays silent.");
                goMute();
            }
            return;
        }
        feed();
        s.progressed.wakeAll();
        if (!m_timer.isActive())
            m_timer.start();
    }

private:
    void goMute()
    {
        m_shared->mute = true;
        m_shared->source.clear();
        m_shared->progressed.wakeAll();
        m_timer.stop();
        if (m_output)
            m_output->close();
    }

    qint64 queuedFrames()
    {
        return std::max<qint64>(0, m_output->capacityFrames() - m_output->framesFree());
    }

    // Opens the output for the next sound, or converts the sound to what is open.
    bool prepareOutput()
    {
        FrameSource &source = m_shared->source;
        const PcmFormat head = *source.headFormat();
        const bool formatDiffers = !m_output->isOpen() || m_output->format() != head;
        // A sound of another format that joins a stream still playing is converted; once the
        // stream has run dry it is reopened in the sound's own format.
        if (!m_output->isOpen() ||
            (formatDiffers && queuedFrames() == 0 && !source.headStarted())) {
            if (!m_output->open(m_output->bestFormat(head)))
                return false;
            m_sinceDry = 0;
        }
        if (m_output->hasFailed())
            return false;
        if (m_output->format() != source.headFormat())
            source.convertHead(m_output->format());
        return !source.isEmpty() && m_output->format() == source.headFormat();
    }

    void feed()
    {
        FrameSource &source = m_shared->source;
        const int channels = m_output->format().channels;
        qint64 free = m_output->framesFree();
        if (free > 0 && queuedFrames() == 0)
            m_sinceDry = 0;
        while (free > 0 && !source.isEmpty()) {
            const qint64 want = std::min<qint64>(free, chunkFrames * 8 / channels);
            const qint64 got = source.read(m_buffer.data(), want);
            if (got == 0)
                break;
            const qint64 written = m_output->write(m_buffer.data(), got);
            m_sinceDry += written;
            free -= got;
            // Never more than the output said it takes; a short write means it broke down.
            if (written < got)
                break;
        }
        m_lastWrite.start();
    }

    // The output starts a stream only once its buffer is full; a sound shorter than that
    // would never be heard, so silence fills the rest when nothing else comes.
    void padShortStart()
    {
        if (!m_output->isOpen() || m_sinceDry == 0 || m_sinceDry >= m_output->capacityFrames())
            return;
        if (m_lastWrite.isValid() && m_lastWrite.elapsed() < settleBeforePaddingMs)
            return;
        const int channels = m_output->format().channels;
        const qint64 frames = std::min({m_output->capacityFrames() - m_sinceDry,
                                        m_output->framesFree(), chunkFrames * 8 / channels});
        std::fill_n(m_buffer.begin(), frames * channels, qint16(0));
        m_output->write(m_buffer.data(), frames);
        m_sinceDry = m_output->capacityFrames();
    }

    std::shared_ptr<Shared> m_shared;
    std::unique_ptr<AudioOutput> m_output;
    std::vector<qint16> m_buffer;
    QTimer m_timer;
    QElapsedTimer m_lastWrite;
    qint64 m_sinceDry = 0; // frames written since the stream last ran dry
};

class PlaybackEngine::Thread final : public QThread
{
public:
    Thread(std::shared_ptr<Shared> shared, OutputFactory factory)
        : m_shared(std::move(shared)), m_factory(std::move(factory))
    {
        setObjectName(QStringLiteral("klangor-playback"));
    }

    Worker *startWorker()
    {
        start();
        m_ready.acquire();
        return m_worker;
    }

protected:
    void run() override
    {
        Worker worker(m_shared, m_factory);
        m_worker = &worker;
        m_ready.release();
        exec();
    }

private:
    std::shared_ptr<Shared> m_shared;
    OutputFactory m_factory;
    QSemaphore m_ready;
    Worker *m_worker = nullptr;
};

PlaybackEngine::PlaybackEngine(OutputFactory factory)
    : m_shared(std::make_shared<Shared>()),
      m_thread(std::make_unique<Thread>(m_shared, std::move(factory)))
{
    m_worker = m_thread->startWorker();
}

PlaybackEngine::~PlaybackEngine()
{
    {
        QMutexLocker lock(&m_shared->mutex);
        m_shared->quitting = true;
        m_shared->source.clear();
        m_shared->progressed.wakeAll();
    }
    m_thread->quit();
    if (!m_thread->wait(QDeadlineTimer(3000))) {
        // A sound server that stopped answering must not keep the program from ending.
        qWarning("Klangor: the playback thread does not end; leaving it behind.");
        (void)m_thread.release();
    }
}

void PlaybackEngine::play(std::shared_ptr<const PcmSound> sound, bool loop)
{
    {
        QMutexLocker lock(&m_shared->mutex);
        if (m_shared->mute)
            return;
        m_shared->source.play(std::move(sound), loop);
        m_shared->restart = true;
        m_shared->chaining = false;
    }
    wakeWorker();
}

void PlaybackEngine::playAndWait(std::shared_ptr<const PcmSound> sound)
{
    const qint64 duration = sound ? sound->durationMilliseconds() : 0;
    QMutexLocker lock(&m_shared->mutex);
    if (m_shared->mute)
        return;
    FrameSource::Ticket ticket = 0;
    if (m_shared->chaining) {
        ticket = m_shared->source.enqueue(std::move(sound));
    } else {
        ticket = m_shared->source.play(std::move(sound), false);
        m_shared->restart = true;
        m_shared->chaining = true;
    }
    lock.unlock();
    wakeWorker();
    lock.relock();

    const QDeadlineTimer deadline(duration + waitMarginMs);
    while (!m_shared->source.isHandedOver(ticket) && !m_shared->mute && !m_shared->quitting) {
        if (!m_shared->progressed.wait(&m_shared->mutex, deadline))
            break;
    }
}

void PlaybackEngine::stop()
{
    {
        QMutexLocker lock(&m_shared->mutex);
        if (m_shared->mute)
            return;
        m_shared->source.clear();
        m_shared->restart = true;
        m_shared->chaining = false;
    }
    wakeWorker();
}

bool PlaybackEngine::isAudible() const
{
    QMutexLocker lock(&m_shared->mutex);
    return !m_shared->mute;
}

void PlaybackEngine::wakeWorker()
{
    QMetaObject::invokeMethod(m_worker, &Worker::pump, Qt::QueuedConnection);
}

} // namespace klangor
