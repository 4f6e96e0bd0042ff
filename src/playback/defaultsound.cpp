#include "playback/defaultsound.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace klangor {

namespace {

PcmSound synthesizeChime()
{
    constexpr int rate = 11025;
    constexpr int frames = rate * 3 / 10;
    constexpr double attackSeconds = 0.008;
    constexpr double releaseSeconds = 0.04;
    constexpr double decaySeconds = 0.09; // time constant of the exponential decay
    constexpr double peak = 0.3 * 32767.0;
    constexpr double fundamental = 880.0;

    PcmSound sound;
    sound.format = {rate, 1};
    sound.samples.resize(frames);
    const double total = static_cast<double>(frames - 1) / rate;
    for (int i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i) / rate;
        // Raised-cosine attack and release keep both ends at exactly zero: no click.
        double envelope = std::exp(-t / decaySeconds);
        if (t < attackSeconds)
            envelope *= 0.5 - 0.5 * std::cos(std::numbers::pi * t / attackSeconds);
        if (total - t < releaseSeconds)
            envelope *= 0.5 - 0.5 * std::cos(std::numbers::pi * (total - t) / releaseSeconds);
        // A quieter octave that fades faster gives the tone a bell-like start.
        const double tone =
            std::sin(2.0 * std::numbers::pi * fundamental * t) +
            0.3 * std::exp(-t / 0.04) * std::sin(2.0 * std::numbers::pi * 2.0 * fundamental * t);
        const double value = std::clamp(peak * envelope * tone / 1.3, -32767.0, 32767.0);
        sound.samples[static_cast<std::size_t>(i)] = static_cast<qint16>(std::lround(value));
    }
    return sound;
}

} // namespace

const PcmSound &defaultSound()
{
    static const PcmSound chime = synthesizeChime();
    return chime;
}

} // namespace klangor
