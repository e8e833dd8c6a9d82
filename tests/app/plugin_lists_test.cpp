#include "app/settings/plugin_lists.h"

#include <gtest/gtest.h>

#include "tests/app/settings_test_util.h"

namespace trovix::app {
namespace {

using PluginListsBoth = testing::BothStores;

TEST_P(PluginListsBoth, AGapEndsTheListAndDetectStringsFollowTheirNumbers) {
  auto store = Open();
  SettingsSection s = store->Open(kContentPluginList, false);
  s.WriteString("0", "/plugins/first.wdx");
  s.WriteString("0_detect", "EXT=\"MP3\" | SIZE>10");
  s.WriteString("1", "/plugins/second.so");
  s.WriteString("3", "/plugins/after_gap.wdx");  // number 2 is missing: never read
  s.WriteString("3_detect", "FORCE");
  store->Open(kListerPluginList, false).WriteString("0", "/plugins/lister.wlx");

  std::vector<props::ContentPlugin> plugins = LoadPluginList(*store);
  ASSERT_EQ(plugins.size(), 2u);
  EXPECT_EQ(plugins[0].name, "first");
  EXPECT_EQ(plugins[0].detect_text, "EXT=\"MP3\" | SIZE>10");
  ASSERT_TRUE(plugins[0].detect.has_value());
  EXPECT_TRUE(plugins[0].detect->Matches({"TXT", 11}));
  EXPECT_EQ(plugins[1].index, 1u);
  EXPECT_EQ(plugins[1].library_path, "/plugins/second.so");
  EXPECT_TRUE(plugins[1].detect_text.empty());

  std::vector<props::ContentPlugin> listers = LoadPluginList(*store, kListerPluginList);
  ASSERT_EQ(listers.size(), 1u);
  EXPECT_EQ(listers[0].name, "lister");

  // An empty path ends the list as a missing one does.
  s.WriteString("0", "");
  EXPECT_TRUE(LoadPluginList(*store).empty());
}

TROVIX_BOTH_STORES(PluginListsBoth);

}  // namespace
}  // namespace trovix::app
