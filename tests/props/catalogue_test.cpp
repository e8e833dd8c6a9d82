#include <gtest/gtest.h>

#include <unicode/coll.h>

#include "props/catalogue.h"
#include "props/catalogue_filters.h"
#include "props/key_index.h"
#include "props/stock.h"
#include "props/system_property_table.h"

namespace trovix::props {
namespace {

PropertyKey Key(const char* fmtid, uint32_t pid) { return PropertyKey{*Guid::Parse(fmtid), pid}; }

TEST(PropertyKey, HashesOfTheKnownKeysComeFromTheRealKeys) {
  struct Case {
    const char* name;
    uint32_t hash;
  } cases[] = {
      {"System.ItemPathDisplay", hash::kItemPathDisplay},
      {"System.FileExtension", hash::kFileExtension},
      {"System.ItemFolderPathDisplay", hash::kItemFolderPathDisplay},
      {"System.ItemNameDisplay", hash::kItemNameDisplay},
      {"System.Comment", hash::kComment},
      {"System.DateModified", hash::kDateModified},
      {"System.Size", hash::kSize},
      {"System.DateCreated", hash::kDateCreated},
      {"System.Search.Contents", hash::kSearchContents},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const SystemPropertyRow* row = FindSystemProperty(c.name);
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->key.Hash(), c.hash);
  }
  EXPECT_EQ(Key("{00010203-0405-0607-0809-0A0B0C0D0E0F}", 17).Hash(), hash::kFind);
  EXPECT_EQ(Key("{00010203-0405-0607-0809-0A0B0C0D0E0F}", 18).Hash(), hash::kComplex);
}

TEST(PropertyKey, BytesAreTheInMemoryLayout) {
  auto bytes = Key("{00010203-0405-0607-0809-0A0B0C0D0E0F}", 18).Bytes();
  const uint8_t expected[20] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15, 18, 0, 0, 0};
  EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), expected));
  EXPECT_EQ(PropertyKey::FromBytes(expected), Key("{00010203-0405-0607-0809-0A0B0C0D0E0F}", 18));
  EXPECT_EQ(Guid::Parse("{b725f130-47ef-101a-a5f1-02608c9eebac}")->ToString(),
            "{B725F130-47EF-101A-A5F1-02608C9EEBAC}");
  EXPECT_FALSE(Guid::Parse("{B725F130-47EF-101A-A5F1-02608C9EEBA}"));
  EXPECT_FALSE(Guid::Parse("{B725F130-47EF-101A-A5F1-02608C9EEBAZ}"));
}

TEST(SystemPropertyTable, EveryRowsRecordedCrcMatchesItsKey) {
  const auto& rows = SystemPropertyTable();
  EXPECT_EQ(rows.size(), 1072u);
  for (const auto& row : rows) EXPECT_EQ(row.key.Hash(), row.crc) << row.name;
  // Malformed lines are skipped, not fatal.
  auto parsed = ParseSystemPropertyTable("header\nbad line\nSystem.X\tP\t{zz}\t1\tVT_I4\t3\t0x0\n");
  EXPECT_TRUE(parsed.empty());
}

TEST(KeyIndex, KeepsNumbersAscendingAndReplacesOnlyInReplaceMode) {
  PropertyKey a = Key("{B725F130-47EF-101A-A5F1-02608C9EEBAC}", 12);
  for (bool replace : {false, true}) {
    KeyIndex index(replace);
    for (uint32_t pid : {14u, 10u, 12u, 2u, 19u}) index.Insert(PropertyKey{a.fmtid, pid}, pid * 100);
    index.Insert(PropertyKey{a.fmtid, 12}, 7);
    const auto& g = index.groups().at(0);
    ASSERT_EQ(g.count, replace ? 5u : 6u);
    EXPECT_EQ(g.capacity, 8u);  // doubled from one element
    for (size_t i = 1; i < g.count; ++i) EXPECT_LE(g.numbers[i - 1], g.numbers[i]);
    if (replace) {
      EXPECT_EQ(*index.Find(a), 7u);
    }
    EXPECT_FALSE(index.Find(PropertyKey{a.fmtid, 13}));
    EXPECT_FALSE(index.Find(Key("{00010203-0405-0607-0809-0A0B0C0D0E0F}", 12)));
  }
}

TEST(CatalogueFilters, ListsAreAscendingInTheirOwnComparison) {
  auto prefixes = ExcludedPrefixesForTesting();
  ASSERT_EQ(prefixes.size(), 55u);
  for (size_t i = 1; i < prefixes.size(); ++i) EXPECT_LT(prefixes[i - 1], prefixes[i]);
  // Every listed name must be found by the early-stopping scan, which proves the order.
  auto first = ExclusionListForTesting(1), second = ExclusionListForTesting(2);
  EXPECT_EQ(first.size(), 121u);
  EXPECT_EQ(second.size(), 52u);
  for (auto n : first) EXPECT_TRUE(IsInFirstExclusionList(n)) << n;
  for (auto n : second) EXPECT_TRUE(IsInSecondExclusionList(n)) << n;
}

