#include "ui/conversiondialog.h"

#include <gtest/gtest.h>
#include <QCheckBox>
#include <QRadioButton>

namespace klangor {
namespace {

TEST(ConversionDialog, OffersTheCutOnlyPast5900msAndReturnsTheChoices)
{
    EXPECT_EQ(ConversionDialog("kurz.wav", 5.9).findChild<QCheckBox *>("Kuerzen"), nullptr);
    ConversionDialog dialog("lang.wav", 5.91);
    EXPECT_EQ(dialog.options(), (ConversionOptions{.eightBit = false, .trim = true}));
    dialog.findChild<QRadioButton *>("Bits8")->setChecked(true);
    dialog.findChild<QCheckBox *>("Kuerzen")->setChecked(false);
    EXPECT_EQ(dialog.options(), (ConversionOptions{.eightBit = true, .trim = false}));
}

} // namespace
} // namespace klangor
