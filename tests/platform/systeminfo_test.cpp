#include "platform/fakeplatform.h"
#include "platform/systeminfo.h"

#include <gtest/gtest.h>

namespace klangor {
namespace {

TEST(SystemInfo, StartsOnlyTheFirstInstalledProgramOfTheList)
{
    test::FakeProgramLauncher launcher;
    EXPECT_FALSE(startSystemInfo(launcher)); // nothing installed
    launcher.installed = QStringList{"lxtask", "gnome-system-monitor", "hardinfo"};
    launcher.asked.clear();
    EXPECT_TRUE(startSystemInfo(launcher));
    EXPECT_EQ(launcher.asked, QStringList({"hardinfo2", "hardinfo"}));
}

} // namespace
} // namespace klangor
