#pragma once

#include "common/result.h"

#include <functional>
#include <QList>
#include <QString>
#include <QStringList>
#include <vector>

namespace klangor {

// The rate the decoder plays at.
inline constexpr int DecoderSampleRate = 11025;

struct ConversionOptions
{
    bool eightBit = false;  // 8-bit unsigned with triangular dither instead of 16-bit
    bool trim = false;      // a longer sound is cut to the decoder's 5.9 s with a short fade-out
    bool normalize = false; // the result's peak is brought to -1 dBFS
    bool overwrite = false; // an existing output is replaced instead of refused

    friend bool operator==(const ConversionOptions &, const ConversionOptions &) = default;
};

// Told the share done (0..1) now and then; returning false cancels the conversion.
using ConversionProgress = std::function<bool(double)>;

// The playing time of a sound file libsndfile reads, in seconds.
Result<double> soundFileSeconds(const QString &input);

// The peak a normalised sound is brought to, in dBFS.
inline constexpr double NormalizedPeakDbfs = -1.0;

// The levels of a sound file as it is, all its channels.
struct SoundLevels
{
    double peakDbfs = 0;     // the largest sample; -inf for silence
    double loudnessLufs = 0; // integrated loudness; for a sound under 0.5 s over all of it;
                             // -inf when nothing is loud enough to count
    qint64 framesRead = 0;
    qint64 framesPromised = 0; // as the header states; -1 when it does not tell
    int sampleRate = 0;

    // A cut-off or damaged file: fewer frames could be read than its header promises.
    bool cutShort() const { return framesPromised >= 0 && framesRead < framesPromised; }
    double secondsRead() const { return sampleRate > 0 ? double(framesRead) / sampleRate : 0; }
};

// Reads the whole file by blocks and measures it; progress as for the conversion.
Result<SoundLevels> measureSoundLevels(const QString &input,
                                       const ConversionProgress &progress = {});

// "Nur 1.720 von 45.621 Frames (0,04 von 1,03 s) sind lesbar.": what of a cut-off file is left.
QString readablePartText(const SoundLevels &levels);
// A level for people: "-23,0" (German decimal comma), "-∞" for none.
QString levelText(double db);

// A converted file and what the conversion had to do beyond the plain task (a level lowered
// so that nothing clips, a cut-off input of which only a part was readable). The notes are
// for the user to see, never to be dropped.
struct ConvertedSound
{
    QString path;
    QStringList notes;
};

// "<name>_decoder.wav": the name of the converted file of input.
QString convertedFileName(const QString &input);

// Where the converted file of input goes: beside it, or, when that folder cannot be written,
// into "umgewandelt" in the program folder.
QString conversionFolder(const QString &input, const QString &programFolder);

// Why output may not be written for these inputs: it is one of them (never written over), or
// it exists already and overwrite is not set.
Status conversionOutputAllowed(const QString &output, const QStringList &inputs, bool overwrite);

// Writes input as a mono 11025 Hz WAV file the decoder takes into outputFolder (created when
// missing) and returns its path. A file that is that already, with the chosen bits, is copied
// unchanged. The original is never changed; an existing output only with options.overwrite.
// A result longer than 5.9 s is refused unless options.trim cuts it.
Result<ConvertedSound> convertForDecoder(const QString &input, const QString &outputFolder,
                                         const ConversionOptions &options,
                                         const ConversionProgress &progress = {});
// The same into the file output.
Result<ConvertedSound> convertForDecoderTo(const QString &input, const QString &output,
                                           const ConversionOptions &options,
                                           const ConversionProgress &progress = {});

// Converts each input as above into outputFolder; the results are written together at the end
// (all or none). One result per input, in order: its output or why it has none. When any
// output is not allowed, nothing is converted.
QList<Result<ConvertedSound>> convertAllForDecoder(const QStringList &inputs,
                                                   const QString &outputFolder,
                                                   const ConversionOptions &options);

// A mono WAV file at the decoder's rate (or another): 16-bit, or 8-bit unsigned with triangular
// dither. Samples are full scale at 1.0; what lies beyond is clipped.
QByteArray decoderWaveBytes(const std::vector<double> &samples, bool eightBit,
                            int sampleRate = DecoderSampleRate);

} // namespace klangor
