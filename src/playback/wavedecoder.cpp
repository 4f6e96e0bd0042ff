#include "playback/wavedecoder.h"

#include "common/riffchunks.h"
#include "playback/defaultsound.h"

#include <algorithm>
#include <cmath>
#include <QFile>
#include <QFileInfo>
#include <sndfile.h>
#include <vector>

namespace klangor {

namespace {

// Longer sounds are cut: a file of the browser could be an hour of studio audio, or claim
// eight channels at 384 kHz; none takes more memory than ten minutes of 48 kHz stereo.
constexpr qint64 maxSeconds = 600;
constexpr qint64 maxSamples = maxSeconds * 48000 * 2;

// libsndfile quietly plays what is there when a file ends inside its data chunk; such a
// file is broken and gets the default sound instead.
bool dataChunkIsCut(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return true;
    const QByteArray header = file.read(12);
    if (header.size() < 12 || !header.startsWith("RIFF") || header.mid(8, 4) != "WAVE")
        return false; // RF64 and friends: left to libsndfile
    RiffChunks chunks(file);
    while (const auto chunk = chunks.next()) {
        if (chunk->id == "data")
            // 0 and 0xFFFFFFFF are what streaming writers leave behind: no claim made.
            return chunk->size != 0 && chunk->size != 0xFFFFFFFFu && chunk->cut;
    }
    return true;
}

bool isWaveContainer(int format)
{
    const int major = format & SF_FORMAT_TYPEMASK;
    return major == SF_FORMAT_WAV || major == SF_FORMAT_WAVEX || major == SF_FORMAT_RF64;
}

} // namespace

std::optional<PcmSound> decodeWaveFile(const QString &path)
{
    // A FIFO or device among the browser's files would block the window on opening.
    if (path.isEmpty() || !QFileInfo(path).isFile() || dataChunkIsCut(path))
        return std::nullopt;

    SF_INFO info{};
    SNDFILE *file = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    if (!file)
        return std::nullopt;
    struct Closer
    {
        SNDFILE *file;
        ~Closer() { sf_close(file); }
    } closer{file};

    if (!isWaveContainer(info.format) || info.channels < 1 || info.channels > 8 ||
        info.samplerate < 1000 || info.samplerate > 384000 || info.frames < 0)
        return std::nullopt;

    const qint64 frames =
        std::min<qint64>({info.frames, maxSeconds * info.samplerate, maxSamples / info.channels});
    PcmSound sound;
    sound.format = {info.samplerate, info.channels};
    sound.samples.resize(static_cast<std::size_t>(frames * info.channels));
    const int subtype = info.format & SF_FORMAT_SUBMASK;
    if (subtype == SF_FORMAT_FLOAT || subtype == SF_FORMAT_DOUBLE) {
        // libsndfile hands float data to a short buffer unscaled; full scale is 1.0 here, and
        // anything beyond it is clipped rather than wrapped around.
        std::vector<float> values(sound.samples.size());
        if (sf_readf_float(file, values.data(), frames) != frames)
            return std::nullopt;
        std::transform(values.begin(), values.end(), sound.samples.begin(), [](float v) {
            return static_cast<qint16>(std::lround(std::clamp(v, -1.0f, 1.0f) * 32767.0f));
        });
    } else if (sf_readf_short(file, sound.samples.data(), frames) != frames) {
        return std::nullopt;
    }
    return sound;
}

std::shared_ptr<const PcmSound> loadSoundOrDefault(const QString &path)
{
    if (auto sound = decodeWaveFile(path))
        return std::make_shared<const PcmSound>(std::move(*sound));
    return std::make_shared<const PcmSound>(defaultSound());
}

} // namespace klangor
