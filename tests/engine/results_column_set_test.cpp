// The column set's rules on sets read back from the settings.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/results/column_set.h"

namespace trovix::engine {
namespace {

std::vector<std::string> Names(const ColumnSet& set) {
  std::vector<std::string> out;
  for (const Column& c : set.columns()) out.push_back(c.property->name);
  return out;
}

Column Col(const char* name, int width = 0, uint32_t flags = 0) { return {PropertyNamed(name), width, flags}; }

TEST(ColumnSet, NothingStoredGivesTheDefaultSet) {
  std::vector<std::string> expected{"System.ItemNameDisplay", "System.Size", "System.DateModified",
                                    "System.ItemFolderPathDisplay"};
  EXPECT_EQ(Names(ColumnSet::FromBytes({})), expected);
  EXPECT_EQ(Names(ColumnSet::FromBytes(std::vector<uint8_t>(27, 1))), expected);  // damaged: no whole record
  EXPECT_EQ(Names(ColumnSet(std::vector<Column>{})), expected);
}

TEST(ColumnSet, StoredSetWithoutNameGetsItBackFirstAndLosesDuplicates) {
  ColumnSet stored({Col("System.Size", 80), Col("System.DateModified"), Col("System.Size", 120)});
  ColumnSet read = ColumnSet::FromBytes(stored.ToBytes());
  EXPECT_EQ(Names(read), (std::vector<std::string>{"System.ItemNameDisplay", "System.Size", "System.DateModified"}));
  EXPECT_EQ(read.at(1).width, 80);  // the first column of a property stays
}

TEST(ColumnSet, NameIsSwappedIntoFirstPlace) {
  ColumnSet set({Col("System.Size"), Col("System.DateModified"), Col("System.ItemNameDisplay")});
  EXPECT_EQ(Names(set), (std::vector<std::string>{"System.ItemNameDisplay", "System.DateModified", "System.Size"}));
}

TEST(ColumnSet, GroupedColumnsAreGatheredBehindTheLeadingRun) {
  ColumnSet set({Col("System.ItemNameDisplay"), Col("System.Size", 0, kColumnGrouped), Col("System.DateModified"),
                 Col("System.ItemFolderPathDisplay", 0, kColumnGrouped), Col("System.FileExtension"),
                 Col("System.DateCreated", 0, kColumnGrouped)});
  EXPECT_EQ(Names(set), (std::vector<std::string>{"System.ItemNameDisplay", "System.Size", "System.ItemFolderPathDisplay",
                                                  "System.DateCreated", "System.DateModified", "System.FileExtension"}));
}

TEST(ColumnSet, BytesRoundTripWidthsAndFlags) {
  ColumnSet set({Col("System.ItemNameDisplay", 300), Col("System.FileExtension", 55, kColumnGrouped)});
  std::vector<uint8_t> bytes = set.ToBytes();
  ASSERT_EQ(bytes.size(), 2u * 28u);
  ColumnSet back = ColumnSet::FromBytes(bytes);
  ASSERT_EQ(back.size(), 2);
  EXPECT_EQ(back.at(0).width, 300);
  EXPECT_EQ(back.at(1).width, 55);
  EXPECT_EQ(back.at(1).flags, kColumnGrouped);
  // A record of a property the catalogue does not know is skipped, the rest kept.
  std::vector<uint8_t> unknown(28, 0xEE);
  bytes.insert(bytes.begin() + 28, unknown.begin(), unknown.end());
  EXPECT_EQ(Names(ColumnSet::FromBytes(bytes)), (std::vector<std::string>{"System.ItemNameDisplay", "System.FileExtension"}));
}

}  // namespace
}  // namespace trovix::engine
