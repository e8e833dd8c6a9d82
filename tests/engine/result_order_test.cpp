#include <gtest/gtest.h>

#include <algorithm>

#include "engine/results/result_order.h"
#include "props/catalogue.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine {
namespace {

using props::PropValue;

TEST(CompareValues, EmptyFirstThenByKind) {
  EXPECT_LT(CompareValues(PropValue(), PropValue::UInt64(0), false), 0);
  EXPECT_GT(CompareValues(PropValue::Text("a"), PropValue(), false), 0);
  EXPECT_EQ(CompareValues(PropValue(), PropValue(), false), 0);
  EXPECT_LT(CompareValues(PropValue::Int64(-5), PropValue::UInt64(3), false), 0);
  EXPECT_LT(CompareValues(PropValue::Double(1.5), PropValue::Double(2.25), false), 0);
  EXPECT_EQ(CompareValues(PropValue::Text("Readme"), PropValue::Text("README"), false), 0);
}

TEST(CompareItems, FoldersFirstWhateverTheDirectionThenNameTieBreak) {
  testing::TempTree tree({"b.txt=12", "a.txt=12", "zdir/", "c.txt=1"});
  std::vector<props::ShellItemPtr> items;
  for (const char* n : {"b.txt", "a.txt", "zdir", "c.txt"}) items.push_back(props::ShellItem::FromPath(tree.path(n)));
  SortOptions options;
  options.folders_first = true;
  options.keys.push_back({props::DefaultCatalogue().FindProperty("System.Size"), false});
  std::sort(items.begin(), items.end(),
            [&](const auto& x, const auto& y) { return CompareItems(*x, *y, options) < 0; });
  std::vector<std::string> names;
  for (auto& i : items) names.emplace_back(i->name());
  // Folder first although sizes run descending and it has none; equal sizes fall back to name.
  EXPECT_EQ(names, (std::vector<std::string>{"zdir", "a.txt", "b.txt", "c.txt"}));
}

}  // namespace
}  // namespace trovix::engine
