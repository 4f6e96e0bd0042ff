#pragma once

#include "common/result.h"
#include "platform/regularfile.h"

#include <memory>
#include <QString>
#include <QStringList>

namespace klangor {

// A sound file as libsndfile reads it (WAV, AIFF, FLAC, Ogg and more), through the bounded
// reader of regular files and by blocks: nothing needs the whole file in memory.
class SoundFile
{
public:
    static constexpr int MaxChannels = 64;
    static constexpr int MinSampleRate = 1000;
    static constexpr int MaxSampleRate = 768000;

    enum class Container
    {
        RiffWave,  // the plain RIFF/WAVE file
        OtherWave, // WAVE_FORMAT_EXTENSIBLE, RF64
        Other
    };
    enum class Samples
    {
        Unsigned8,
        Signed16,
        Floating, // 32- or 64-bit float
        Other
    };

    SoundFile();
    ~SoundFile();
    SoundFile(const SoundFile &) = delete;
    SoundFile &operator=(const SoundFile &) = delete;

    // Opens path; the message tells why the file cannot be read. Whether it holds a sound is
    // told by isSound() and withinLimits().
    Status open(const QString &path);
    // libsndfile reads it.
    bool isSound() const;
    // Its channels and rate lie within the limits above.
    bool withinLimits() const;

    int channels() const;
    int sampleRate() const;
    qint64 frames() const; // as the file states it
    Container container() const;
    Samples samples() const;

    // Reads up to count interleaved frames; returns how many were read, 0 at the end. Float
    // data comes at full scale 1.0 in every type: as 16-bit it is neither scaled nor clipped.
    qint64 read(double *out, qint64 count);
    qint64 read(float *out, qint64 count);
    qint64 read(qint16 *out, qint64 count);
    // A read failed, in the file or in its sound data.
    bool damaged() const;

    // The file itself, for what libsndfile does not tell (its chunks, its bytes). Reading it
    // does not disturb the reads above.
    RegularFile &file();

private:
    struct Open;
    std::unique_ptr<Open> m_open;
};

// The name extensions (lower case, without the dot) of the file types libsndfile here reads,
// with the other common spellings of each (aif, ogg, mp3 ...).
QStringList readableSoundExtensions();

} // namespace klangor
