#include "app/settings/saved_lists.h"

#include <gtest/gtest.h>

#include <cstring>

#include "app/settings/settings.h"
#include "rules/blob/rule_blob.h"
#include "tests/app/settings_test_util.h"
#include "tests/rules/rule_test_util.h"

namespace trovix::app {
namespace {

using testing::TempFolder;
using rules::testing::NameKey;
using rules::testing::SizeIs;
using rules::testing::TextRule;

class SavedListsBoth : public testing::BothStores {
 protected:
  // Writes one entry's values straight into the store, as another build might have left them.
  void Put(SettingsStore& store, const std::string& section, const std::string& name,
           const std::string& text) {
    store.Open(section, false).WriteString(name, text);
  }
};

std::vector<rules::RulePtr> SomeRules(const std::string& pattern) {
  return {TextRule(NameKey(), pattern), SizeIs(42, rules::kContextOr, 1)};
}

std::vector<uint8_t> Bytes(size_t n, uint8_t fill) { return std::vector<uint8_t>(n, fill); }

TEST_P(SavedListsBoth, GapsEndAListAndBadEntriesAreSkipped) {
  auto store = Open();
  const std::string blob = rules::Serialise(SomeRules("*.txt"));
  auto put_search = [&](int index, const std::string& name, const std::string& filter) {
    SettingsSection s = store->Open("SavedSearch\\" + std::to_string(index), false);
    s.WriteString("szName", name);
    s.WriteBinary("binFilter", reinterpret_cast<const uint8_t*>(filter.data()),
                  static_cast<uint32_t>(filter.size()));
  };
  put_search(0, "first", blob);
  put_search(1, "", blob);                    // no name: skipped
  put_search(2, "no rules", std::string(4, '\x01'));  // wrong version: no rule survives
  put_search(3, "fourth", blob);
  put_search(5, "after the gap", blob);
  std::vector<SavedSearch> loaded = LoadSavedSearches(*store);
  ASSERT_EQ(loaded.size(), 2u);
  EXPECT_EQ(loaded[0].szName, "first");
  EXPECT_EQ(loaded[1].szName, "fourth");
}

TEST_P(SavedListsBoth, SavingDeletesTheIndexAfterTheLastAndStaleValues) {
  auto store = Open();
  std::vector<SavedSearch> three = {MakeSavedSearch("a", SomeRules("a"), "/a"),
                                    MakeSavedSearch("b", SomeRules("b"), std::nullopt),
                                    MakeSavedSearch("c", SomeRules("c"), std::nullopt)};
  SaveSavedSearches(*store, three);
  Put(*store, "SavedSearch\\3", "szName", "older, beyond");
  Put(*store, "SavedSearch\\3", "binFilter", "");
  SaveSavedSearches(*store, {MakeSavedSearch("z", SomeRules("z"), std::nullopt)});
  ASSERT_EQ(store->Commit(), kSettingsOk);

  std::vector<SavedSearch> loaded = LoadSavedSearches(*store);
  ASSERT_EQ(loaded.size(), 1u);
  EXPECT_EQ(loaded[0].szName, "z");
  EXPECT_FALSE(loaded[0].szRoot.has_value());  // "a"'s root did not survive in entry 0
  std::string stale;
  EXPECT_EQ(store->Open("SavedSearch\\2", true).ReadString("szName", &stale), kSettingsOk);
  EXPECT_EQ(stale, "c");  // kept, but unreachable behind the deleted index 1
}

TEST_P(SavedListsBoth, LayoutsKeepTheirLengthRules) {
  auto store = Open();
  RuleBoxLayout good{"two boxes", {101, 102}, Bytes(40, 7), Bytes(3 * 44, 9), 640};
  RuleBoxLayout no_width{"no width", {}, {}, Bytes(44, 1), 0};
  SaveLayouts(*store, {good, no_width});
  store->Open("BoxBars\\1", false).DeleteValue("nRebarWidth");
  struct Bad {
    const char* what;
    RuleBoxLayout layout;
  };
  const Bad bad[] = {
      {"3 property records for 4 boxes", {"x", {1, 2, 3, 4}, Bytes(60, 0), Bytes(5 * 44, 0), 0}},
      {"property block not whole records", {"x", {1}, Bytes(21, 0), Bytes(2 * 44, 0), 0}},
      {"as many bands as boxes", {"x", {1, 2}, Bytes(40, 0), Bytes(2 * 44, 0), 0}},
      {"band block not whole records", {"x", {1}, Bytes(20, 0), Bytes(100, 0), 0}},
  };
  for (const Bad& b : bad) {
    SCOPED_TRACE(b.what);
    EXPECT_FALSE(IsValidLayout(b.layout));
    SaveLayouts(*store, {good, b.layout, no_width});
    std::vector<RuleBoxLayout> loaded = LoadLayouts(*store);
    ASSERT_EQ(loaded.size(), 2u);
    EXPECT_EQ(loaded[1].szName, "no width");
  }
  // A tool-identifier block that is not whole identifiers drops the layout too.
  SaveLayouts(*store, {good});
  store->Open("BoxBars\\0", false).WriteBinary("binToolID", Bytes(6, 0));
  EXPECT_TRUE(LoadLayouts(*store).empty());

  SaveLayouts(*store, {good, no_width}, kFrameLayoutList);
  std::vector<RuleBoxLayout> frame = LoadLayouts(*store, kFrameLayoutList);
  ASSERT_EQ(frame.size(), 2u);
  EXPECT_EQ(frame[0].binToolID, (std::vector<uint32_t>{101, 102}));
  EXPECT_EQ(frame[0].binProps, good.binProps);
  EXPECT_EQ(frame[0].binBands, good.binBands);
  EXPECT_EQ(frame[0].nRebarWidth, 640);
}

TEST_P(SavedListsBoth, MapAreasDefaultToNewYorkAndDropBadBlocks) {
  auto store = Open();
  std::vector<MapArea> areas = LoadMapAreas(*store);
  ASSERT_EQ(areas.size(), 1u);
  EXPECT_EQ(areas[0].szName, "New York");
  EXPECT_DOUBLE_EQ(areas[0].top, 40.9921);
  EXPECT_DOUBLE_EQ(areas[0].right, -73.5214);

  SaveMapAreas(*store, {MapArea{"Oslo", 60.0, 10.5, 59.8, 10.9}, MapArea{"bad", 1, 2, 3, 4}});
  store->Open("MapRects\\1", false).WriteBinary("binCoords", Bytes(31, 0));
  ASSERT_EQ(store->Commit(), kSettingsOk);
  areas = LoadMapAreas(*store);
  ASSERT_EQ(areas.size(), 1u);
  EXPECT_EQ(areas[0].szName, "Oslo");
  EXPECT_EQ(areas[0].left, 10.5);
  // The stored block is the four doubles in little-endian order.
  std::vector<uint8_t> block;
  ASSERT_EQ(store->Open("MapRects\\0", true).ReadBinary("binCoords", &block), kSettingsOk);
  ASSERT_EQ(block.size(), 32u);
  double bottom;
  std::memcpy(&bottom, block.data() + 16, 8);
  EXPECT_EQ(bottom, 59.8);
}

TEST_P(SavedListsBoth, OnlyTheNewestThirtyFrequentFoldersLoad) {
  auto store = Open();
  for (int i = 0; i < 35; ++i) {
    SettingsSection s = store->Open("FrequentDir\\" + std::to_string(i), false);
    s.WriteString("szItem", "/f/" + std::to_string(i));
    s.WriteInt("nFreq", i == 7 ? 0 : 2);
  }
  std::vector<FrequentFolder> loaded = LoadFrequentFolders(*store);
  ASSERT_EQ(loaded.size(), 29u);  // entries 5 to 34, less the unused entry 7
  EXPECT_EQ(loaded.front().szItem, "/f/5");
  EXPECT_EQ(loaded[2].szItem, "/f/8");
  EXPECT_EQ(loaded.back().szItem, "/f/34");
  EXPECT_EQ(loaded.back().hash, FrequentHash("/f/34"));

  // Saving the shorter list leaves 30 to 34 behind the deleted index 29; they do not push the
  // start of the next loading past the newest entries.
  SaveFrequentFolders(*store, loaded);
  std::vector<FrequentFolder> again = LoadFrequentFolders(*store);
  ASSERT_EQ(again.size(), 29u);
  EXPECT_EQ(again.front().szItem, "/f/5");
}

TROVIX_BOTH_STORES(SavedListsBoth);

TEST(SavedLists, SaveSettingsWritesTheListsThroughItsCallback) {
  TempFolder dir;
  auto store = SettingsStore::OpenFile(dir.path("trovix.ini"));
  SettingsEnvironment env = DefaultSettingsEnvironment({dir.path(), dir.path()}, kStorageFile);
  env.find_program = nullptr;
  env.diagnostics = nullptr;
  env.set_commander_ini = false;
  Settings settings = LoadSettings(*store, env);
  SavedLists lists = LoadSavedLists(*store);
  lists.searches.push_back(MakeSavedSearch("mine", SomeRules("*.c"), std::nullopt));
  NoteFrequentUse(&lists.frequent, "/home");
  SaveOptions options;
  options.save_lists = SavedListsSaver(lists);
  ASSERT_EQ(SaveSettings(*store, settings, env, options), kSettingsOk);

  auto reopened = SettingsStore::OpenFile(dir.path("trovix.ini"));
  SavedLists again = LoadSavedLists(*reopened);
  ASSERT_EQ(again.searches.size(), 1u);
  EXPECT_EQ(again.searches[0].szName, "mine");
  ASSERT_EQ(again.map_areas.size(), 1u);  // the default area is kept like any other
  ASSERT_EQ(again.frequent.size(), 1u);
  EXPECT_EQ(again.frequent[0].nFreq, 1);
}

// The console's "saved save" drives the common cases (same rules, another root, a name taken);
// these are the edges it does not reach.
TEST(SavedLists, SameParametersAreFoundByRulesAndRoot) {
  std::vector<SavedSearch> list = {MakeSavedSearch("plain", SomeRules("*.txt"), std::nullopt)};
  EXPECT_EQ(FindSameSearch(list, SomeRules("*.txt"), ""), 0u);  // an empty root is none
  EXPECT_EQ(FindSameSearch(list, SomeRules("*.TXT"), std::nullopt), std::nullopt);
  EXPECT_EQ(FindSameSearch(list, {TextRule(NameKey(), "*.txt")}, std::nullopt), std::nullopt);
  EXPECT_EQ(FindSavedSearch(list, "pla"), std::nullopt);
}

TEST(SavedLists, MenuCommandsSelectEntriesInTheirRange) {
  EXPECT_EQ(EntryForCommand(40102, kSavedSearchCommandFirst, 3), 2u);
  EXPECT_EQ(EntryForCommand(40105, kSavedSearchCommandFirst, 3), std::nullopt);
  EXPECT_EQ(EntryForCommand(40009, kLayoutCommandFirst, 50), 9u);
  EXPECT_EQ(EntryForCommand(40050, kLayoutCommandFirst, 100), std::nullopt);
  EXPECT_EQ(EntryForCommand(40199, kMapAreaCommandFirst, 5), std::nullopt);
}

TEST(SavedLists, FrequentUseRaisesCountsAndMakesRoomWhenFull) {
  std::vector<FrequentFolder> list;
  NoteFrequentUse(&list, "/a");
  NoteFrequentUse(&list, "/a");
  NoteFrequentUse(&list, "");
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].nFreq, 2);
  for (int i = 0; i < 29; ++i) NoteFrequentUse(&list, "/x" + std::to_string(i));
  NoteFrequentUse(&list, "/new");
  ASSERT_EQ(list.size(), kMaxFrequent);
  EXPECT_EQ(list[0].szItem, "/a");   // used twice, kept
  EXPECT_EQ(list[1].szItem, "/x1");  // "/x0", the oldest used once, made room
  EXPECT_EQ(list.back().szItem, "/new");
}

}  // namespace
}  // namespace trovix::app
