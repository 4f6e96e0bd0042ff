#pragma once

#include "common/result.h"

#include <functional>
#include <QList>
#include <QString>
#include <QStringList>

namespace klangor {

// The rate the decoder plays at.
inline constexpr int DecoderSampleRate = 11025;

struct ConversionOptions
{
    bool eightBit = false; // 8-bit unsigned with triangular dither instead of 16-bit
    bool trim = false;     // a longer sound is cut to the decoder's 5.9 s with a short fade-out

    friend bool operator==(const ConversionOptions &, const ConversionOptions &) = default;
};

// Told the share done (0..1) now and then; returning false cancels the conversion.
using ConversionProgress = std::function<bool(double)>;

// The playing time of a sound file libsndfile reads, in seconds.
Result<double> soundFileSeconds(const QString &input);

// "<name>_decoder.wav": the name of the converted file of input.
QString convertedFileName(const QString &input);

// Where the converted file of input goes: beside it, or, when that folder cannot be written,
// into "umgewandelt" in the program folder.
QString conversionFolder(const QString &input, const QString &programFolder);

// Writes input as a mono 11025 Hz WAV file the decoder takes into outputFolder (created when
// missing) and returns its path. A file that is that already, with the chosen bits, is copied
// unchanged. The original is never changed.
Result<QString> convertForDecoder(const QString &input, const QString &outputFolder,
                                  const ConversionOptions &options,
                                  const ConversionProgress &progress = {});
// The same into the file output.
Result<QString> convertForDecoderTo(const QString &input, const QString &output,
                                    const ConversionOptions &options,
                                    const ConversionProgress &progress = {});

// Converts each input as above into outputFolder; the results are written together at the end
// (all or none). One result per input, in order: its output's path or why it has none.
QList<Result<QString>> convertAllForDecoder(const QStringList &inputs, const QString &outputFolder,
                                            const ConversionOptions &options);

} // namespace klangor
