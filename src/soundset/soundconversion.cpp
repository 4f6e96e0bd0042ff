#include "soundset/soundconversion.h"

#include "platform/filebatch.h"
#include "platform/programfiles.h"
#include "platform/programfolder.h"
#include "platform/regularfile.h"
#include "platform/safefile.h"
#include "platform/systemreason.h"
#include "platform/waveaudiodevice.h"
#include "soundset/wavecheck.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <numeric>
#include <QBuffer>
#include <QDir>
#include <QFileInfo>
#include <QtEndian>
#include <random>
#include <sndfile.h>
#include <soxr.h>
#include <vector>

namespace klangor {

namespace {

// Half an hour of studio audio; the decoder takes seconds.
constexpr qint64 MaxInputBytes = qint64(512) << 20;
// Longer sounds are converted only when cut to the decoder's length.
constexpr qint64 MaxUntrimmedSeconds = 600;
constexpr int MaxChannels = 64;
constexpr int MinSampleRate = 1000;
constexpr int MaxSampleRate = 768000;
constexpr sf_count_t BlockFrames = 8192;
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

// The file's bytes, read once and bounded by its size, and libsndfile reading from them.
struct OpenSound
{
    QByteArray bytes;
    sf_count_t position = 0;
    SF_INFO info{};
    SNDFILE *file = nullptr;

