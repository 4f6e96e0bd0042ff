#include "soundfixtures.h"

#include <QFile>
#include <sndfile.h>

namespace klangor::test {

namespace {

// libsndfile has one write call per sample type; everything around it is the same.
template <typename Sample, typename Write>
bool writeWith(const QString &path, int format, int sampleRate, int channels,
               const std::vector<Sample> &samples, Write write)
{
    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = channels;
    info.format = format;
    SNDFILE *file = sf_open(QFile::encodeName(path).constData(), SFM_WRITE, &info);
    if (!file)
        return false;
    const auto frames = static_cast<sf_count_t>(samples.size()) / channels;
    const bool ok = write(file, samples.data(), frames) == frames;
    return sf_close(file) == 0 && ok;
}

} // namespace

bool writeSoundFile(const QString &path, int format, int sampleRate, int channels,
                    const std::vector<double> &samples)
{
    return writeWith(path, format, sampleRate, channels, samples, sf_writef_double);
}

bool writeSoundFile16(const QString &path, int format, int sampleRate, int channels,
                      const std::vector<qint16> &samples)
{
    return writeWith(path, format, sampleRate, channels, samples, sf_writef_short);
}

std::shared_ptr<const PcmSound> rampSound(qint64 frames, qint16 start, int sampleRate, int channels)
{
    auto sound = std::make_shared<PcmSound>();
    sound->format = {sampleRate, channels};
    for (qint64 i = 0; i < frames; ++i)
        for (int c = 0; c < channels; ++c)
            sound->samples.push_back(static_cast<qint16>(start + i * channels + c));
    return sound;
}

} // namespace klangor::test
