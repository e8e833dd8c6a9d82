// Two stores open on one file at once, as the desktop program (open from start to exit) and a
// console command (open for one change) are: each commit keeps what the other stored.
#include "app/settings/settings_merge.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "app/settings/saved_lists.h"
#include "app/settings/settings_store.h"
#include "rules/rule.h"
#include "tests/app/settings_test_util.h"
#include "tests/rules/rule_test_util.h"

namespace trovix::app {
namespace {

using testing::ReadWholeFile;
using testing::TempFolder;
using testing::WriteWholeFile;

class SettingsMergeBoth : public testing::BothStores {
 protected:
  static std::vector<std::string> Names(const SettingsStore& store) {
    std::vector<std::string> names;
    for (const SavedSearch& s : LoadSavedSearches(store)) names.push_back(s.szName);
    return names;
  }
  static SavedSearch Search(const std::string& name) {
    return MakeSavedSearch(name, {rules::testing::TextRule(rules::testing::NameKey(), name)},
                           "/" + name);
  }
};

TEST_P(SettingsMergeBoth, TwoProcessesChangingTheStoreAtOnceLoseNothing) {
  {
    auto first = Open();
    SaveSavedSearches(*first, {Search("kept"), Search("dropped by the program"),
                               Search("changed by the program")});
    first->Open("general", false).WriteInt("nThumbSize", 96);
    ASSERT_EQ(first->Commit(), kSettingsOk);
  }
  auto program = Open();  // open from start to exit
  SavedLists lists = LoadSavedLists(*program);
  ASSERT_EQ(lists.searches.size(), 3u);

  {
    auto console = Open();  // one change while the program runs
    std::vector<SavedSearch> searches = LoadSavedSearches(*console);
    searches.push_back(Search("from the console"));
    SaveSavedSearches(*console, searches);
    console->Open("general", false).WriteInt("bin1OffNotify", 2);
    ASSERT_EQ(console->Commit(), kSettingsOk);
  }

  // The program writes back everything it loaded, with its own changes.
  lists.searches.erase(lists.searches.begin() + 1);
  lists.searches[1].szRoot = "/elsewhere";
  lists.searches.push_back(Search("from the program"));
  SaveSavedSearches(*program, lists.searches);
  program->Open("general", false).WriteInt("nThumbSize", 128);
  ASSERT_EQ(program->Commit(), kSettingsOk);

  auto after = Open();
  EXPECT_EQ(Names(*after), (std::vector<std::string>{"kept", "changed by the program",
                                                     "from the console", "from the program"}));
  EXPECT_EQ(LoadSavedSearches(*after)[1].szRoot, "/elsewhere");
  EXPECT_EQ(after->Open("general", true).GetInt("bin1OffNotify", 0), 2);
  EXPECT_EQ(after->Open("general", true).GetInt("nThumbSize", 0), 128);
  // A later commit of the program applies only what changed since its last one: writing back
  // the lists and values it holds from the start undoes nothing of the console's.
  {
    auto console = Open();
    console->Open("general", false).WriteInt("bin1OffNotify", 3);
    ASSERT_EQ(console->Commit(), kSettingsOk);
  }
  SaveSavedSearches(*program, lists.searches);
  program->Open("general", false).WriteInt("nThumbSize", 128);
  program->Open("frame", false).WriteInt("bShowToolbar", 0);
  ASSERT_EQ(program->Commit(), kSettingsOk);
  auto last = Open();
  EXPECT_EQ(last->Open("general", true).GetInt("bin1OffNotify", 0), 3);
  EXPECT_EQ(last->Open("frame", true).GetInt("bShowToolbar", 1), 0);
  EXPECT_EQ(Names(*last).size(), 4u);
}

TEST_P(SettingsMergeBoth, EntriesOfOneNameStayApartAndADeletionByTheOtherSticks) {
  {
    auto store = Open();
    SaveSavedSearches(*store, {Search("same"), Search("same"), Search("gone")});
    ASSERT_EQ(store->Commit(), kSettingsOk);
  }
  auto program = Open();
  {
    auto console = Open();
    std::vector<SavedSearch> searches = LoadSavedSearches(*console);
    searches.pop_back();  // the console deletes "gone"
    SaveSavedSearches(*console, searches);
    ASSERT_EQ(console->Commit(), kSettingsOk);
  }
  // The program saves the list it loaded, unchanged but for one new entry: "gone" stays gone.
  std::vector<SavedSearch> searches = LoadSavedSearches(*program);
  searches.push_back(Search("new"));
  SaveSavedSearches(*program, searches);
  ASSERT_EQ(program->Commit(), kSettingsOk);
  EXPECT_EQ(Names(*Open()), (std::vector<std::string>{"same", "same", "new"}));
}

TEST_P(SettingsMergeBoth, TheStoreAndItsFolderAreTheOwnersOnly) {
  {
    auto store = Open();
    store->Open("general", false).WriteInt("n", 1);
    ASSERT_EQ(store->Commit(), kSettingsOk);
  }
  struct stat st;
  ASSERT_EQ(stat(Path().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  ASSERT_EQ(stat(dir_.path("cfg").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700u);
  if (GetParam() != StoreKind::kFile) return;
  // A settings file that others could read is narrowed when it is written again.
  chmod(Path().c_str(), 0644);
  {
    auto store = Open();
    store->Open("general", false).WriteInt("n", 2);
    ASSERT_EQ(store->Commit(), kSettingsOk);
  }
  ASSERT_EQ(stat(Path().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TROVIX_BOTH_STORES(SettingsMergeBoth);

// The merge itself, on images: a value this process did not touch keeps the other's change; a
// value it deleted goes; a section it removed stays when another process filled it meanwhile.
TEST(MergeStoreImages, AppliesOnlyThisProcesssChanges) {
  auto value = [](std::string name, std::string data) {
    return StoredValue{std::move(name), SettingsValueType::kString, std::move(data)};
  };
  const StoreImage base = {{"general", {value("a", "1"), value("b", "1"), value("c", "1")}},
                           {"old", {value("x", "1")}}};
  const StoreImage mine = {{"general", {value("a", "1"), value("b", "2")}}};
  const StoreImage fresh = {{"GENERAL", {value("A", "9"), value("b", "1"), value("c", "1")}},
                            {"old", {value("x", "1"), value("y", "other")}}};
  const StoreImage merged = MergeStoreImages(base, mine, fresh);
  ASSERT_EQ(merged.size(), 2u);
  ASSERT_EQ(merged[0].values.size(), 2u);
  EXPECT_EQ(merged[0].values[0].data, "9");  // untouched here: the other's change stays
  EXPECT_EQ(merged[0].values[1].data, "2");  // changed here
  ASSERT_EQ(merged[1].values.size(), 1u);    // "c" deleted here; "old" kept for the other's y
  EXPECT_EQ(merged[1].values[0].name, "y");
}

}  // namespace
}  // namespace trovix::app