    OpenSound() = default;
    OpenSound(const OpenSound &) = delete;
    OpenSound &operator=(const OpenSound &) = delete;
    ~OpenSound()
    {
        if (file)
            sf_close(file);
    }
};

OpenSound &self(void *user)
{
    return *static_cast<OpenSound *>(user);
}

sf_count_t memoryLength(void *user)
{
    return self(user).bytes.size();
}

sf_count_t memorySeek(sf_count_t offset, int whence, void *user)
{
    OpenSound &sound = self(user);
    const sf_count_t base = whence == SEEK_CUR   ? sound.position
                            : whence == SEEK_END ? sound.bytes.size()
                                                 : 0;
    if (base + offset < 0)
        return -1;
    sound.position = base + offset; // past the end, as lseek allows; reads then find nothing
    return sound.position;
}

sf_count_t memoryRead(void *target, sf_count_t count, void *user)
{
    OpenSound &sound = self(user);
    const sf_count_t n = std::min<sf_count_t>(count, sound.bytes.size() - sound.position);
    if (n <= 0)
        return 0; // at or past the end
    std::memcpy(target, sound.bytes.constData() + sound.position, static_cast<std::size_t>(n));
    sound.position += n;
    return n;
}

sf_count_t memoryWrite(const void *, sf_count_t, void *)
{
    return 0;
}

sf_count_t memoryTell(void *user)
{
    return self(user).position;
}

Result<std::unique_ptr<OpenSound>> openSound(const QString &input)
{
    Result<QByteArray> bytes = readRegularFile(input, MaxInputBytes);
    if (!bytes)
        return bytes.error();
    auto sound = std::make_unique<OpenSound>();
    sound->bytes = std::move(bytes).value();
    SF_VIRTUAL_IO io{memoryLength, memorySeek, memoryRead, memoryWrite, memoryTell};
    sound->file = sf_open_virtual(&io, SFM_READ, &sound->info, sound.get());
    const SF_INFO &info = sound->info;
    if (!sound->file)
        return refused(input, QStringLiteral("Sie ist keine lesbare Tondatei."));
    if (info.channels < 1 || info.channels > MaxChannels || info.samplerate < MinSampleRate ||
        info.samplerate > MaxSampleRate)
        return refused(input, QStringLiteral("Ton mit %1 und %2 Hz wird nicht unterstützt.")
                                  .arg(info.channels == 1
                                           ? QStringLiteral("einem Kanal")
                                           : QStringLiteral("%1 Kanälen").arg(info.channels))
                                  .arg(info.samplerate));
    if (info.frames <= 0)
        return refused(input, QStringLiteral("Sie enthält keinen Ton."));
    return sound;
}

// A PCM WAV file the decoder check passes, mono at its rate and with the asked bits.
bool isDecoderReady(const OpenSound &sound, bool eightBit)
{
    const int wanted = eightBit ? SF_FORMAT_PCM_U8 : SF_FORMAT_PCM_16;
    if ((sound.info.format & SF_FORMAT_TYPEMASK) != SF_FORMAT_WAV ||
        (sound.info.format & SF_FORMAT_SUBMASK) != wanted || sound.info.channels != 1 ||
        sound.info.samplerate != DecoderSampleRate)
        return false;
    QBuffer device;
    device.setData(sound.bytes);
    device.open(QIODevice::ReadOnly);
    // A header's byte rate can make the check measure a long sound short; libsndfile counts
    // the frames themselves, and a file too long for the decoder is converted (and cut).
    const std::optional<qint64> ms = measureRiffWaveMilliseconds(device);
    const double seconds = std::max(ms ? static_cast<double>(*ms) / 1000.0 : UnknownWaveLength,
                                    static_cast<double>(sound.info.frames) / DecoderSampleRate);
    return !judgeWaveHeader(sound.bytes.left(36), seconds);
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
Result<std::vector<double>> decoderSamples(const QString &input, OpenSound &sound,
                                           const ConversionOptions &options,
                                           ResamplerCache &resamplers,
                                           const ConversionProgress &progress)
{
    const int channels = sound.info.channels;
    const soxr_t resampler = resamplers.forRate(sound.info.samplerate);
    if (!resampler)
        return refused(input, QStringLiteral("Der Umrechner ließ sich nicht einrichten."));

    const std::size_t limit =
        options.trim ? TrimFrames : std::size_t(MaxUntrimmedSeconds * DecoderSampleRate);
    std::vector<double> frames(static_cast<std::size_t>(BlockFrames * channels));
    std::vector<double> mono(static_cast<std::size_t>(BlockFrames));
    std::vector<double> out;
    sf_count_t done = 0;
    bool ended = false;
    while (out.size() <= limit) {
        const sf_count_t got = sf_readf_double(sound.file, frames.data(), BlockFrames);
        ended = got <= 0;
        if (ended)
            break;
        for (sf_count_t f = 0; f < got; ++f) {
            const double *frame = frames.data() + f * channels;
            const double mixed = std::accumulate(frame, frame + channels, 0.0) / channels;
            // A broken float sample would smear over the filter's whole length.
            mono[static_cast<std::size_t>(f)] = std::isfinite(mixed) ? mixed : 0.0;
        }
        if (!resample(resampler, mono.data(), static_cast<std::size_t>(got), out))
            return refused(input, QStringLiteral("Der Umrechner meldet einen Fehler."));
        done += got;
        if (progress && !progress(std::min(1.0, static_cast<double>(done) / sound.info.frames)))
            return UserMessage(
                QStringLiteral("Die Umwandlung von „%1“ wurde abgebrochen.").arg(shown(input)));
    }
    if (sf_error(sound.file) != SF_ERR_NO_ERROR)
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

// A canonical 44-byte header and the samples: 16-bit signed, or 8-bit unsigned with
// triangular dither, which turns the coarse steps into a steady faint hiss.
QByteArray waveImage(const std::vector<double> &samples, bool eightBit)
{
    const quint32 bytesPerSample = eightBit ? 1 : 2;
    const auto dataBytes = static_cast<quint32>(samples.size()) * bytesPerSample;
    QByteArray image(44 + dataBytes + (dataBytes & 1), '\0');
    char *h = image.data();
    std::memcpy(h, "RIFF", 4);
    qToLittleEndian<quint32>(static_cast<quint32>(image.size() - 8), h + 4);
    std::memcpy(h + 8, "WAVEfmt ", 8);
    qToLittleEndian<quint32>(16, h + 16);
    qToLittleEndian<quint16>(1, h + 20); // PCM
    qToLittleEndian<quint16>(1, h + 22); // mono
    qToLittleEndian<quint32>(DecoderSampleRate, h + 24);
    qToLittleEndian<quint32>(DecoderSampleRate * bytesPerSample, h + 28);
    qToLittleEndian<quint16>(static_cast<quint16>(bytesPerSample), h + 32);
    qToLittleEndian<quint16>(static_cast<quint16>(8 * bytesPerSample), h + 34);
    std::memcpy(h + 36, "data", 4);
    qToLittleEndian<quint32>(dataBytes, h + 40);

    char *data = h + 44;
    if (eightBit) {
        std::minstd_rand noise(DitherSeed);
        std::uniform_real_distribution<double> half(-0.5, 0.5);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const double dithered = samples[i] * 128.0 + half(noise) + half(noise);
            data[i] = static_cast<char>(std::clamp(std::lround(dithered), -128L, 127L) + 128);
        }
    } else {
        for (std::size_t i = 0; i < samples.size(); ++i)
            qToLittleEndian<qint16>(
                static_cast<qint16>(std::clamp(std::lround(samples[i] * 32768.0), -32768L, 32767L)),
                data + 2 * i);
    }
    return image;
}

// The converted file's bytes; a file that is right already comes back as it is.
Result<QByteArray> decoderImage(const QString &input, const ConversionOptions &options,
                                ResamplerCache &resamplers, const ConversionProgress &progress)
{
    const Result<std::unique_ptr<OpenSound>> opened = openSound(input);
    if (!opened)
        return opened.error();
    OpenSound &sound = *opened.value();
    if (isDecoderReady(sound, options.eightBit))
        return sound.bytes;
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
    const Result<std::unique_ptr<OpenSound>> sound = openSound(input);
    if (!sound)
        return sound.error();
    const SF_INFO &info = sound.value()->info;
    return static_cast<double>(info.frames) / info.samplerate;
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
    ResamplerCache resamplers;
    const Result<QByteArray> image = decoderImage(input, options, resamplers, progress);
    if (!image)
        return image.error();
    if (const Status made = makeFolder(outputFolder); !made)
        return made.error();
    const QString output = QDir(outputFolder).filePath(convertedFileName(input));
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