TEST(CatalogueFilters, EdgesOfTheNameRules) {
  EXPECT_TRUE(HasExcludedPrefix("System.Search.Rank"));
  EXPECT_FALSE(HasExcludedPrefix("System.Search"));  // the prefix without its period
  EXPECT_TRUE(PassesNameFilters("System.Search.Contents"));  // forced
  EXPECT_TRUE(IsInSecondExclusionList("System.DateCompl"));
  EXPECT_FALSE(IsInSecondExclusionList("System.DateCompleted"));
  EXPECT_FALSE(IsInFirstExclusionList("system.filename"));  // case-sensitive
  EXPECT_FALSE(PassesNameFilters("System.Photo.ExposureTimeNumerator"));
  EXPECT_FALSE(PassesTypeRule(VT_VECTOR | VT_R8, false));
  EXPECT_TRUE(PassesTypeRule(VT_VECTOR | VT_R8, true));
  EXPECT_TRUE(PassesTypeRule(VT_VECTOR | VT_LPWSTR, false));
  for (uint32_t bad : {0u, 1u, 9u, 12u, 13u, 65u, 72u, 0x2000u | 3u, 0x4000u | 3u})
    EXPECT_FALSE(PassesTypeRule(bad, false)) << bad;
}

TEST(Catalogue, FilteredOffersWhatThisPlatformProducesAndTheForcedNames) {
  const Catalogue& cat = DefaultCatalogue();
  const PropertyInfo* size = cat.FindProperty("System.Size");
  ASSERT_NE(size, nullptr);
  EXPECT_EQ(size->var_type(), VT_UI8);
  EXPECT_TRUE(size->has_flag(kPropTopLevel));
  EXPECT_TRUE(size->has_flag(kPropInnate));
  EXPECT_EQ(size->label, "Size");

  const PropertyInfo* lat = cat.FindProperty("System.GPS.Latitude");
  ASSERT_NE(lat, nullptr);
  EXPECT_TRUE(lat->has_flag(kPropMultiValued));
  EXPECT_FALSE(lat->has_flag(kPropIndexed));
  EXPECT_FALSE(lat->has_flag(kPropTopLevel));
  const PropertyInfo* contents = cat.FindProperty("System.Search.Contents");
  ASSERT_NE(contents, nullptr);
  EXPECT_TRUE(contents->has_flag(kPropCostly));

  EXPECT_EQ(cat.FindProperty("System.FileName"), nullptr);  // excluded by name
  EXPECT_EQ(cat.FindProperty("System.Photo.ExposureTimeNumerator"), nullptr);
  EXPECT_EQ(cat.FindProperty("System.Size")->hash, hash::kSize);
  EXPECT_EQ(cat.FindProperty(size->key), size);
}

TEST(Catalogue, AllPropertiesModeOffersEveryRowOfAComparableType) {
  const Catalogue& all = AllPropertiesCatalogue();
  EXPECT_TRUE(all.key_index().replace_mode());
  EXPECT_NE(all.FindProperty("System.Photo.ExposureTimeNumerator"), nullptr);
  EXPECT_NE(all.FindProperty("System.FileName"), nullptr);
  EXPECT_EQ(all.FindProperty("System.ThumbnailStream"), nullptr);  // a stream: type rule
  EXPECT_GT(all.entries().size(), DefaultCatalogue().entries().size());
}

TEST(Catalogue, StockRowsFollowTheShellPropertiesInTableOrder) {
  const Catalogue& cat = DefaultCatalogue();
  const auto& entries = cat.entries();
  ASSERT_GE(entries.size(), 11u);
  size_t first_stock = entries.size() - 11;
  const char* names[] = {"Stock.SignedBy", "Stock.FileAttributes", "Stock.InfoTipText",
                         "Stock.IsFolder", "Stock.Kind", "*", "Stock.Algorithmic",
                         "Stock.TotalFileSize", "Stock.ADS", "Stock.ADSNames", "Stock.FileCount"};
  for (size_t i = 0; i < 11; ++i) {
    const PropertyInfo& e = *entries[first_stock + i];
    EXPECT_EQ(e.name, names[i]);
    EXPECT_EQ(IsStock(e), i + 1);
    EXPECT_TRUE(e.has_flag(kPropStock));
  }
  const PropertyInfo* find = cat.FindProperty("*");
  EXPECT_EQ(find->label, "Find");
  EXPECT_EQ(find->flags() & ~kPropStock, 0x0204);
  EXPECT_EQ(find->hash, hash::kFind);
  const PropertyInfo* folder = cat.FindProperty("Stock.IsFolder");
  EXPECT_EQ(folder->description, "Whether item is a plain file or directory (folder)");
  ASSERT_NE(folder->options, nullptr);
  EXPECT_EQ(cat.FindProperty("Stock.Kind")->flags() & 0x0406, 0x0406);
  EXPECT_EQ(cat.FindProperty("Stock.Algorithmic")->hash, hash::kComplex);
}

