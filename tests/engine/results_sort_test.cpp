// The order of the results list: the precomputed sort keys must give exactly the order that
// engine/results/result_order.h defines, on real files.
#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <vector>

#include "engine/results/result_order.h"
#include "props/shell_item.h"
#include "tests/support/temp_tree.h"
#include "engine/results/column_set.h"
#include "engine/results/results_sort.h"
#include "props/fetcher.h"

namespace trovix::engine {
namespace {

using props::ShellItemPtr;

std::vector<std::string> SortedNames(const testing::TempTree& tree, const std::vector<std::string>& names,
                                     const engine::SortOptions& options) {
  std::vector<ShellItemPtr> items;
  for (const std::string& n : names) items.push_back(props::ShellItem::FromPath(tree.path(n)));
  std::vector<uint32_t> rows(items.size());
  std::iota(rows.begin(), rows.end(), 0u);
  rows = SortRows(items, rows, options, [](props::ShellItem& item, const props::PropertyInfo& p) {
    return &props::GetCachedValue(item, p)->value;
  });
  std::vector<std::string> out;
  for (uint32_t r : rows) out.push_back(std::string(items[r]->name()));
  return out;
}

engine::SortOptions By(const char* property, bool ascending, bool folders_first = false, bool natural = false) {
  engine::SortOptions o;
  o.keys.push_back({PropertyNamed(property), ascending});
  o.folders_first = folders_first;
  o.natural_numbers = natural;
  o.name_ascending = ascending;
  return o;
}

class ResultsSortTest : public ::testing::Test {
 protected:
  testing::TempTree tree{{"file2=22", "file11=1", "big=0123456789012345678901234567890123456789", "a_dir/",
                          "b_dir/", "notes.TXT=abc", "Apple.md=abcd"}};
  std::vector<std::string> all{"file2", "file11", "big", "a_dir", "b_dir", "notes.TXT", "Apple.md"};
};

TEST_F(ResultsSortTest, NaturalOrderPutsFile2BeforeFile11OnlyWhenAsked) {
  EXPECT_EQ(SortedNames(tree, {"file11", "file2"}, By("System.ItemNameDisplay", true, false, true)),
            (std::vector<std::string>{"file2", "file11"}));
  EXPECT_EQ(SortedNames(tree, {"file2", "file11"}, By("System.ItemNameDisplay", true, false, false)),
            (std::vector<std::string>{"file11", "file2"}));
}

TEST_F(ResultsSortTest, FoldersStayFirstWhateverTheDirection) {
  auto descending = SortedNames(tree, all, By("System.Size", false, true));
  ASSERT_EQ(descending.size(), all.size());
  EXPECT_TRUE((descending[0] == "b_dir" || descending[0] == "a_dir") && (descending[1] == "a_dir" || descending[1] == "b_dir"));
  EXPECT_EQ(descending[2], "big");
  EXPECT_EQ(descending.back(), "file11");
  auto ascending = SortedNames(tree, all, By("System.Size", true, true));
  EXPECT_TRUE(ascending[0] == "a_dir" && ascending[1] == "b_dir");
  EXPECT_EQ(ascending[2], "file11");
}

TEST_F(ResultsSortTest, EmptyValuesComeFirstAscendingAndLastDescending) {
  // Names without an extension have no value for System.FileExtension.
  auto up = SortedNames(tree, {"notes.TXT", "big", "Apple.md"}, By("System.FileExtension", true));
  EXPECT_EQ(up, (std::vector<std::string>{"big", "Apple.md", "notes.TXT"}));
  auto down = SortedNames(tree, {"notes.TXT", "big", "Apple.md"}, By("System.FileExtension", false));
  EXPECT_EQ(down, (std::vector<std::string>{"notes.TXT", "Apple.md", "big"}));
}

TEST_F(ResultsSortTest, EqualKeysFallBackToNameUnlessNameIsAKey) {
  testing::TempTree same{{"b=xx", "c=xx", "a=xx"}};
  EXPECT_EQ(SortedNames(same, {"c", "a", "b"}, By("System.Size", true)), (std::vector<std::string>{"a", "b", "c"}));
  // Name is a key, equal names cannot occur in one folder: equal sizes with the name key
  // second still give the name order; the stable sort keeps the found order otherwise.
  engine::SortOptions o = By("System.Size", true);
  o.keys.push_back({NameProperty(), false});
  EXPECT_EQ(SortedNames(same, {"c", "a", "b"}, o), (std::vector<std::string>{"c", "b", "a"}));
}

TEST_F(ResultsSortTest, AgreesWithTheItemComparison) {
  testing::TempTree names{{"Zeta", "alpha", "Alpha2", "alpha10", "beta-1", "beta_1", "Ärger", "über", "10", "9",
                           "x.tar.gz", "X.TAR"}};
  std::vector<std::string> list{"Zeta", "alpha", "Alpha2", "alpha10", "beta-1", "beta_1", "Ärger", "über", "10", "9",
                                "x.tar.gz", "X.TAR"};
  for (bool natural : {false, true}) {
    for (bool ascending : {true, false}) {
      SCOPED_TRACE(::testing::Message() << "natural " << natural << " ascending " << ascending);
      engine::SortOptions o = By("System.ItemNameDisplay", ascending, false, natural);
      auto sorted = SortedNames(names, list, o);
      for (size_t i = 1; i < sorted.size(); ++i) {
        auto a = props::ShellItem::FromPath(names.path(sorted[i - 1]));
        auto b = props::ShellItem::FromPath(names.path(sorted[i]));
        EXPECT_LE(engine::CompareItems(*a, *b, o), 0) << sorted[i - 1] << " before " << sorted[i];
      }
    }
  }
}

}  // namespace
}  // namespace trovix::engine
