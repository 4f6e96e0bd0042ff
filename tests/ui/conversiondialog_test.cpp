#include "ui/conversiondialog.h"

#include <gtest/gtest.h>
#include <QCheckBox>
#include <QLabel>
#include <QRadioButton>

namespace klangor {
namespace {

SoundLevels levels(qint64 framesRead, qint64 framesPromised)
{
    return {.peakDbfs = -30,
            .loudnessLufs = -40.54,
            .framesRead = framesRead,
            .framesPromised = framesPromised,
            .sampleRate = 10000};
}

TEST(ConversionDialog, ShowsTheLevelsOffersTheCutOnlyPast5900msAndReturnsTheChoices)
{
    const ConversionDialog whole("kurz.wav", levels(59000, 59000));
    EXPECT_EQ(whole.findChild<QCheckBox *>("Kuerzen"), nullptr);
    EXPECT_EQ(whole.findChild<QLabel *>("Pegel")->text(),
              "Spitze: -30,0 dBFS, Lautheit: -40,5 LUFS");
    EXPECT_EQ(whole.findChild<QLabel *>("Lesbar"), nullptr);

    ConversionDialog cut("lang.wav", levels(59100, 90000));
    EXPECT_EQ(cut.findChild<QLabel *>("Lesbar")->text(), readablePartText(levels(59100, 90000)));
    EXPECT_EQ(cut.options(),
              (ConversionOptions{.eightBit = false, .trim = true, .normalize = false}));
    cut.findChild<QRadioButton *>("Bits8")->setChecked(true); // brings the level's raise along
    cut.findChild<QCheckBox *>("Kuerzen")->setChecked(false);
    EXPECT_EQ(cut.options(),
              (ConversionOptions{.eightBit = true, .trim = false, .normalize = true}));
}

} // namespace
} // namespace klangor
