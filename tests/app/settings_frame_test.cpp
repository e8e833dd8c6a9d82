#include "app/settings/settings_frame.h"

#include <gtest/gtest.h>

#include "tests/app/settings_test_util.h"

namespace trovix::app {
namespace {

TEST(FrameSettings, RoundTripAndPlacementOfAnotherSizeIsIgnored) {
  testing::TempFolder dir;
  const std::string ini = dir.path("trovix.ini");
  {
    auto store = SettingsStore::OpenFile(ini);
    FrameSettings f;
    f.binWindowPlacement.emplace();
    f.binWindowPlacement->fill(7);
    f.bPlainMode = 1;
    f.binLastRule = {1, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(SaveFrameSettings(*store, f), kSettingsOk);
  }
  FrameSettings back = LoadFrameSettings(*SettingsStore::OpenFile(ini));
  ASSERT_TRUE(back.binWindowPlacement.has_value());
  EXPECT_EQ((*back.binWindowPlacement)[43], 7);
  EXPECT_EQ(back.bPlainMode, 1u);
  EXPECT_EQ(back.binLastRule.size(), 8u);

  // A 40-byte placement (an older record) is not a placement.
  testing::WriteWholeFile(ini, "[frame]\nbinWindowPlacement=" + std::string(80, '0') + "00\n");
  EXPECT_FALSE(LoadFrameSettings(*SettingsStore::OpenFile(ini)).binWindowPlacement);
}

}  // namespace
}  // namespace trovix::app
