#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>

#include "base/file_time.h"
#include "platform/file_status.h"
#include "props/catalogue.h"
#include "props/fetcher.h"
#include "props/stock.h"
#include "tests/support/temp_tree.h"

namespace trovix::props {
namespace {

const PropertyInfo& Prop(const char* name) {
  const PropertyInfo* p = DefaultCatalogue().FindProperty(name);
  EXPECT_NE(p, nullptr) << name;
  return *p;
}

std::string Text(ShellItem& item, const char* name) {
  PropValue v;
  FetchValue(item, Prop(name), &v);
  return v.text();
}

TEST(Fetcher, NamesPathsAndExtensionOfAFile) {
  testing::TempTree tree({"docs/report.final.txt=hello", "docs/.bashrc", "docs/noext"});
  auto item = ShellItem::FromPath(tree.path("docs/report.final.txt"));
  EXPECT_EQ(Text(*item, "System.ItemNameDisplay"), "report.final.txt");
  EXPECT_EQ(Text(*item, "System.ItemPathDisplay"), tree.path("docs/report.final.txt"));
  EXPECT_EQ(Text(*item, "System.ItemFolderPathDisplay"), tree.path("docs"));
  EXPECT_EQ(Text(*item, "System.FileExtension"), ".txt");

  PropValue v;
  EXPECT_EQ(FetchValue(*ShellItem::FromPath(tree.path("docs/noext")), Prop("System.FileExtension"), &v), S_FALSE);
  EXPECT_TRUE(v.IsEmpty());
  EXPECT_EQ(FetchValue(*ShellItem::FromPath(tree.path("docs/.bashrc")), Prop("System.FileExtension"), &v), S_FALSE);
  EXPECT_EQ(FetchValue(*ShellItem::FromPath(tree.path("docs")), Prop("System.FileExtension"), &v), S_FALSE);
  EXPECT_EQ(FetchValue(*item, Prop("System.Size"), nullptr), E_POINTER);
}

TEST(Fetcher, SizeAndDatesFromTheFileStatus) {
  testing::TempTree tree({"a.bin=12345", "dir/"});
  std::string path = tree.path("a.bin");
  struct timeval times[2] = {{1'600'000'000, 0}, {1'500'000'000, 500'000}};
  ASSERT_EQ(utimes(path.c_str(), times), 0);
  auto item = ShellItem::FromPath(path);
  PropValue v;
  ASSERT_EQ(FetchValue(*item, Prop("System.Size"), &v), S_OK);
  EXPECT_EQ(v.tag(), VT_UI8);
  EXPECT_EQ(v.AsInt64(), 5);
  ASSERT_EQ(FetchValue(*item, Prop("System.DateModified"), &v), S_OK);
  EXPECT_EQ(v.tag(), VT_FILETIME);
  EXPECT_EQ(v.AsInt64(), base::FileTimeFromUnix(1'500'000'000, 500'000'000));
  EXPECT_EQ(FetchValue(*item, Prop("System.DateCreated"), &v), S_OK);
  // A folder has no size of its own.
  EXPECT_EQ(FetchValue(*ShellItem::FromPath(tree.path("dir")), Prop("System.Size"), &v), S_FALSE);
}

TEST(Fetcher, VanishedItemHasNoStatusValues) {
  testing::TempTree tree({"gone.txt"});
  auto item = ShellItem::FromPath(tree.path("gone.txt"));
  ASSERT_EQ(unlink(tree.path("gone.txt").c_str()), 0);
  PropValue v;
  EXPECT_EQ(FetchValue(*item, Prop("System.Size"), &v), E_FAIL);
  EXPECT_EQ(FetchValue(*item, Prop("Stock.FileAttributes"), &v), E_FAIL);
  // The name is still known from the path.
  EXPECT_EQ(Text(*item, "System.ItemNameDisplay"), "gone.txt");
}

TEST(Fetcher, StockFolderAndAttributes) {
  testing::TempTree tree({"dir/", ".hidden.txt", "plain.txt", "link->dir"});
  PropValue v;
  ASSERT_EQ(FetchValue(*ShellItem::FromPath(tree.path("dir")), Prop("Stock.IsFolder"), &v), S_OK);
  EXPECT_EQ(v.tag(), VT_BOOL);
  EXPECT_EQ(v.AsInt64(), -1);
  ASSERT_EQ(FetchValue(*ShellItem::FromPath(tree.path("plain.txt")), Prop("Stock.IsFolder"), &v), S_OK);
  EXPECT_EQ(v.AsInt64(), 0);
  // A link to a folder is a folder item that also carries the reparse-point letter.
  auto link = ShellItem::FromPath(tree.path("link"));
  EXPECT_TRUE(link->IsFolder());
  EXPECT_EQ(Text(*link, "Stock.FileAttributes"), "----D---J---");

  ASSERT_EQ(chmod(tree.path(".hidden.txt").c_str(), 0444), 0);
  EXPECT_EQ(Text(*ShellItem::FromPath(tree.path(".hidden.txt")), "Stock.FileAttributes"), "RH----------");
  EXPECT_EQ(Text(*ShellItem::FromPath(tree.path("dir")), "Stock.FileAttributes"), "----D-------");
  // Not computed yet: no value, no failure reaching the user.
  EXPECT_EQ(FetchValue(*ShellItem::FromPath(tree.path("plain.txt")), Prop("Stock.SignedBy"), &v), E_FAIL);
  EXPECT_EQ(FetchValue(*ShellItem::FromPath(tree.path("plain.txt")), Prop("*"), &v), E_FAIL);
}

TEST(Fetcher, NamesThatAreNotUtf8AreShownWithReplacementCharacters) {
  testing::TempTree tree({"bad\xff.txt"});
  auto item = ShellItem::FromPath(tree.path("bad\xff.txt"));
  EXPECT_EQ(item->name(), "bad\xff.txt");
  EXPECT_EQ(Text(*item, "System.ItemNameDisplay"), "bad\xEF\xBF\xBD.txt");
  EXPECT_NE(item->Status(), nullptr);  // the raw bytes still reach the file
}

TEST(Fetcher, CachedValuesAreFetchedOnce) {
  testing::TempTree tree({"a.txt=abc"});
  auto item = ShellItem::FromPath(tree.path("a.txt"));
  const CachedValue* first = GetCachedValue(*item, Prop("System.Size"));
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->value.AsInt64(), 3);
  // Growing the file does not change the cached answer for this item.
  tree.Add("a.txt=abcdef");
  EXPECT_EQ(GetCachedValue(*item, Prop("System.Size")), first);
  EXPECT_EQ(GetCachedValue(*item, Prop("System.Size"))->value.AsInt64(), 3);
  EXPECT_EQ(GetCachedValue(*ShellItem::FromPath(tree.path("a.txt")), Prop("System.Size"))->value.AsInt64(), 6);
}

TEST(ShellItem, AttributeCacheAsksOnlyForUnknownBits) {
  testing::TempTree tree({"dir/", ".dot"});
  auto dir = ShellItem::FromPath(tree.path("dir"));
  EXPECT_EQ(dir->GetAttributes(SFGAO_FOLDER | SFGAO_HIDDEN), SFGAO_FOLDER);
  ASSERT_EQ(rmdir(tree.path("dir").c_str()), 0);
  // Already known bits keep their answers; newly asked ones fail as not set.
  EXPECT_EQ(dir->GetAttributes(SFGAO_FOLDER), SFGAO_FOLDER);
  auto dot = ShellItem::FromPath(tree.path(".dot"));
  EXPECT_EQ(dot->GetAttributes(SFGAO_HIDDEN | SFGAO_FILESYSTEM), SFGAO_HIDDEN | SFGAO_FILESYSTEM);
  auto missing = ShellItem::FromPath(tree.path("missing"));
  EXPECT_EQ(missing->FileAttributes(), platform::kAttributesUnknown);
  EXPECT_EQ(missing->FileAttributes(true), 0u);
  EXPECT_EQ(missing->GetAttributes(SFGAO_FOLDER), 0u);
}

}  // namespace
}  // namespace trovix::props
