// Converts the same 20 generated sounds (rates from 22050 to 96000 Hz, mono and stereo,
// 16/24-bit and float; 5.5 s of a chord with a little noise, faded in and out over 10 ms and
// peaking at -1 dBFS, as sounds for a decoder are prepared) with Klangor's batch, as
// `klangor convert` runs it, and with Debian's
// `sox IN -D -b 16 OUT remix - rate -v 11025`, one sox run per file. Prints how far the outputs
// differ (the energy of all differences over that of all of sox's output, in dB; the worst file
// alone too) and both batch times, the best of three rounds. Exits 1 when they differ by
// -90 dB or more, or when Klangor is slower. Both round to 16 bits without dither, so the
// outputs differ by at most one step, where the two resamplers land on either side of it.
// Exits 1 too when Klangor takes more than half of sox's time.
//
// Before that, the program itself, as `klangor loudness` and `klangor convert --trim --normalize`
// on a 10-minute 48 kHz stereo recording: the larger of their peak resident memory (below
// 64 MB). Last, the loudness matching of a whole set of 72 sounds, measured and rewritten (below 1
// s).
#include "common/wavewriter.h"
#include "platform/programfiles.h"
#include "playback/wavedecoder.h"
#include "soundset/levelmatch.h"
#include "soundset/soundconversion.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fcntl.h>
#include <numbers>
#include <optional>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QtEndian>
#include <random>
#include <spawn.h>
#include <sys/resource.h>
#include <vector>

namespace {

constexpr int Files = 200;
constexpr int Rounds = 5;
constexpr double Seconds = 5.5;

// File i: its rate, channel count and sample format cycle through what users bring.
QString makeInput(const QString &folder, int i)
{
    static const int rates[] = {44100, 48000, 96000, 22050, 32000};
    static const int bits[] = {16, 24, 32};
    klangor::WaveFormat info{1 + i % 2, rates[i % 5], bits[i % 3], i % 3 == 2};
    const QString path =
        QDir(folder).filePath(QStringLiteral("ton%1.wav").arg(i, 2, 10, QChar('0')));
    std::mt19937 random(static_cast<unsigned>(i));
    std::normal_distribution<double> noise(0.0, 0.001);
    const auto frames = static_cast<std::size_t>(Seconds * info.sampleRate);
    const auto channels = static_cast<std::size_t>(info.channels);
    const double root = 110.0 * (1 + i % 4), fade = 0.01 * info.sampleRate;
    std::vector<double> samples(frames * channels);
    for (std::size_t n = 0; n < frames; ++n) {
        const double t = static_cast<double>(n) / info.sampleRate;
        const double envelope = std::min({1.0, n / fade, (frames - 1 - n) / fade});
        for (std::size_t c = 0; c < channels; ++c) {
            double v = noise(random);
            for (int h = 1; h * root < 5000; ++h) // the chord's partials, fading upwards
                v += 1.0 / h * std::sin(2 * std::numbers::pi * h * root * t + h + c);
            samples[n * channels + c] = envelope * v;
        }
    }
    const double peak = *std::max_element(samples.begin(), samples.end(), [](double a, double b) {
        return std::abs(a) < std::abs(b);
    });
    for (double &v : samples)
        v *= 0.891 / std::abs(peak); // -1 dBFS
    QFile file(path);
    const QByteArray bytes = klangor::waveFileBytes(info, klangor::waveSampleBytes(info, samples));
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        return {};
    return path;
}

// The samples of a mono 16-bit file at the decoder's rate, in steps; none for anything else.
std::vector<double> samplesOf(const QString &path)
{
    const std::optional<klangor::PcmSound> sound = klangor::decodeWaveFile(path);
    if (!sound || sound->format != klangor::PcmFormat{klangor::DecoderSampleRate, 1})
        return {};
    return {sound->samples.begin(), sound->samples.end()};
}

// Runs the program built beside the benchmark with each of these calls, before any other child
// of the benchmark; the largest peak resident memory among them in kB, or -1 when one failed.
long peakMemoryKb(const QList<QStringList> &calls)
{
    for (const QStringList &arguments : calls) {
        QProcess program;
        program.setStandardOutputFile(QProcess::nullDevice());
        program.start(QDir(QCoreApplication::applicationDirPath()).filePath("klangor"), arguments);
        if (!program.waitForFinished(600000) || program.exitStatus() != QProcess::NormalExit ||
            program.exitCode() != 0)
            return -1;
    }
    rusage usage{};
    return ::getrusage(RUSAGE_CHILDREN, &usage) == 0 ? usage.ru_maxrss : -1;
}

// 10 minutes of a slowly gliding tone, 48 kHz 16-bit stereo (115 MB), written by blocks.
QString makeLongInput(const QString &folder)
{
    const klangor::WaveFormat format{2, 48000, 16};
    const qint64 frames = qint64(600) * format.sampleRate;
    QByteArray header = klangor::waveFileBytes(format, {});
    qToLittleEndian<quint32>(quint32(36 + frames * 4), header.data() + 4);
    qToLittleEndian<quint32>(quint32(frames * 4), header.data() + 40);
    const QString path = QDir(folder).filePath("zehn-minuten.wav");
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(header) != header.size())
        return {};
    std::vector<double> block(2 * 48000);
    double phase = 0;
    for (qint64 done = 0; done < frames; done += 48000) {
        for (std::size_t n = 0; n < block.size(); n += 2) {
            phase += 2 * std::numbers::pi * (200 + done / 48000.0) / format.sampleRate;
            block[n] = block[n + 1] = 0.5 * std::sin(phase);
        }
        const QByteArray data = klangor::waveSampleBytes(format, block);
        if (file.write(data) != data.size())
            return {};
    }
    return path;
}