TEST(Catalogue, ResolvesNamesLabelsAndShortNames) {
  const Catalogue& cat = DefaultCatalogue();
  EXPECT_EQ(cat.Resolve("System.Size")->name, "System.Size");
  EXPECT_EQ(cat.Resolve("size")->name, "System.Size");
  EXPECT_EQ(cat.Resolve("Date modified")->name, "System.DateModified");
  EXPECT_EQ(cat.Resolve("DateModified")->name, "System.DateModified");
  EXPECT_EQ(cat.Resolve("Folder")->name, "Stock.IsFolder");
  EXPECT_EQ(cat.Resolve("no such thing"), nullptr);
}

TEST(Catalogue, LooksUpEveryDottedTailAndCommonWordsNearestNameFirst) {
  const Catalogue& cat = DefaultCatalogue();
  EXPECT_EQ(cat.Resolve("artist")->name, "System.Music.Artist");
  EXPECT_EQ(cat.Resolve("Music.Artist")->name, "System.Music.Artist");
  EXPECT_EQ(cat.Resolve("system.music.artist")->name, "System.Music.Artist");
  EXPECT_EQ(cat.Resolve("LatitudeDecimal")->name, "System.GPS.LatitudeDecimal");
  // System.DateCreated keeps more of its name than System.Document.DateCreated.
  EXPECT_EQ(cat.Resolve("DateCreated")->name, "System.DateCreated");
  EXPECT_EQ(cat.Resolve("Document.DateCreated")->name, "System.Document.DateCreated");
  EXPECT_EQ(cat.Resolve("EXT")->name, "System.FileExtension");
  EXPECT_EQ(cat.Resolve("duration")->name, "System.Media.Duration");
  // A tail cut inside a component is no tail.
  EXPECT_EQ(cat.Resolve("rtist"), nullptr);
  EXPECT_EQ(cat.Resolve(""), nullptr);
  // Equally near names are candidates, none found.
  NameLookup both = AllPropertiesCatalogue().Lookup("SampleSize");
  EXPECT_EQ(both.found, nullptr);
  ASSERT_EQ(both.candidates.size(), 2u);
  EXPECT_EQ(both.candidates[0]->name, "System.Audio.SampleSize");
  EXPECT_EQ(both.candidates[1]->name, "System.Video.SampleSize");
  // Every common word names a property the filtered catalogue has.
  for (const CommonWord& w : CommonWords()) EXPECT_NE(cat.FindProperty(w.name), nullptr) << w.word;
}

TEST(Catalogue, PropertiesNothingFillsPointToTheOneThatAnswers) {
  const Catalogue& all = AllPropertiesCatalogue();
  EXPECT_TRUE(IsFilledHere(*all.FindProperty("System.Size")));
  EXPECT_TRUE(IsFilledHere(*all.FindProperty("Stock.Kind")));
  const PropertyInfo* file_name = all.FindProperty("System.FileName");
  ASSERT_NE(file_name, nullptr);
  EXPECT_FALSE(IsFilledHere(*file_name));
  EXPECT_EQ(FilledCounterpart(*file_name)->name, "System.ItemNameDisplay");
  EXPECT_EQ(FilledCounterpart(*all.FindProperty("System.Calendar.Duration"))->name, "System.Media.Duration");
}

TEST(Catalogue, GroupsAndSimpleList) {
  EXPECT_EQ(PropertyGroups().size(), 15u);
  EXPECT_EQ(PropertyGroups()[PropertyGroupOf("System.GPS.Latitude")], "Map data (GPS)");
  EXPECT_EQ(PropertyGroups()[PropertyGroupOf("System.Photo.FNumber")], "Photography");
  EXPECT_EQ(PropertyGroups()[PropertyGroupOf("System.Size")], "General");
  auto simple = SimplePropertyList(" System.ItemNameDisplay, System.Comment,,");
  ASSERT_EQ(simple.size(), 2u);
  EXPECT_EQ(simple[1], "System.Comment");
  EXPECT_EQ(SimplePropertyList().at(0), "System.ItemNameDisplay");
}

TEST(Stock, AttributeLettersAreAlwaysTwelve) {
  EXPECT_EQ(AttributeLetters(0x1 | 0x20), "R--A--------");
  EXPECT_EQ(AttributeLetters(0x1 | 0x2 | 0x20), "RH-A--------");
  EXPECT_EQ(AttributeLetters(0), "------------");
  EXPECT_EQ(AttributeLetters(0xFFFF).size(), 12u);
}

}  // namespace
}  // namespace trovix::props
