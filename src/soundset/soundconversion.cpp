#include "soundset/soundconversion.h"

#include "common/wavewriter.h"
#include "platform/filebatch.h"
#include "platform/programfiles.h"
#include "platform/programfolder.h"
#include "platform/regularfile.h"
#include "platform/safefile.h"
#include "platform/soundfile.h"
#include "platform/systemreason.h"
#include "platform/waveaudiodevice.h"
#include "soundset/wavecheck.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <map>
#include <memory>
#include <numeric>
#include <QDir>
#include <QFileInfo>
#include <random>
#include <soxr.h>
#include <vector>

namespace klangor {

namespace {

// A file that is right already is copied whole; one that has passed the check is a few hundred
// kilobytes, and anything larger is converted instead.
constexpr qint64 MaxCopiedBytes = qint64(64) << 20;
// Longer sounds are converted only when cut to the decoder's length.
constexpr qint64 MaxUntrimmedSeconds = 600;
constexpr qint64 BlockFrames = 8192;
// 5.9 s at the decoder's rate, rounded down so that the cut sound passes the check.
constexpr std::size_t TrimFrames = std::size_t(MaxWaveSeconds * DecoderSampleRate);
constexpr std::size_t FadeFrames = DecoderSampleRate / 100; // 10 ms
// The same sound converts to the same bytes every time.
constexpr unsigned DitherSeed = 11025;

QString shown(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

UserMessage refused(const QString &input, const QString &reason)
{
    return {QStringLiteral("Die Datei „%1“ kann nicht umgewandelt werden: %2")
                .arg(shown(input), reason)};
}

Result<std::unique_ptr<SoundFile>> openSound(const QString &input)
{
    auto sound = std::make_unique<SoundFile>();
    if (const Status opened = sound->open(input); !opened)
        return opened.error();
    if (!sound->isSound())
        return refused(input, QStringLiteral("Sie ist keine lesbare Tondatei."));
    if (!sound->withinLimits())
        return refused(input, QStringLiteral("Ton mit %1 und %2 Hz wird nicht unterstützt.")
                                  .arg(sound->channels() == 1
                                           ? QStringLiteral("einem Kanal")
                                           : QStringLiteral("%1 Kanälen").arg(sound->channels()))
                                  .arg(sound->sampleRate()));
    if (sound->frames() <= 0)
        return refused(input, QStringLiteral("Sie enthält keinen Ton."));
    return sound;
}

// A PCM WAV file the decoder check passes, mono at its rate and with the asked bits: its bytes,
// to be copied unchanged.
std::optional<QByteArray> decoderReadyBytes(SoundFile &sound, bool eightBit)
{
    const auto wanted = eightBit ? SoundFile::Samples::Unsigned8 : SoundFile::Samples::Signed16;
    RegularFile &file = sound.file();
    if (sound.container() != SoundFile::Container::RiffWave || sound.samples() != wanted ||
        sound.channels() != 1 || sound.sampleRate() != DecoderSampleRate ||
        file.size() > MaxCopiedBytes || !file.seek(0))
        return std::nullopt;
    // A header's byte rate can make the check measure a long sound short; libsndfile counts
    // the frames themselves, and a file too long for the decoder is converted (and cut).
    const std::optional<qint64> ms = measureRiffWaveMilliseconds(file);
    const double seconds = std::max(ms ? static_cast<double>(*ms) / 1000.0 : 0.0,
                                    static_cast<double>(sound.frames()) / DecoderSampleRate);
    if (!file.seek(0))
        return std::nullopt;
    QByteArray bytes = file.read(file.size());
    if (bytes.size() != file.size() || !judgeWaveHeader(bytes.left(36), seconds))
        return std::nullopt;
    return bytes;
}

struct SoxrDeleter
{
    void operator()(soxr_t resampler) const { soxr_delete(resampler); }
};

// One resampler per input rate, kept for the next sound: designing the filter takes as long
// as converting a short sound.
class ResamplerCache
{
public:
    // Ready for a fresh sound; null when libsoxr cannot set one up.
    soxr_t forRate(int rate)
    {
        auto &resampler = m_byRate[rate];
        if (resampler) {
            soxr_clear(resampler.get());
            return resampler.get();
        }
        soxr_error_t error = nullptr;
        const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
        const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
        resampler.reset(soxr_create(rate, DecoderSampleRate, 1, &error, &io, &quality, nullptr));
        if (error)
            resampler.reset();
        return resampler.get();
    }

private:
    std::map<int, std::unique_ptr<std::remove_pointer_t<soxr_t>, SoxrDeleter>> m_byRate;
};

// Pushes count samples through the resampler, or with in null the end of the input, and
// appends what comes out.
bool resample(soxr_t resampler, const double *in, std::size_t count, std::vector<double> &out)
{
    std::vector<double> buffer(16384);
    for (;;) {
        std::size_t used = 0, made = 0;
        if (soxr_process(resampler, in, count, &used, buffer.data(), buffer.size(), &made))
            return false;
        out.insert(out.end(), buffer.begin(), buffer.begin() + static_cast<qsizetype>(made));
        if (!in && made == 0)
            return true;
        if (in) {
            in += used;
            count -= used;
            if (count == 0 || (used == 0 && made == 0))
                return true;
        }
    }
}

// The sound mixed down to mono at the decoder's rate, full scale at 1.0.
Result<std::vector<double>> decoderSamples(const QString &input, SoundFile &sound,
                                           const ConversionOptions &options,
                                           ResamplerCache &resamplers,
                                           const ConversionProgress &progress)
{
    const int channels = sound.channels();
    const soxr_t resampler = resamplers.forRate(sound.sampleRate());
    if (!resampler)
        return refused(input, QStringLiteral("Der Umrechner ließ sich nicht einrichten."));

    const std::size_t limit =
        options.trim ? TrimFrames : std::size_t(MaxUntrimmedSeconds * DecoderSampleRate);
    std::vector<double> frames(static_cast<std::size_t>(BlockFrames * channels));
    std::vector<double> mono(static_cast<std::size_t>(BlockFrames));
    std::vector<double> out;
    qint64 done = 0;
    bool ended = false;
    while (out.size() <= limit) {
        const qint64 got = sound.read(frames.data(), BlockFrames);
        ended = got <= 0;
        if (ended)
            break;
        for (qint64 f = 0; f < got; ++f) {
            const double *frame = frames.data() + f * channels;
            const double mixed = std::accumulate(frame, frame + channels, 0.0) / channels;
            // A broken float sample would smear over the filter's whole length.
            mono[static_cast<std::size_t>(f)] = std::isfinite(mixed) ? mixed : 0.0;
        }
        if (!resample(resampler, mono.data(), static_cast<std::size_t>(got), out))
            return refused(input, QStringLiteral("Der Umrechner meldet einen Fehler."));
        done += got;
        if (progress && !progress(std::min(1.0, static_cast<double>(done) / sound.frames())))
            return UserMessage(
                QStringLiteral("Die Umwandlung von „%1“ wurde abgebrochen.").arg(shown(input)));
    }
    if (sound.damaged())
        return refused(input, QStringLiteral("Ihre Tondaten sind beschädigt."));
    if (ended && !resample(resampler, nullptr, 0, out))
        return refused(input, QStringLiteral("Der Umrechner meldet einen Fehler."));
    if (out.size() > limit && !options.trim)
        return refused(input, QStringLiteral("Der Sound ist länger als %1 Minuten; so lang "
                                             "lässt er sich nur gekürzt umwandeln.")
                                  .arg(MaxUntrimmedSeconds / 60));
    if (out.empty())
        return refused(input, QStringLiteral("Sie enthält keinen Ton."));
    if (out.size() > TrimFrames && options.trim) {
        out.resize(TrimFrames);
        // A cut in mid-sound clicks; the last 10 ms fall to silence.
        for (std::size_t i = 0; i < FadeFrames; ++i)
            out[TrimFrames - FadeFrames + i] *=
                static_cast<double>(FadeFrames - 1 - i) / (FadeFrames - 1);
    }
    return out;
}

// A WAV file of the samples: 16-bit signed, or 8-bit unsigned with triangular dither, which
// turns the coarse steps into a steady faint hiss.
QByteArray waveImage(const std::vector<double> &samples, bool eightBit)
{
    const WaveFormat format{1, DecoderSampleRate, eightBit ? 8 : 16};
    if (!eightBit)
        return waveFileBytes(format, waveSampleBytes(format, samples));
    QByteArray data(static_cast<qsizetype>(samples.size()), '\0');
    std::minstd_rand noise(DitherSeed);
    std::uniform_real_distribution<double> half(-0.5, 0.5);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double dithered = samples[i] * 128.0 + half(noise) + half(noise);
        data[static_cast<qsizetype>(i)] =
            static_cast<char>(std::clamp(std::lround(dithered), -128L, 127L) + 128);
    }
    return waveFileBytes(format, data);
}

// The converted file's bytes; a file that is right already comes back as it is.
Result<QByteArray> decoderImage(const QString &input, const ConversionOptions &options,
                                ResamplerCache &resamplers, const ConversionProgress &progress)
{
    const Result<std::unique_ptr<SoundFile>> opened = openSound(input);
    if (!opened)
        return opened.error();
    SoundFile &sound = *opened.value();
    if (std::optional<QByteArray> ready = decoderReadyBytes(sound, options.eightBit))
        return *std::move(ready);
    const Result<std::vector<double>> samples =
        decoderSamples(input, sound, options, resamplers, progress);
    if (!samples)
        return samples.error();
    return waveImage(samples.value(), options.eightBit);
}

Status makeFolder(const QString &folder)
{
    if (QDir().mkpath(folder))
        return {};
    return UserMessage(QStringLiteral("Der Ordner „%1“ kann nicht angelegt werden: %2")
                           .arg(shown(folder), systemReason(errno)));
}

} // namespace

Result<double> soundFileSeconds(const QString &input)
{
    const Result<std::unique_ptr<SoundFile>> sound = openSound(input);
    if (!sound)
        return sound.error();
    return static_cast<double>(sound.value()->frames()) / sound.value()->sampleRate();
}

QString convertedFileName(const QString &input)
{
    return QFileInfo(input).completeBaseName() + QStringLiteral("_decoder.wav");
}

QString conversionFolder(const QString &input, const QString &programFolder)
{
    const QString beside = QFileInfo(input).absolutePath();
    return isWritableFolder(beside) ? beside : QDir(programFolder).filePath(ConvertedFolderName);
}

Result<QString> convertForDecoder(const QString &input, const QString &outputFolder,
                                  const ConversionOptions &options,
                                  const ConversionProgress &progress)
{
    return convertForDecoderTo(input, QDir(outputFolder).filePath(convertedFileName(input)),
                               options, progress);
}

Result<QString> convertForDecoderTo(const QString &input, const QString &output,
                                    const ConversionOptions &options,
                                    const ConversionProgress &progress)
{
    ResamplerCache resamplers;
    const Result<QByteArray> image = decoderImage(input, options, resamplers, progress);
    if (!image)
        return image.error();
    if (const Status made = makeFolder(QFileInfo(output).absolutePath()); !made)
        return made.error();
    if (const Status written = writeFileSafely(output, image.value()); !written)
        return written.error();
    return output;
}

QList<Result<QString>> convertAllForDecoder(const QStringList &inputs, const QString &outputFolder,
                                            const ConversionOptions &options)
{
    QList<Result<QString>> results;
    if (const Status made = makeFolder(outputFolder); !made) {
        for (qsizetype i = 0; i < inputs.size(); ++i)
            results.append(made.error());
        return results;
    }
    ResamplerCache resamplers;
    FileBatch batch(outputFolder);
    QStringList names;
    for (const QString &input : inputs) {
        const QString name = convertedFileName(input);
        Result<QByteArray> image =
            names.contains(name)
                ? refused(input,
                          QStringLiteral("„%1“ entstünde schon aus einer anderen Datei.").arg(name))
                : decoderImage(input, options, resamplers, {});
        if (!image) {
            results.append(image.error());
            continue;
        }
        if (const Status staged = batch.stage({{name, image.value()}}); !staged) {
            results.append(staged.error());
            continue;
        }
        names.append(name);
        results.append(QDir(outputFolder).filePath(name));
    }
    // All results reach the folder together, or none.
    if (const Status committed = names.isEmpty() ? Status() : batch.commit(); !committed) {
        for (Result<QString> &result : results) {
            if (result)
                result = committed.error();
        }
    }
    return results;
}

} // namespace klangor
