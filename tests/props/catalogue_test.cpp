#include <gtest/gtest.h>

#include <unicode/coll.h>

#include <sstream>
#include <string>
#include <vector>

#include "props/catalogue.h"
#include "props/catalogue_filters.h"
#include "props/key_index.h"
#include "props/stock.h"
#include "props/system_property_table.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"
#include "tests/support/test_files.h"

namespace trovix::props {
namespace {

PropertyKey Key(const char* fmtid, uint32_t pid) { return PropertyKey{*Guid::Parse(fmtid), pid}; }

// The hash constants the fetcher and the rules dispatch on are not listed here again: a wrong
// one breaks the fetcher's and the rules' own tests of that property.
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

// The table the build generated, against its file read here the plain way: same rows, same
// order, every recorded CRC the key's, and each name found by the binary search.
TEST(SystemPropertyTable, HoldsEveryRowOfItsFileInOrder) {
  std::istringstream in(testing::ReadWholeFile(TROVIX_SOURCE_DIR "/data/system-properties.tsv"));
  std::string line;
  ASSERT_TRUE(std::getline(in, line));  // the header
  const auto rows = SystemPropertyTable();
  size_t count = 0;
  for (; std::getline(in, line); ++count) {
    std::vector<std::string> f;
    for (size_t start = 0;;) {
      const size_t tab = line.find('\t', start);
      f.push_back(line.substr(start, tab - start));
      if (tab == std::string::npos) break;
      start = tab + 1;
    }
    ASSERT_EQ(f.size(), 7u) << line;
    ASSERT_LT(count, rows.size()) << line;
    const SystemPropertyRow& row = rows[count];
    EXPECT_EQ(row.name(), f[0]);
    EXPECT_EQ(row.key, (PropertyKey{*Guid::Parse(f[2]), static_cast<uint32_t>(std::stoul(f[3]))})) << f[0];
    EXPECT_EQ(row.vartype, std::stoul(f[5])) << f[0];
    EXPECT_EQ(row.crc, std::stoul(f[6], nullptr, 16)) << f[0];
    EXPECT_EQ(row.key.Hash(), row.crc) << f[0];
    EXPECT_EQ(FindSystemProperty(f[0]), &row) << f[0];
  }
  EXPECT_EQ(count, rows.size());
  // Exact names only: no case folding, no prefixes, nothing before the first or after the last.
  for (const char* name : {"system.size", "System.Siz", "System.Size.", "", "A", "System.zzz"})
    EXPECT_EQ(FindSystemProperty(name), nullptr) << name;
}

// The generator stops the build on a row the programs could not use, naming its line.
TEST(SystemPropertyTable, GeneratorRefusesMalformedRowsByLine) {
  const std::string header = "canonical_name\tpkey_symbol\tfmtid\tpid\tvartype\tvt_number\tcrc32\n";
  const std::string guid = "{65A98875-3C80-40AB-ABBC-EFDAF77DBEE2}";
  const std::string first = "System.B\tP\t" + guid + "\t100\tVT_I4\t3\t0x38F1BB43\n";
  struct Case {
    std::string row;   // the table's second row, its third line
    const char* says;  // in the refusal; nullptr when the table is good
  };
  const Case cases[] = {
      {"System.C\tP\t" + guid + "\t7\tVT_I4\t3\t0x00000001\r\n\n", nullptr},
      {"System.C\tP\t" + guid + "\t7\tVT_I4\t3\n", ":3: 6 fields"},
      {"System.C\tP\t" + guid + "\t7\tVT_I4\t3\t0x1\textra\n", ":3: 8 fields"},
      {"\nSystem.C\tP\t" + guid + "\t7\tVT_I4\t3\t0x00000001\n", ":3: 0 fields"},
      {"System.C\tP\t{65A98875-3C80-40AB-ABBC-EFDAF77DBEEZ}\t7\tVT_I4\t3\t0x00000001\n", ":3: '{65A98875"},
      {"System.C\tP\t65A98875-3C80-40AB-ABBC-EFDAF77DBEE2\t7\tVT_I4\t3\t0x00000001\n", "format id"},
      {"System.C\tP\t" + guid + "\t7x\tVT_I4\t3\t0x00000001\n", ":3: the property id '7x'"},
      {"System.C\tP\t" + guid + "\t4294967296\tVT_I4\t3\t0x00000001\n", "property id"},
      {"System.C\tP\t" + guid + "\t7\tVT_I4\t-3\t0x00000001\n", ":3: the type number"},
      {"System.C\tP\t" + guid + "\t7\tVT_I4\t3\t0x1\n", ":3: the CRC"},
      {"System.A\tP\t" + guid + "\t7\tVT_I4\t3\t0x00000001\n", ":3: 'System.A' does not follow 'System.B'"},
      {"System.B\tP\t" + guid + "\t7\tVT_I4\t3\t0x00000001\n", "byte order"},
      {"System.C D\tP\t" + guid + "\t7\tVT_I4\t3\t0x00000001\n", ":3: 'System.C D' is not"},
      {"System.C\"\tP\t" + guid + "\t7\tVT_I4\t3\t0x00000001\n", ":3: the line holds a '\"'"},
  };
  testing::TempTree tree;
  for (const Case& c : cases) {
    tree.File("table.tsv", header + first + c.row);
    tree.Remove("table.cpp");
    const auto run = testing::RunProgram(
        TROVIX_CMAKE_COMMAND, {"-DIN=" + tree.path("table.tsv"), "-DOUT=" + tree.path("table.cpp"), "-P",
                               TROVIX_SOURCE_DIR "/scripts/property_table.cmake"},
        tree.path("err.txt"));
    const std::string generated = testing::ReadWholeFile(tree.path("table.cpp"));
    if (!c.says) {
      EXPECT_EQ(run.status, 0) << run.err;
      EXPECT_NE(generated.find("\"System.B\"\n    \"System.C\""), std::string::npos) << generated;
      EXPECT_NE(generated.find("{8, 8, {{0x65A98875, 0x3C80, 0x40AB, {0xAB, 0xBC, 0xEF, 0xDA, 0xF7, 0x7D, 0xBE, 0xE2}}, 7u}, 3, 0x00000001}"),
                std::string::npos) << generated;
      continue;
    }
    EXPECT_NE(run.status, 0) << c.row;
    EXPECT_NE(run.err.find(c.says), std::string::npos) << c.row << run.err;
    EXPECT_TRUE(generated.empty()) << c.row;
  }
}

TEST(KeyIndex, KeepsNumbersAscendingAndReplacesOnlyInReplaceMode) {
  PropertyKey a = Key("{B725F130-47EF-101A-A5F1-02608C9EEBAC}", 12);
  for (bool replace : {false, true}) {
    KeyIndex index(replace);
    for (uint32_t pid : {14u, 10u, 12u, 2u, 19u}) index.Insert(PropertyKey{a.fmtid, pid}, pid * 100);
    index.Insert(PropertyKey{a.fmtid, 12}, 7);
    const auto& g = index.groups().at(0);
    ASSERT_EQ(g.count, replace ? 5u : 6u);
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
  for (size_t i = 1; i < prefixes.size(); ++i) EXPECT_LT(prefixes[i - 1], prefixes[i]);
  // The name lists ascend in linguistic order (root collation, tertiary strength), strictly:
  // only then is a plain look-up the same as the scan that stops at the first greater entry.
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::Collator> collator(icu::Collator::createInstance(icu::Locale::getRoot(), status));
  ASSERT_TRUE(U_SUCCESS(status));
  collator->setStrength(icu::Collator::TERTIARY);
  for (int which : {1, 2}) {
    auto list = ExclusionListForTesting(which);
    ASSERT_FALSE(list.empty());
    for (size_t i = 0; i < list.size(); ++i) {
      EXPECT_TRUE(which == 1 ? IsInFirstExclusionList(list[i]) : IsInSecondExclusionList(list[i])) << list[i];
      if (i == 0) continue;
      status = U_ZERO_ERROR;
      EXPECT_EQ(collator->compareUTF8(icu::StringPiece(list[i - 1].data(), static_cast<int32_t>(list[i - 1].size())),
                                      icu::StringPiece(list[i].data(), static_cast<int32_t>(list[i].size())), status),
                UCOL_LESS)
          << list[i - 1] << " / " << list[i];
    }
  }
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
  EXPECT_EQ(cat.FindProperty(size->key), size);
  EXPECT_TRUE(cat.FindProperty("System.GPS.Latitude")->has_flag(kPropMultiValued));
  EXPECT_TRUE(cat.FindProperty("System.Search.Contents")->has_flag(kPropCostly));
  EXPECT_EQ(cat.FindProperty("System.FileName"), nullptr);  // excluded by name
  EXPECT_EQ(cat.FindProperty("System.Photo.ExposureTimeNumerator"), nullptr);
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
  const auto& entries = DefaultCatalogue().entries();
  constexpr size_t kRows = kStockRowCount;
  ASSERT_GE(entries.size(), kRows);
  const size_t first_stock = entries.size() - kRows;
  for (size_t i = 0; i < kRows; ++i) {
    const PropertyInfo& e = *entries[first_stock + i];
    SCOPED_TRACE(e.name);
    EXPECT_EQ(IsStock(e), i + 1);
    EXPECT_TRUE(e.has_flag(kPropStock));
  }
  EXPECT_EQ(DefaultCatalogue().FindProperty("*")->hash, hash::kFind);
  EXPECT_EQ(DefaultCatalogue().FindProperty("Stock.Algorithmic")->hash, hash::kComplex);
}

// How typed names find their property is driven through the console (typed names); these are
// the lookups it does not reach.
TEST(Catalogue, LookupEdges) {
  const Catalogue& cat = DefaultCatalogue();
  EXPECT_EQ(cat.Resolve("Document.DateCreated")->name, "System.Document.DateCreated");
  // A tail cut inside a component is no tail.
  EXPECT_EQ(cat.Resolve("rtist"), nullptr);
  EXPECT_EQ(cat.Resolve(""), nullptr);
  // Every common word names a property the filtered catalogue has.
  for (const CommonWord& w : CommonWords()) EXPECT_NE(cat.FindProperty(w.name), nullptr) << w.word;
}

TEST(Catalogue, GroupsAndSimpleList) {
  EXPECT_EQ(PropertyGroups()[PropertyGroupOf("System.GPS.Latitude")], "Map data (GPS)");
  auto simple = SimplePropertyList(" System.ItemNameDisplay, System.Comment,,");
  ASSERT_EQ(simple.size(), 2u);
  EXPECT_EQ(simple[1], "System.Comment");
  EXPECT_EQ(SimplePropertyList().at(0), "System.ItemNameDisplay");
}

TEST(Stock, AttributeLettersAreAlwaysTwelve) {
  EXPECT_EQ(AttributeLetters(0x1 | 0x2 | 0x20), "RH-A--------");
  EXPECT_EQ(AttributeLetters(0xFFFF).size(), 12u);
}

}  // namespace
}  // namespace trovix::props