// A program folder with 72 assigned sounds of 1 to 5.9 s at levels 30 dB apart; the time to
// measure them and rewrite them matched.
qint64 levelMatchMs(const QString &folder)
{
    klangor::SlotFileNames names;
    const klangor::WaveFormat format{1, klangor::DecoderSampleRate, 16};
    for (int n = 0; n < 72; ++n) {
        std::vector<double> samples(static_cast<std::size_t>((1 + n % 5) * format.sampleRate));
        const double level = std::pow(10, -(3 + n % 31) / 20.0);
        for (std::size_t i = 0; i < samples.size(); ++i)
            samples[i] = level * std::sin(0.3 * i + n) * std::sin(0.0007 * i);
        QFile file(QDir(folder).filePath(klangor::workingFileName(n)));
        const QByteArray bytes =
            klangor::waveFileBytes(format, klangor::waveSampleBytes(format, samples));
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
            return -1;
        names.set(n, QStringLiteral("sound%1.wav").arg(n));
    }
    QElapsedTimer clock;
    clock.start();
    const auto plan = klangor::planLevelMatch(folder, names, -20);
    if (!plan || !klangor::applyLevelMatch(folder, plan.value()))
        return -1;
    return clock.elapsed();
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QTemporaryDir work;
    const QString ours = work.filePath("klangor"), theirs = work.filePath("sox");
    QDir().mkpath(theirs);
    QStringList inputs;
    for (int i = 0; i < Files; ++i)
        inputs << makeInput(work.path(), i);
    if (inputs.contains(QString())) {
        std::puts("the test sounds cannot be written");
        return 1;
    }

    // First, while no other program has run: the memory of the program itself.
    const QString longInput = makeLongInput(work.path());
    const long memoryKb =
        longInput.isEmpty()
            ? -1
            : peakMemoryKb({{"loudness", longInput},
                            {"convert", "--trim", "--normalize", longInput, "-o", work.path()}});

    qint64 klangorMs = -1, soxMs = -1;
    for (int round = 0; round < Rounds; ++round) {
        QElapsedTimer clock;
        clock.start();
        // Each round replaces the last one's outputs, as sox does.
        for (const auto &converted :
             klangor::convertAllForDecoder(inputs, ours, {.overwrite = true})) {
            if (!converted) {
                std::printf("Klangor: %s\n", qPrintable(converted.error().text));
                return 1;
            }
        }
        const qint64 klangorRound = clock.restart();
        for (const QString &input : inputs) {
            QProcess sox;
            sox.start(QStringLiteral("sox"),
                      {input, QStringLiteral("-D"), QStringLiteral("-b"), QStringLiteral("16"),
                       QDir(theirs).filePath(QFileInfo(input).fileName()), QStringLiteral("remix"),
                       QStringLiteral("-"), QStringLiteral("rate"), QStringLiteral("-v"),
                       QStringLiteral("11025")});
            if (!sox.waitForFinished(60000) || sox.exitStatus() != QProcess::NormalExit ||
                sox.exitCode() != 0) {
                std::printf("sox did not run: %s\n", qPrintable(sox.errorString()));
                return 1;
            }
        }
        const qint64 soxRound = clock.elapsed();
        klangorMs = klangorMs < 0 ? klangorRound : std::min(klangorMs, klangorRound);
        soxMs = soxMs < 0 ? soxRound : std::min(soxMs, soxRound);
    }

    double worst = -400, differenceSum = 0, signalSum = 0;
    for (const QString &input : inputs) {
        const QString name = QFileInfo(input).fileName();
        const std::vector<double> a =
            samplesOf(QDir(ours).filePath(klangor::convertedFileName(input)));
        const std::vector<double> b = samplesOf(QDir(theirs).filePath(name));
        if (a.empty() || b.empty() ||
            std::max(a.size(), b.size()) - std::min(a.size(), b.size()) > 1) {
            std::printf("%s: %zu samples from Klangor, %zu from sox\n", qPrintable(name), a.size(),
                        b.size());
            return 1;
        }
        double difference = 0, signal = 0;
        for (std::size_t n = 0; n < std::min(a.size(), b.size()); ++n) {
            difference += (a[n] - b[n]) * (a[n] - b[n]);
            signal += b[n] * b[n];
        }
        worst = std::max(worst, 10 * std::log10(std::max(difference, 1e-40) / signal));
        differenceSum += difference;
        signalSum += signal;
    }
    const double overall = 10 * std::log10(std::max(differenceSum, 1e-40) / signalSum);
    std::printf("difference Klangor - sox: %.1f dB over all %d files, %.1f dB in the worst\n",
                overall, Files, worst);
    const double ratio = static_cast<double>(klangorMs) / std::max<qint64>(soxMs, 1);
    std::printf("batch of %d files: Klangor %lld ms, sox (one run per file) %lld ms, ratio %.2f "
                "(at most 0.5)\n",
                Files, static_cast<long long>(klangorMs), static_cast<long long>(soxMs), ratio);

    const QString program = work.filePath("programm");
    QDir().mkpath(program);
    const qint64 matchMs = levelMatchMs(program);
    std::printf("loudness matching of 72 sounds (measured and rewritten): %lld ms (below 1000)\n",
                static_cast<long long>(matchMs));

    std::printf("10-minute 48 kHz stereo input, peak memory of loudness and of convert --trim "
                "--normalize: at most %.1f MB (below 64 MB)\n",
                memoryKb / 1024.0);
    const bool good = overall < -90 && ratio <= 0.5 && memoryKb > 0 && memoryKb < 64 * 1024 &&
                      matchMs >= 0 && matchMs < 1000;
    std::puts(good ? "conversion benchmark: passed" : "conversion benchmark: FAILED");
    return good ? 0 : 1;
}
