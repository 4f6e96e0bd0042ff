#include "playback/pcmconvert.h"

#include <algorithm>
#include <cmath>

namespace klangor {

namespace {

PcmSound convertChannels(const PcmSound &sound, int channels)
{
    const int from = sound.format.channels;
    const qint64 frames = sound.frameCount();
    PcmSound out;
    out.format = {sound.format.sampleRate, channels};
    out.samples.resize(static_cast<std::size_t>(frames * channels));
    for (qint64 f = 0; f < frames; ++f) {
        const qint16 *in = sound.samples.data() + f * from;
        qint16 *dst = out.samples.data() + f * channels;
        if (channels == 1) {
            long sum = 0;
            for (int c = 0; c < from; ++c)
                sum += in[c];
            dst[0] = static_cast<qint16>(sum / from);
        } else {
            for (int c = 0; c < channels; ++c)
                dst[c] = in[std::min(c, from - 1)];
        }
    }
    return out;
}

PcmSound convertRate(const PcmSound &sound, int rate)
{
    const int channels = sound.format.channels;
    const qint64 inFrames = sound.frameCount();
    const qint64 outFrames = inFrames * rate / sound.format.sampleRate;
    const double step = static_cast<double>(sound.format.sampleRate) / rate;
    PcmSound out;
    out.format = {rate, channels};
    out.samples.resize(static_cast<std::size_t>(outFrames * channels));
    for (qint64 f = 0; f < outFrames; ++f) {
        const double position = static_cast<double>(f) * step;
        const auto left = static_cast<qint64>(position);
        const qint64 right = std::min(left + 1, inFrames - 1);
        const double weight = position - static_cast<double>(left);
        for (int c = 0; c < channels; ++c) {
            const double a = sound.samples[static_cast<std::size_t>(left * channels + c)];
            const double b = sound.samples[static_cast<std::size_t>(right * channels + c)];
            out.samples[static_cast<std::size_t>(f * channels + c)] =
                static_cast<qint16>(std::lround(a + (b - a) * weight));
        }
    }
    return out;
}

} // namespace

PcmSound convertPcm(const PcmSound &sound, const PcmFormat &to)
{
    if (to.channels <= 0 || to.sampleRate <= 0 || sound.format.channels <= 0 ||
        sound.format.sampleRate <= 0)
        return PcmSound{to, {}};
    PcmSound out =
        sound.format.channels == to.channels ? sound : convertChannels(sound, to.channels);
    if (out.format.sampleRate != to.sampleRate)
        out = convertRate(out, to.sampleRate);
    return out;
}

} // namespace klangor
