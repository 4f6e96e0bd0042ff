#pragma once

#include <QtGlobal>
#include <vector>

namespace klangor {

struct PcmFormat
{
    int sampleRate = 11025;
    int channels = 1;

    bool operator==(const PcmFormat &) const = default;
};

// Signed 16-bit samples, interleaved by channel; what every decoded sound becomes.
struct PcmSound
{
    PcmFormat format;
    std::vector<qint16> samples;

    qint64 frameCount() const
    {
        return format.channels > 0 ? static_cast<qint64>(samples.size()) / format.channels : 0;
    }
    qint64 durationMilliseconds() const
    {
        return format.sampleRate > 0 ? frameCount() * 1000 / format.sampleRate : 0;
    }
};

} // namespace klangor
