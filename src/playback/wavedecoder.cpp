#include "playback/wavedecoder.h"

#include "common/riffchunks.h"
#include "platform/soundfile.h"
#include "playback/defaultsound.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace klangor {

namespace {

// Longer sounds are cut: a file of the browser could be an hour of studio audio, or claim
// eight channels at 384 kHz; none takes more memory than ten minutes of 48 kHz stereo.
constexpr qint64 maxSeconds = 600;
constexpr qint64 maxSamples = maxSeconds * 48000 * 2;
// What the output is asked to play at most.
constexpr int maxPlayedChannels = 8;
constexpr int maxPlayedRate = 384000;

// libsndfile quietly plays what is there when a file ends inside its data chunk; such a
// file is broken and gets the default sound instead.
bool dataChunkIsCut(QIODevice &file)
{
    if (!file.seek(0))
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

} // namespace

std::optional<PcmSound> decodeWaveFile(const QString &path)
{
    SoundFile file;
    // A FIFO or device among the browser's files would block the window on opening.
    if (path.isEmpty() || !file.open(path) || !file.withinLimits() ||
        file.container() == SoundFile::Container::Other || file.channels() > maxPlayedChannels ||
        file.sampleRate() > maxPlayedRate || file.frames() < 0 || dataChunkIsCut(file.file()))
        return std::nullopt;

    const qint64 frames = std::min<qint64>(
        {file.frames(), maxSeconds * file.sampleRate(), maxSamples / file.channels()});
    PcmSound sound;
    sound.format = {file.sampleRate(), file.channels()};
    sound.samples.resize(static_cast<std::size_t>(frames * file.channels()));
    if (file.samples() == SoundFile::Samples::Floating) {
        // Float data comes to a 16-bit buffer unscaled; full scale is 1.0 here, and anything
        // beyond it is clipped rather than wrapped around.
        std::vector<float> values(sound.samples.size());
        if (file.read(values.data(), frames) != frames)
            return std::nullopt;
        std::transform(values.begin(), values.end(), sound.samples.begin(), [](float v) {
            return static_cast<qint16>(std::lround(std::clamp(v, -1.0f, 1.0f) * 32767.0f));
        });
    } else if (file.read(sound.samples.data(), frames) != frames) {
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
