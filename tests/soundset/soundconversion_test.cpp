#include "platform/programfiles.h"
#include "platform/soundfile.h"
#include "platform/waveaudiodevice.h"
#include "soundset/levelmatch.h"
#include "soundset/soundconversion.h"
#include "soundset/wavecheck.h"
#include "support/printers.h"
#include "support/wavwriter.h"

#include <cmath>
#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <numbers>
#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <sndfile.h>
#include <sys/mount.h>
#include <tuple>
#include <vector>

namespace klangor {
namespace {

using test::readFile;

// Interleaved samples in a format of libsndfile's (the inputs come in formats the program
// itself never writes).
QString writeSamples(const QString &path, int format, int rate, int channels,
                     const std::vector<double> &data)
{
    SF_INFO info{0, rate, channels, format, 0, 0};
    SNDFILE *file = sf_open(QFile::encodeName(path).constData(), SFM_WRITE, &info);
    EXPECT_NE(file, nullptr) << sf_strerror(nullptr);
    sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
    sf_writef_double(file, data.data(), static_cast<sf_count_t>(data.size()) / channels);
    sf_close(file);
    return path;
}

// 2 s of amplitude * cos(2 pi freq t) in the first channel, times `others` in the rest.
QString writeSound(const QString &path, int format, int rate, int channels, double freq = 440,
                   double amplitude = 0.5, double others = 0, double seconds = 2)
{
    const auto frames = static_cast<std::size_t>(seconds * rate);
    std::vector<double> data(frames * static_cast<std::size_t>(channels));
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = amplitude * (i % static_cast<std::size_t>(channels) ? others : 1) *
                  std::cos(2 * std::numbers::pi * freq * static_cast<double>(i / channels) / rate);
    return writeSamples(path, format, rate, channels, data);
}

std::vector<double> readSamples(const QString &path)
{
    SoundFile file;
    if (!file.open(path) || !file.isSound())
        return {};
    std::vector<double> samples(static_cast<std::size_t>(file.frames() * file.channels()));
    samples.resize(
        static_cast<std::size_t>(file.read(samples.data(), file.frames()) * file.channels()));
    return samples;
}

// The freq component, the rest and the whole over one second (whole periods, so the parts add
// up) from 0.5 s on, away from the resampler's edges.
struct Fit
{
    double amplitude = 0, rest = 0, rms = 0;
};
Fit fitSine(const std::vector<double> &samples, double freq)
{
    const std::size_t from = DecoderSampleRate / 2, n = DecoderSampleRate;
    double c = 0, s = 0, all = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const double x = samples.at(from + i), w = 2 * std::numbers::pi * freq * i / n;
        c += x * std::cos(w) * 2 / n;
        s += x * std::sin(w) * 2 / n;
        all += x * x / n;
    }
    return {std::hypot(c, s), std::sqrt(std::max(0.0, all - (c * c + s * s) / 2)), std::sqrt(all)};
}

TEST(SoundConversion, EveryInputKindBecomesMono11025WithTheSameTone)
{
    struct Case
    {
        const char *name;
        int format, rate, channels;
        bool eightBit = false, copied = false;
    };
    const Case cases[] = {
        {"8000.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 8000, 1},
        {"22050-u8.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 22050, 2},
        {"44100-24.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 44100, 2},
        {"48000-float.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, true},
        {"96000-32.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_32, 96000, 4},
        {"48000-extensible.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_24, 48000, 4},
        {"44100.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 44100, 2},
        {"48000.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 48000, 2},
        {"44100.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 44100, 2},
        {"11025-16.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 11025, 1, false, true},
        {"11025-u8.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 11025, 1, true, true},
        {"11025-u8-to-16.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 11025, 1},
    };
    QTemporaryDir in, out;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const QString input = writeSound(in.filePath(c.name), c.format, c.rate, c.channels);
        const QByteArray original = readFile(input);
        const Result<ConvertedSound> output =
            convertForDecoder(input, out.path(), {.eightBit = c.eightBit, .overwrite = true});
        ASSERT_TRUE(output) << output.error().text.toStdString();
        const QByteArray bytes = readFile(output.value().path);
        EXPECT_EQ(readFile(input), original);
        EXPECT_EQ(bytes == original, c.copied);
        EXPECT_TRUE(judgeWaveHeader(bytes, 2.0));
        EXPECT_EQ(bytes.at(34), c.eightBit ? 8 : 16);
        const std::vector<double> samples = readSamples(output.value().path);
        EXPECT_NEAR(samples.size(), 2 * DecoderSampleRate, 1);
        // The tone lies in the first channel only: the others must count in the mix.
        EXPECT_NEAR(fitSine(samples, 440).amplitude, 0.5 / c.channels, 0.005 / c.channels);
    }
}

TEST(SoundConversion, ResamplingKeepsTheBandCleanAndRejectsWhatLiesAbove)
{
    const double amplitude = std::pow(10, -1 / 20.0); // -1 dBFS
    QTemporaryDir dir;
    std::map<int, Fit> fits;
    for (const int freq : {1000, 5000, 7000})
        fits[freq] =
            fitSine(readSamples(convertForDecoder(writeSound(dir.filePath(QString::number(freq)),
                                                             SF_FORMAT_WAV | SF_FORMAT_PCM_24,
                                                             44100, 2, freq, amplitude, 1),
                                                  dir.path(), {})
                                    .value()
                                    .path),
                    freq);
    const double sinad = 20 * std::log10(amplitude / std::sqrt(2) / fits[1000].rest);
    const double passband = 20 * std::log10(fits[5000].amplitude / amplitude);
    const double rejection = 20 * std::log10(fits[7000].rms / (amplitude / std::sqrt(2)));
    std::printf("SINAD %.1f dB, 5 kHz %+.3f dB, 7 kHz %.1f dB\n", sinad, passband, rejection);
    EXPECT_GE(sinad, 90);
    EXPECT_LE(std::abs(passband), 0.5);
    EXPECT_LE(rejection, -90);
}

TEST(SoundConversion, TrimCutsTo5900msWithAFadeOutAndProgressCanCancel)
{
    QTemporaryDir dir, untouched;
    const QString input = writeSound(dir.filePath("lang.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16,
                                     44100, 1, 0, 0.5, 0, 7);
    std::vector<double> seen;
    // Too long for the decoder is never a result; the refusal tells how it can be one. 5.9 s
    // itself, which resamples to 65,048 samples, is no longer than the check allows.
    const Result<ConvertedSound> tooLong = convertForDecoder(input, untouched.path(), {});
    EXPECT_TRUE(tooLong.error().text.contains("länger als die 5,9 Sekunden") &&
                tooLong.error().text.contains("--trim"));
    RiffWaveAudioDevice device;
    const QString longest = writeSound(dir.filePath("grenze.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16,
                                       44100, 1, 0, 0.5, 0, 5.9);
    EXPECT_TRUE(
        WaveChecker(device).CheckWaveFile(convertForDecoder(longest, dir.path(), {}).value().path));
    const QString output =
        convertForDecoder(input, dir.path(), {.trim = true},
                          [&](double done) { return seen.push_back(done), true; })
            .value()
            .path;
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()) && seen.back() == 1.0);
    const std::vector<double> cut = readSamples(output);
    ASSERT_EQ(cut.size(), 65047u); // 5.9 s
    EXPECT_TRUE(WaveChecker(device).CheckWaveFile(output));
    EXPECT_NEAR(cut[cut.size() - 111], 0.5, 1e-3); // the fade takes the last 110 samples
    EXPECT_NEAR(cut[cut.size() - 56], 0.25, 1e-2);
    EXPECT_EQ(cut.back(), 0.0);
    // A byte rate that makes the check measure a 10 s sound short does not spare it the cut.
    test::writeFile(dir.filePath("kurz.wav"),
                    test::makeWav({.dataBytes = 10 * DecoderSampleRate}).replace(31, 1, "\x7f"));
    const auto lied = convertForDecoder(dir.filePath("kurz.wav"), dir.path(), {true, true});
    EXPECT_EQ(readSamples(lied.value().path).size(), 65047u);

    // A cancel taken by the very last report still leaves nothing written.
    const ConversionProgress cancels[] = {[](double) { return false; },
                                          [](double done) {
                                              return done < 1;
                                          }};
    for (const ConversionProgress &cancel : cancels)
        EXPECT_FALSE(convertForDecoder(input, untouched.path(), {.trim = true}, cancel));
    EXPECT_TRUE(QDir(untouched.path()).isEmpty());
}

TEST(SoundConversion, EightBitsAreDitheredSoThatALevelBelowOneStepSurvives)
{
    QTemporaryDir dir;
    const double quarterStep = 0.25 / 128; // plain rounding would make this silence
    const QString input = writeSound(dir.filePath("leise.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_24,
                                     44100, 1, 0, quarterStep);
    const Fit fit =
        fitSine(readSamples(convertForDecoder(input, dir.path(), {true}).value().path), 0);
    const double level = fit.amplitude / 2; // at 0 Hz the cosine is the level, counted twice
    EXPECT_NEAR(level, quarterStep, 0.03 / 128);
    // Triangular dither leaves noise of half a step RMS, whatever the level.
    EXPECT_NEAR(std::sqrt(fit.rms * fit.rms - level * level), 0.5 / 128, 0.03 / 128);
}

// Root writes into any folder it may not: only a read-only mount stops it.
TEST(SoundConversion, AnUnwritableFolderSendsTheResultIntoTheProgramFolder)
{
    QTemporaryDir root, program;
    const QString disk = root.filePath("disk"), input = disk + "/ton.wav";
    const QByteArray native = QFile::encodeName(disk);
    if (!QDir().mkpath(disk) || ::mount("tmpfs", native.constData(), "tmpfs", 0, nullptr) != 0)
        GTEST_SKIP() << "no tmpfs can be mounted here (needs root)";
    writeSound(input, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2);
    EXPECT_EQ(conversionFolder(input, program.path()), disk);
    ::mount("tmpfs", native.constData(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr);
    const Result<ConvertedSound> output =
        convertForDecoder(input, conversionFolder(input, program.path()), {});
    ::umount2(native.constData(), MNT_DETACH);
    EXPECT_EQ(output.value().path, program.filePath("umgewandelt/ton_decoder.wav"));
}

TEST(SoundConversion, ABatchWritesWhatConvertsAndTellsWhyTheRestDoesNot)
{
    QTemporaryDir dir;
    const QString out = dir.filePath("aus/gabe"), text = dir.filePath("text.wav");
    test::writeFile(text, "kein Ton");
    const int pcm = SF_FORMAT_WAV | SF_FORMAT_PCM_24;
    const QString wav = writeSound(dir.filePath("ton.wav"), pcm, 48000, 2);
    const QString flac =
        writeSound(dir.filePath("ton.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 8000, 1);
    const QString again = writeSound(dir.filePath("zwei.wav"), pcm, 48000, 1, 3000, 0.9, 0, 5);
    // Its result's name is too long to be written, after another result was staged.
    const QString tooLong = writeSound(dir.filePath(QString(245, 'x') + ".wav"), pcm, 8000, 1);
    const QList<Result<ConvertedSound>> results =
        convertAllForDecoder({wav, text, flac, again, tooLong}, out, {});
    ASSERT_EQ(results.size(), 5);
    EXPECT_TRUE(results[4].error().text.contains("Der Name ist zu lang"));
    EXPECT_EQ(results[0].value().path, out + "/ton_decoder.wav");
    EXPECT_TRUE(results[1].error().text.contains("keine lesbare Tondatei"));
    EXPECT_TRUE(results[2].error().text.contains("„ton_decoder.wav“ entstünde schon"));
    EXPECT_EQ(QDir(out).entryList(QDir::Files | QDir::Hidden),
              QStringList({"ton_decoder.wav", "zwei_decoder.wav"}));
    // The second sound at one rate comes out as it does alone.
    EXPECT_EQ(readFile(results[3].value().path),
              readFile(convertForDecoder(again, dir.path(), {}).value().path));
    // A batch a killed run left half-done is completed before the outputs are judged.
    ASSERT_TRUE(QDir(out).mkpath(".klangor-commit-z/new"));
    test::writeFile(out + "/.klangor-commit-z/new/text_decoder.wav", "neu");
    EXPECT_TRUE(convertAllForDecoder({text}, out, {})[0].error().text.contains("gibt es schon"));
    EXPECT_EQ(readFile(out + "/text_decoder.wav"), "neu");
}

TEST(SoundConversion, BadInputsAreRefusedNamingTheFileAndTheReason)
{
    QTemporaryDir dir, out;
    QDir(dir.path()).mkdir("ordner.wav");
    const std::tuple<QString, QByteArray, const char *> cases[] = {
        {"leer.wav", "", "keine lesbare Tondatei"},
        {"text.wav", "Dies ist kein Ton.\n", "keine lesbare Tondatei"},
        {"kopf.wav", test::makeWav({.sampleRate = 44100}).left(30), "keine lesbare Tondatei"},
        {"stumm.wav", test::makeWav({.sampleRate = 44100, .dataBytes = 0}), "enthält keinen Ton"},
        {"500hz.wav", test::makeWav({.sampleRate = 500}), "mit einem Kanal und 500 Hz"},
        {"ordner.wav", "", "keine gewöhnliche Datei"}, // the folder stays: it cannot be written
    };
    for (const auto &[name, bytes, reason] : cases) {
        test::writeFile(dir.filePath(name), bytes);
        const Result<ConvertedSound> output = convertForDecoder(dir.filePath(name), out.path(), {});
        ASSERT_FALSE(output) << name.toStdString();
        EXPECT_TRUE(output.error().text.contains("„" + dir.filePath(name) + "“"));
        EXPECT_TRUE(output.error().text.contains(reason)) << output.error().text.toStdString();
    }
    EXPECT_TRUE(QDir(out.path()).isEmpty());
}

// The reference figures of loudness: a 1 kHz sine at -20 dBFS in one channel is -23.0 LUFS,
// in two +3 dB more; a sound under 0.5 s has no gated blocks and is measured whole.
TEST(SoundConversion, LevelsAreMeasuredInLufsAndDbfs)
{
    const double minus20 = std::pow(10, -20 / 20.0), none = -INFINITY;
    const struct
    {
        int channels;
        double amplitude, others, seconds, lufs, peak;
    } cases[] = {
        {1, minus20, 0, 3, -23.0, -20.0},   {2, minus20, 1, 3, -20.0, -20.0},
        {1, minus20, 0, 0.3, -23.0, -20.0}, {2, minus20, 1, 0.45, -20.0, -20.0},
        {1, 0, 0, 1, none, none},
    };
    QTemporaryDir dir;
    for (const auto &c : cases) {
        const QString input = writeSound(dir.filePath("ton.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT,
                                         48000, c.channels, 1000, c.amplitude, c.others, c.seconds);
        const SoundLevels levels = measureSoundLevels(input).value();
        // -inf stands for silence; -999 compares it.
        EXPECT_NEAR(std::max(levels.loudnessLufs, -999.0), std::max(c.lufs, -999.0), 0.1)
            << c.channels << " " << c.seconds;
        EXPECT_NEAR(std::max(levels.peakDbfs, -999.0), std::max(c.peak, -999.0), 0.01);
        EXPECT_EQ(levels.framesRead, std::lround(c.seconds * 48000));
        EXPECT_FALSE(levels.cutShort());
    }
}

// Full scale overshoots in the resampler, a quiet sound is raised on request, a cut-off file
// is converted as far as it can be read: none of it happens without a word.
TEST(SoundConversion, TheResultNeverClipsCanBeNormalizedAndTellsWhatItDid)
{
    QTemporaryDir dir;
    std::vector<double> square(44100);
    for (std::size_t i = 0; i < square.size(); ++i)
        square[i] = (i / 50) % 2 ? 1.0 : -1.0;
    const QString loud =
        writeSamples(dir.filePath("laut.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44100, 1, square);
    const QString quiet = writeSound(dir.filePath("leise.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16,
                                     44100, 1, 1000, std::pow(10, -30 / 20.0));
    const QString cut = dir.filePath("kaputt.wav");
    test::writeFile(cut, readFile(loud).left(44 + 1720 * 2));

    const struct
    {
        QString input;
        ConversionOptions options;
        double peak;
        const char *note;
    } cases[] = {
        {loud, {}, 0.0, "„laut.wav“ wäre übersteuert (Spitze +1,"},
        {quiet, {.eightBit = true, .normalize = true}, -1.0, nullptr},
        {quiet, {.normalize = true}, -1.0, nullptr},
        {cut, {}, 0.0, "Nur 1.720 von 44.100 Frames (0,04 von 1,00 s) sind lesbar."},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.input.toStdString());
        QDir::setCurrent(dir.path()); // the notes name the input as given
        ConversionOptions options = c.options;
        options.overwrite = true; // "leise" is converted twice
        const Result<ConvertedSound> converted =
            convertForDecoder(QFileInfo(c.input).fileName(), dir.filePath("aus"), options);
        EXPECT_EQ(converted.value().notes.join("\n").contains(c.note ? c.note : "\1"),
                  c.note != nullptr)
            << converted.value().notes.join("\n").toStdString();
        EXPECT_EQ(converted.value().notes.isEmpty(), c.note == nullptr);
        const std::vector<double> samples = readSamples(converted.value().path);
        const double peak =
            std::abs(*std::max_element(samples.begin(), samples.end(), [](double a, double b) {
                return std::abs(a) < std::abs(b);
            }));
        const double step = c.options.eightBit ? 1.0 / 128 : 1.0 / 32768;
        EXPECT_LT(peak, 1.0 - step); // no sample reaches the end of the range
        EXPECT_NEAR(20 * std::log10(peak), c.peak, c.options.eightBit ? 0.15 : 0.05);
    }
    const SoundLevels levels = measureSoundLevels(cut).value();
    EXPECT_TRUE(levels.cutShort());
    EXPECT_EQ(levels.framesRead, 1720);
    EXPECT_EQ(levels.framesPromised, 44100);
}

// Events 0 and 1, a sound of no slot, and a click whose peak leaves little room.
TEST(LevelMatch, EventsReachTheTargetKeepingTheirSoundsApartAndAllChangeOrNone)
{
    QTemporaryDir program;
    const std::map<int, double> dbfs = {{0, -30}, {1, -36},  {2, -24},
                                        {4, -12}, {80, -20}, {12, -40}};
    SlotFileNames names;
    for (const auto &[number, level] : dbfs) {
        names.set(number, QString("ton%1.wav").arg(number));
        writeSound(program.filePath(workingFileName(number)), SF_FORMAT_WAV | SF_FORMAT_PCM_16,
                   number == 4 ? 22050 : DecoderSampleRate, 1, 1000, std::pow(10, level / 20));
    }
    std::vector<double> click(2 * DecoderSampleRate, 0.0);
    click[100] = std::pow(10, -3 / 20.0);
    writeSamples(program.filePath("12.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_U8, DecoderSampleRate, 1,
                 click);
    const auto loudness = [&](int number) {
        return measureSoundLevels(program.filePath(workingFileName(number))).value().loudnessLufs;
    };
    const auto event0 = [&] { // the power mean of its three sounds
        return 10 * std::log10((std::pow(10, loudness(0) / 10) + std::pow(10, loudness(1) / 10) +
                                std::pow(10, loudness(2) / 10)) /
                               3);
    };
    const double before01 = loudness(0) - loudness(1), before12 = loudness(1) - loudness(2);
    const double medianOfFour = (event0() + loudness(80)) / 2; // the click's is the quietest

    LevelMatchPlan plan = planLevelMatch(program.path(), names, -20).value();
    ASSERT_EQ(plan.sounds.size(), 6);
    // The last sound breaks after the others were prepared: none of them changes.
    const QByteArray before0 = readFile(program.filePath("0.wav")),
                     before4 = readFile(program.filePath("4.wav"));
    test::writeFile(program.filePath("80.wav"), "kein Ton mehr");
    EXPECT_TRUE(applyLevelMatch(program.path(), plan).error().text.contains("Soundnummer 80"));
    EXPECT_EQ(readFile(program.filePath("0.wav")), before0);
    EXPECT_EQ(readFile(program.filePath("4.wav")), before4);
    EXPECT_FALSE(planLevelMatch(program.path(), names));

    writeSound(program.filePath("80.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, DecoderSampleRate, 1,
               1000, std::pow(10, -20 / 20.0));
    plan = planLevelMatch(program.path(), names).value();
    EXPECT_NEAR(plan.targetLufs, medianOfFour, 1e-6);
    plan.setTarget(-20);
    ASSERT_TRUE(applyLevelMatch(program.path(), plan));
    for (const double lufs : {event0(), loudness(4), loudness(80)})
        EXPECT_NEAR(lufs, -20, 0.5);
    EXPECT_NEAR(loudness(0) - loudness(1), before01, 0.1);
    EXPECT_NEAR(loudness(1) - loudness(2), before12, 0.1);
    EXPECT_EQ(measureSoundLevels(program.filePath("4.wav")).value().sampleRate, 22050);
    // The click could come up by 2 dB only: its peak then stands at -1 dBFS.
    EXPECT_TRUE(plan.sounds.at(4).limited && plan.sounds.at(4).soundNumber == 12);
    EXPECT_NEAR(measureSoundLevels(program.filePath("12.wav")).value().peakDbfs, -1, 0.1);
}

} // namespace
} // namespace klangor
