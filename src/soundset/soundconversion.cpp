#include "soundset/soundconversion.h"

#include "common/riffchunks.h"
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
#include <array>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <ebur128.h>
#include <limits>
#include <map>
#include <memory>
#include <numbers>
#include <numeric>
#include <QDir>
#include <QFileInfo>
#include <QLocale>
#include <QtEndian>
#include <random>
#include <soxr.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace klangor {

namespace {

// A file that is right already is copied whole; one that has passed the check is a few hundred
// kilobytes, and anything larger is converted instead, by blocks.
constexpr qint64 MaxCopiedBytes = qint64(4) << 20;
constexpr qint64 BlockFrames = 8192;
// Shorter sounds are measured whole: the gated loudness has only 0.4 s blocks for them.
constexpr unsigned long ShortSoundMs = 500;
// 5.9 s at the decoder's rate, rounded down so that the cut sound passes the check.
constexpr std::size_t TrimFrames = std::size_t(MaxWaveSeconds * DecoderSampleRate);
// The longest result the check passes uncut: it measures whole milliseconds, rounded down.
constexpr std::size_t MaxUncutFrames =
    (std::size_t(MaxWaveSeconds * 1000 + 1) * DecoderSampleRate - 1) / 1000;
constexpr std::size_t FadeFrames = DecoderSampleRate / 100; // 10 ms
// The same sound converts to the same bytes every time.
constexpr unsigned DitherSeed = 11025;

QString shown(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

enum class Task
{
    Convert,
    Measure
};

UserMessage refused(const QString &input, const QString &reason, Task task = Task::Convert)
{
    return {(task == Task::Convert
                 ? QStringLiteral("Die Datei „%1“ kann nicht umgewandelt werden: %2")
                 : QStringLiteral("Die Datei „%1“ kann nicht gemessen werden: %2"))
                .arg(shown(input), reason)};
}

Result<std::unique_ptr<SoundFile>> openSound(const QString &input, Task task = Task::Convert)
{
    const auto refused = [task](const QString &file, const QString &reason) {
        return klangor::refused(file, reason, task);
    };
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

// Frames the header promises; -1 where it does not tell. libsndfile counts a cut-off WAV file's
// data as far as it goes, so there the data chunk's own size is asked.
qint64 promisedFrames(SoundFile &sound)
{
    const qint64 told =
        sound.frames() >= std::numeric_limits<qint64>::max() / 4 ? -1 : sound.frames();
    RegularFile &file = sound.file();
    if (sound.container() == SoundFile::Container::Other || !file.seek(12))
        return told;
    quint16 blockAlign = 0;
    RiffChunks chunks(file);
    while (const std::optional<RiffChunk> chunk = chunks.next()) {
        if (chunk->id == "fmt " && chunk->size >= 16 && file.seek(chunk->bodyOffset + 12)) {
            const QByteArray align = file.read(2);
            blockAlign = align.size() == 2 ? qFromLittleEndian<quint16>(align.constData()) : 0;
        } else if (chunk->id == "data") {
            // Streaming writers leave 0 or the most as the size until they finish.
            if (blockAlign == 0 || chunk->size == 0 || chunk->size >= 0x7FFFFFFF)
                return told;
            return std::max(told, qint64(chunk->size / blockAlign));
        }
    }
    return told;
}

double decibels(double amplitude)
{
    return amplitude > 0 ? 20 * std::log10(amplitude) : -std::numeric_limits<double>::infinity();
}

// Mixes interleaved frames down to mono; a broken float sample would smear over the
// resampler's whole filter and counts as silence.
void mixDown(const double *frames, qint64 count, int channels, double *mono)
{
    for (qint64 f = 0; f < count; ++f) {
        const double *frame = frames + f * channels;
        const double mixed = std::accumulate(frame, frame + channels, 0.0) / channels;
        mono[f] = std::isfinite(mixed) ? mixed : 0.0;
    }
}

// The K-weighted loudness of a sound's first 0.5 s, for a sound too short for the gated 0.4 s
// blocks of the integrated measure: a biquad shelf and a high-pass per channel, channels
// weighted as libebur128 maps them by default (the fourth as LFE, left out; surrounds 1.41;
// none beyond the sixth).
class ShortSoundMeter
{
public:
    ShortSoundMeter(int rate, int channels)
        : m_limit(static_cast<qint64>(ShortSoundMs) * rate / 1000),
          m_channels(static_cast<std::size_t>(channels)), m_filters(m_channels),
          m_energy(m_channels, 0.0)
    {
        const double pi = std::numbers::pi;
        double K = std::tan(pi * 1681.974450955533 / rate), Q = 0.7071752369554196;
        const double Vh = std::pow(10.0, 3.999843853973347 / 20);
        const double Vb = std::pow(Vh, 0.4996667741545416), a0 = 1 + K / Q + K * K;
        const Biquad shelf{(Vh + Vb * K / Q + K * K) / a0, 2 * (K * K - Vh) / a0,
                           (Vh - Vb * K / Q + K * K) / a0, 2 * (K * K - 1) / a0,
                           (1 - K / Q + K * K) / a0};
        K = std::tan(pi * 38.13547087602444 / rate);
        Q = 0.5003270373238773;
        const double h0 = 1 + K / Q + K * K;
        const Biquad highPass{1, -2, 1, 2 * (K * K - 1) / h0, (1 - K / Q + K * K) / h0};
        for (auto &filter : m_filters)
            filter = {shelf, highPass};
    }

    void add(const double *frames, qint64 count)
    {
        for (qint64 f = 0; f < count && m_seen < m_limit; ++f, ++m_seen) {
            for (std::size_t c = 0; c < m_channels; ++c) {
                const double y = m_filters[c][1].run(m_filters[c][0].run(frames[c]));
                m_energy[c] += y * y;
            }
            frames += m_channels;
        }
    }

    double loudness() const
    {
        double sum = 0;
        for (std::size_t c = 0; c < m_channels; ++c)
            sum += (c == 3 ? 0.0 : c >= 4 ? 1.41 : 1.0) * m_energy[c];
        return sum > 0 && m_seen > 0 ? -0.691 + 10 * std::log10(sum / static_cast<double>(m_seen))
                                     : -std::numeric_limits<double>::infinity();
    }

private:
    struct Biquad
    {
        double b0, b1, b2, a1, a2, z1 = 0, z2 = 0;
        double run(double x)
        {
            const double y = b0 * x + z1;
            z1 = b1 * x - a1 * y + z2;
            z2 = b2 * x - a2 * y;
            return y;
        }
    };

    qint64 m_limit;
    qint64 m_seen = 0;
    std::size_t m_channels;
    std::vector<std::array<Biquad, 2>> m_filters;
    std::vector<double> m_energy;
};

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

// The sound mixed down to mono at the decoder's rate, full scale at 1.0, at most as long as the
// decoder takes: reading stops as soon as more would come out.
struct DecoderSamples
{
    std::vector<double> samples;
    QStringList notes;
};

Result<DecoderSamples> decoderSamples(const QString &input, SoundFile &sound,
                                      const ConversionOptions &options, ResamplerCache &resamplers,
                                      const ConversionProgress &progress)
{
    const int channels = sound.channels();
    const soxr_t resampler = resamplers.forRate(sound.sampleRate());
    if (!resampler)
        return refused(input, QStringLiteral("Der Umrechner ließ sich nicht einrichten."));

    // What has to be read at most: the kept part and a little for the filter.
    const qint64 promised = promisedFrames(sound);
    const qint64 needed =
        static_cast<qint64>(MaxUncutFrames + 1) * sound.sampleRate() / DecoderSampleRate +
        BlockFrames;
    const double progressFrames =
        static_cast<double>(promised < 0 ? needed : std::min(promised, needed));
    std::vector<double> frames(static_cast<std::size_t>(BlockFrames * channels));
    std::vector<double> mono(static_cast<std::size_t>(BlockFrames));
    DecoderSamples result;
    std::vector<double> &out = result.samples;
    out.reserve(MaxUncutFrames + 16384);
    qint64 done = 0;
    bool ended = false;
    const auto cancelled = [&] {
        return UserMessage(
            QStringLiteral("Die Umwandlung von „%1“ wurde abgebrochen.").arg(shown(input)));
    };
    while (out.size() <= MaxUncutFrames) {
        const qint64 got = sound.read(frames.data(), BlockFrames);
        ended = got <= 0;
        if (ended)
            break;
        mixDown(frames.data(), got, channels, mono.data());
        if (!resample(resampler, mono.data(), static_cast<std::size_t>(got), out))
            return refused(input, QStringLiteral("Der Umrechner meldet einen Fehler."));
        done += got;
        if (progress && !progress(std::min(1.0, static_cast<double>(done) / progressFrames)))
            return cancelled();
    }
    if (ended && !resample(resampler, nullptr, 0, out))
        return refused(input, QStringLiteral("Der Umrechner meldet einen Fehler."));
    // All that is needed has been read, however much the header promised. A cancel this report
    // takes must still hold: the window counts the work as cancelled once a report refused it.
    if (progress && !progress(1.0))
        return cancelled();
    if (out.empty() || done == 0)
        return refused(input, sound.damaged() ? QStringLiteral("Ihre Tondaten sind beschädigt.")
                                              : QStringLiteral("Sie enthält keinen Ton."));
    // Only a file read to its end can turn out shorter than promised.
    if (ended && (sound.damaged() || (promised >= 0 && done < promised)))
        result.notes.append(
            QStringLiteral("„%1“ ist abgeschnitten oder beschädigt. %2 Umgewandelt wurde der "
                           "lesbare Teil.")
                .arg(shown(input), readablePartText({.framesRead = done,
                                                     .framesPromised = std::max(promised, done + 1),
                                                     .sampleRate = sound.sampleRate()})));
    if (out.size() > MaxUncutFrames && !options.trim)
        return refused(input, QStringLiteral("Der Sound ist länger als die 5,9 Sekunden, die der "
                                             "Decoder spielt. Er lässt sich nur gekürzt "
                                             "umwandeln (auf der Kommandozeile mit --trim)."));
    if (out.size() > TrimFrames && options.trim) {
        out.resize(TrimFrames);
        // A cut in mid-sound clicks; the last 10 ms fall to silence.
        for (std::size_t i = 0; i < FadeFrames; ++i)
            out[TrimFrames - FadeFrames + i] *=
                static_cast<double>(FadeFrames - 1 - i) / (FadeFrames - 1);
    }
    return result;
}

// Brings the peak to -1 dBFS when asked; otherwise lowers a sound that would clip (a full-scale
// input overshoots in the resampler, a float one may lie beyond full scale) just enough, and
// says so.
void adjustLevel(const QString &input, DecoderSamples &sound, const ConversionOptions &options)
{
    std::vector<double> &samples = sound.samples;
    double peak = 0;
    for (const double v : samples)
        peak = std::max(peak, std::abs(v));
    // The highest sample that stays below the range's end: 8 bits' dither adds less than a step.
    const double ceiling = options.eightBit ? 126.0 / 128 : 32766.0 / 32768;
    double gain = 1;
    if (options.normalize && peak > 0)
        gain = std::pow(10.0, NormalizedPeakDbfs / 20) / peak;
    else if (peak > ceiling) {
        gain = ceiling / peak;
        const double lowered = -decibels(gain);
        sound.notes.append(
            QStringLiteral("„%1“ wäre übersteuert (Spitze %2 dBFS); um %3 dB leiser umgewandelt, "
                           "damit nichts abgeschnitten wird.")
                .arg(shown(input),
                     (peak > 1 ? QStringLiteral("+") : QString()) + levelText(decibels(peak)),
                     lowered < 0.05 ? QStringLiteral("weniger als 0,1") : levelText(lowered)));
    }
    if (gain != 1)
        for (double &v : samples)
            v *= gain;
}

} // namespace

// 8 bits get triangular dither, which turns the coarse steps into a steady faint hiss.
QByteArray decoderWaveBytes(const std::vector<double> &samples, bool eightBit, int sampleRate)
{
    const WaveFormat format{1, sampleRate, eightBit ? 8 : 16};
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

namespace {

// The converted file's bytes and notes; a file that is right already comes back as it is.
struct DecoderImage
{
    QByteArray bytes;
    QStringList notes;
};

Result<DecoderImage> decoderImage(const QString &input, const ConversionOptions &options,
                                  ResamplerCache &resamplers, const ConversionProgress &progress)
{
    const Result<std::unique_ptr<SoundFile>> opened = openSound(input);
    if (!opened)
        return opened.error();
    SoundFile &sound = *opened.value();
    if (!options.normalize) {
        if (std::optional<QByteArray> ready = decoderReadyBytes(sound, options.eightBit))
            return DecoderImage{*std::move(ready), {}};
    }
    Result<DecoderSamples> samples = decoderSamples(input, sound, options, resamplers, progress);
    if (!samples)
        return samples.error();
    adjustLevel(input, samples.value(), options);
    return DecoderImage{decoderWaveBytes(samples.value().samples, options.eightBit),
                        samples.value().notes};
}

Status makeFolder(const QString &folder)
{
    if (QDir().mkpath(folder))
        return {};
    return UserMessage(QStringLiteral("Der Ordner „%1“ kann nicht angelegt werden: %2")
                           .arg(shown(folder), systemReason(errno)));
}

// The path with its file name spelt as the folder stores it: FAT and exFAT find a file under
// any case of its name, and through FUSE each spelling has an inode of its own.
QString storedSpelling(const QString &path)
{
    const QFileInfo info(path);
    const QStringList entries = info.absoluteDir().entryList(QDir::AllEntries | QDir::Hidden |
                                                             QDir::System | QDir::NoDotAndDotDot);
    if (entries.contains(info.fileName()))
        return path;
    for (const QString &entry : entries) {
        if (entry.compare(info.fileName(), Qt::CaseInsensitive) == 0)
            return info.absoluteDir().filePath(entry);
    }
    return path;
}

// One file under both paths, however each is spelt (links followed).
bool sameFile(const QString &a, const QString &b)
{
    const bool caseOnly =
        QFileInfo(a).fileName().compare(QFileInfo(b).fileName(), Qt::CaseInsensitive) == 0;
    const QByteArray first = QFile::encodeName(caseOnly ? storedSpelling(a) : a);
    const QByteArray second = QFile::encodeName(caseOnly ? storedSpelling(b) : b);
    struct stat one, other;
    return ::stat(first.constData(), &one) == 0 && ::stat(second.constData(), &other) == 0 &&
           one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// A batch a killed run left half-done is completed before the outputs are judged: its files
// count as existing, and a refusal leaves no half-written folder.
void recoverLeftovers(const QString &outputFolder)
{
    if (QFileInfo(outputFolder).isDir())
        recoverInterruptedWrites(outputFolder);
}

} // namespace

Status conversionOutputAllowed(const QString &output, const QStringList &inputs, bool overwrite)
{
    for (const QString &input : inputs) {
        if (sameFile(output, input))
            return UserMessage(QStringLiteral("„%1“ ist eine der Eingaben und wird nicht "
                                              "überschrieben.")
                                   .arg(shown(output)));
    }
    struct stat st;
    if (!overwrite && ::lstat(QFile::encodeName(output).constData(), &st) == 0)
        return UserMessage(QStringLiteral("Die Datei „%1“ gibt es schon; sie wird nicht ersetzt.")
                               .arg(shown(output)));
    return {};
}

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

Result<ConvertedSound> convertForDecoder(const QString &input, const QString &outputFolder,
                                         const ConversionOptions &options,
                                         const ConversionProgress &progress)
{
    return convertForDecoderTo(input, QDir(outputFolder).filePath(convertedFileName(input)),
                               options, progress);
}

Result<ConvertedSound> convertForDecoderTo(const QString &input, const QString &output,
                                           const ConversionOptions &options,
                                           const ConversionProgress &progress)
{
    recoverLeftovers(QFileInfo(output).absolutePath());
    if (const Status allowed = conversionOutputAllowed(output, {input}, options.overwrite);
        !allowed)
        return allowed.error();
    ResamplerCache resamplers;
    const Result<DecoderImage> image = decoderImage(input, options, resamplers, progress);
    if (!image)
        return image.error();
    if (const Status made = makeFolder(QFileInfo(output).absolutePath()); !made)
        return made.error();
    if (const Status written = writeFileSafely(output, image.value().bytes); !written)
        return written.error();
    return ConvertedSound{output, image.value().notes};
}

QList<Result<ConvertedSound>> convertAllForDecoder(const QStringList &inputs,
                                                   const QString &outputFolder,
                                                   const ConversionOptions &options)
{
    QList<Result<ConvertedSound>> results;
    recoverLeftovers(outputFolder);
    // The user's files are checked before any work: one refusal stops the whole batch.
    QList<Status> allowed;
    for (const QString &input : inputs)
        allowed.append(conversionOutputAllowed(
            QDir(outputFolder).filePath(convertedFileName(input)), inputs, options.overwrite));
    if (std::any_of(allowed.cbegin(), allowed.cend(), [](const Status &s) { return !s.ok(); })) {
        for (const Status &status : std::as_const(allowed))
            results.append(status ? UserMessage(QStringLiteral(
                                        "Nichts wurde umgewandelt, weil eine andere Ausgabe nicht "
                                        "geschrieben werden darf."))
                                  : status.error());
        return results;
    }
    // The inputs are converted on every core; only the writing is in order.
    std::vector<std::optional<Result<DecoderImage>>> images(
        static_cast<std::size_t>(inputs.size()));
    std::atomic<std::size_t> next = 0;
    const auto convertSome = [&] {
        ResamplerCache resamplers;
        for (std::size_t i = next++; i < images.size(); i = next++)
            images[i] = decoderImage(inputs.at(static_cast<qsizetype>(i)), options, resamplers, {});
    };
    std::vector<std::thread> helpers;
    const std::size_t cores = std::clamp(std::thread::hardware_concurrency(), 1u, 4u);
    for (std::size_t t = 1; t < std::min(cores, images.size()); ++t)
        helpers.emplace_back(convertSome);
    convertSome();
    for (std::thread &helper : helpers)
        helper.join();

    // The folder is made for the first result: a run that converts nothing leaves no trace.
    std::optional<Status> made;
    FileBatch batch(outputFolder, !options.overwrite); // nor one that appears meanwhile
    QStringList names;
    for (qsizetype i = 0; i < inputs.size(); ++i) {
        const QString &input = inputs.at(i);
        const QString name = convertedFileName(input);
        Result<DecoderImage> image =
            names.contains(name)
                ? refused(input,
                          QStringLiteral("„%1“ entstünde schon aus einer anderen Datei.").arg(name))
                : std::move(*images[static_cast<std::size_t>(i)]);
        if (!image) {
            results.append(image.error());
            continue;
        }
        if (!made)
            made = makeFolder(outputFolder);
        if (const Status staged = *made ? batch.stage({{name, image.value().bytes}}) : *made;
            !staged) {
            results.append(staged.error());
            continue;
        }
        names.append(name);
        results.append(ConvertedSound{QDir(outputFolder).filePath(name), image.value().notes});
    }
    // All results reach the folder together, or none.
    if (const Status committed = names.isEmpty() ? Status() : batch.commit(); !committed) {
        for (Result<ConvertedSound> &result : results) {
            if (result)
                result = committed.error();
        }
    }
    return results;
}

Result<SoundLevels> measureSoundLevels(const QString &input, const ConversionProgress &progress)
{
    const Result<std::unique_ptr<SoundFile>> opened = openSound(input, Task::Measure);
    if (!opened)
        return opened.error();
    SoundFile &sound = *opened.value();
    const int channels = sound.channels();
    // The loudness counts the first six channels (left, right, centre, LFE, two surrounds); the
    // meter keeps 0.4 s of every channel it is given, so it gets no more.
    const int metered = std::min(channels, 6);
    std::unique_ptr<ebur128_state, void (*)(ebur128_state *)> meter(
        ebur128_init(static_cast<unsigned>(metered), static_cast<unsigned long>(sound.sampleRate()),
                     EBUR128_MODE_I),
        [](ebur128_state *state) { ebur128_destroy(&state); });
    if (!meter)
        return refused(input, QStringLiteral("Die Lautheitsmessung ließ sich nicht einrichten."),
                       Task::Measure);
    // A sound under 0.5 s is measured over all of it.
    ShortSoundMeter shortMeter(sound.sampleRate(), metered);

    SoundLevels levels{.framesPromised = promisedFrames(sound), .sampleRate = sound.sampleRate()};
    std::vector<double> frames(static_cast<std::size_t>(BlockFrames * channels));
    double peak = 0;
    for (;;) {
        const qint64 got = sound.read(frames.data(), BlockFrames);
        if (got <= 0)
            break;
        const auto samples = static_cast<std::size_t>(got * channels);
        for (std::size_t i = 0; i < samples; ++i) {
            if (!std::isfinite(frames[i]))
                frames[i] = 0;
            peak = std::max(peak, std::abs(frames[i]));
        }
        for (qint64 f = 0; metered < channels && f < got; ++f)
            std::copy_n(frames.begin() + f * channels, metered, frames.begin() + f * metered);
        shortMeter.add(frames.data(), got);
        if (ebur128_add_frames_double(meter.get(), frames.data(), static_cast<std::size_t>(got)) !=
            EBUR128_SUCCESS)
            return refused(input, QStringLiteral("Die Lautheitsmessung meldet einen Fehler."),
                           Task::Measure);
        levels.framesRead += got;
        if (progress && levels.framesPromised > 0 &&
            !progress(std::min(1.0, static_cast<double>(levels.framesRead) /
                                        static_cast<double>(levels.framesPromised))))
            return UserMessage(
                QStringLiteral("Die Messung von „%1“ wurde abgebrochen.").arg(shown(input)));
    }
    if (sound.damaged() && levels.framesPromised < 0)
        levels.framesPromised = levels.framesRead + 1; // read failed: cut short, length unknown
    if (levels.framesRead == 0)
        return refused(input,
                       sound.damaged() ? QStringLiteral("Ihre Tondaten sind beschädigt.")
                                       : QStringLiteral("Sie enthält keinen Ton."),
                       Task::Measure);
    levels.peakDbfs = decibels(peak);
    double loudness = -HUGE_VAL;
    const bool shortSound = levels.framesRead * 1000 < qint64(ShortSoundMs) * levels.sampleRate;
    if (shortSound)
        loudness = shortMeter.loudness();
    else if (ebur128_loudness_global(meter.get(), &loudness) != EBUR128_SUCCESS)
        return refused(input, QStringLiteral("Die Lautheitsmessung meldet einen Fehler."),
                       Task::Measure);
    levels.loudnessLufs =
        std::isfinite(loudness) ? loudness : -std::numeric_limits<double>::infinity();
    return levels;
}

QString levelText(double db)
{
    if (!std::isfinite(db))
        return db < 0 ? QStringLiteral("-∞") : QStringLiteral("∞");
    // No "-0,0" for a level a hair below zero.
    const double rounded = std::round(db * 10) / 10;
    return QLocale(QLocale::German).toString(rounded == 0 ? 0.0 : rounded, 'f', 1);
}

QString readablePartText(const SoundLevels &levels)
{
    const QLocale german(QLocale::German);
    const double rate = std::max(1, levels.sampleRate);
    return QStringLiteral("Nur %1 von %2 Frames (%3 von %4 s) sind lesbar.")
        .arg(german.toString(levels.framesRead), german.toString(levels.framesPromised),
             german.toString(static_cast<double>(levels.framesRead) / rate, 'f', 2),
             german.toString(static_cast<double>(levels.framesPromised) / rate, 'f', 2));
}

} // namespace klangor
