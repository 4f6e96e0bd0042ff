#include "playback/pcmconvert.h"

#include <gtest/gtest.h>

namespace klangor {
namespace {

struct ConvertCase
{
    const char *name;
    PcmSound in;
    PcmFormat to;
    std::vector<qint16> want;
};

const ConvertCase convertCases[] = {
    {"sameFormatIsUnchanged", {{11025, 1}, {1, -2, 3}}, {11025, 1}, {1, -2, 3}},
    {"monoToStereoCopies", {{11025, 1}, {5, -7}}, {11025, 2}, {5, 5, -7, -7}},
    {"stereoToMonoAverages", {{11025, 2}, {100, 300, -10, -30}}, {11025, 1}, {200, -20}},
    {"doubleRateInterpolates",
     {{11025, 1}, {0, 100, 200}},
     {22050, 1},
     {0, 50, 100, 150, 200, 200}},
    {"halfRateTakesEveryOther", {{22050, 1}, {0, 10, 20, 30}}, {11025, 1}, {0, 20}},
    {"rateAndChannelsTogether", {{11025, 2}, {0, 20, 100, 120}}, {22050, 1}, {10, 60, 110, 110}},
    {"emptyStaysEmpty", {{44100, 2}, {}}, {11025, 1}, {}},
};

class ConvertPcm : public ::testing::TestWithParam<ConvertCase>
{};

TEST_P(ConvertPcm, GivesTheExpectedSamples)
{
    const PcmSound out = convertPcm(GetParam().in, GetParam().to);
    EXPECT_EQ(out.format, GetParam().to);
    EXPECT_EQ(out.samples, GetParam().want);
}

INSTANTIATE_TEST_SUITE_P(Table, ConvertPcm, ::testing::ValuesIn(convertCases),
                         [](const auto &param) { return std::string(param.param.name); });

} // namespace
} // namespace klangor
