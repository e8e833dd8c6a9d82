#include "props/file_kinds.h"

#include <gtest/gtest.h>

#include "props/catalogue.h"
#include "props/fetcher.h"
#include "tests/support/temp_tree.h"

namespace trovix::props {
namespace {

// Restores the default table when a test has set its own.
struct DefaultKindsAfterwards {
  ~DefaultKindsAfterwards() { SetFileKinds({}); }
};

TEST(FileKindTable, DefaultsAreTheEightKindsInNameOrder) {
  std::vector<std::string> expected = {"audio files",   "documents",   "pictures",   "program files",
                                       "source code",   "temp files",  "video files", "web files"};
  EXPECT_EQ(FileKindTable(DefaultFileKinds()).Names(), expected);
}

TEST(FileKindTable, DefaultListsClassifyExtensions) {
  FileKindTable table(DefaultFileKinds());
  struct Case {
    std::string_view extension;
    std::optional<std::string> kind;
  };
  const Case cases[] = {
      {"docx", "documents"}, {"DOC", "documents"},   {"xlsm", "documents"},  {"html", "web files"},
      {"css", "web files"},  {"cpp", "source code"}, {"c", "source code"},   {"JPG", "pictures"},
      {"flac", "audio files"}, {"qt", "video files"}, {"cs", "source code"}, {"cxx", std::nullopt},
      {"mydoc", std::nullopt}, {"", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.extension));
    EXPECT_EQ(table.KindOfExtension(c.extension), c.kind);
  }
}

TEST(FileKindTable, FirstKindByNameWinsWhatEverTheDefinitionOrder) {
  // "mod" is also listed here; "audio files" sorts first and keeps it. Case is ignored when
  // sorting, so "Bits" goes between "audio files" and "zips".
  FileKindTable table({{"zips", "zip,mod"}, {"Bits", "bin,zip"}, {"audio files", "mod"}});
  EXPECT_EQ(table.Names(), (std::vector<std::string>{"audio files", "Bits", "zips"}));
  EXPECT_EQ(table.KindOfExtension("mod"), "audio files");
  EXPECT_EQ(table.KindOfExtension("zip"), "Bits");
  // Equal names keep the order in which they were given.
  FileKindTable twins({{"same", "a"}, {"same", "b"}, {"SAME", "c"}});
  EXPECT_EQ(twins.kinds()[0].patterns, "a");
  EXPECT_EQ(twins.kinds()[2].patterns, "c");
}

TEST(FileKindTable, EmptyOrBrokenListsAcceptNothing) {
  FileKindTable table({{"a-empty", ""}, {"b-broken", "tx(t"}, {"c-signs", "+t*,-tmp,*xt,*mp"}});
  EXPECT_EQ(table.KindOfExtension("txt"), "c-signs");
  EXPECT_EQ(table.KindOfExtension("tmp"), std::nullopt);  // a "-" term excludes it
  EXPECT_EQ(table.KindOfExtension("amp"), std::nullopt);  // the "+" term is required
}

TEST(FileKinds, SetterReplacesTheTableAndEmptyBringsBackDefaults) {
  DefaultKindsAfterwards restore;
  SetFileKinds({{"notes", "txt"}});
  auto held = CurrentFileKinds();
  EXPECT_EQ(held->Names(), std::vector<std::string>{"notes"});
  SetFileKinds({});
  EXPECT_EQ(CurrentFileKinds()->Names().size(), 8u);
  EXPECT_EQ(held->KindOfExtension("txt"), "notes");  // a table handed out stays usable
}

TEST(StockKind, FoldersNoExtensionAndCategories) {
  DefaultKindsAfterwards restore;
  testing::TempTree tree({"report.docx", "page.html", "Makefile", "archive.zzz", "sub/", "pics.d/"});
  const PropertyInfo* kind = DefaultCatalogue().FindProperty("Stock.Kind");
  ASSERT_NE(kind, nullptr);
  auto value_of = [&](const std::string& name) {
    auto item = ShellItem::FromPath(tree.path(name));
    PropValue value;
    HRESULT hr = FetchValue(*item, *kind, &value);
    return hr == S_OK ? value.ToDisplayText() : std::string("<none>");
  };
  EXPECT_EQ(value_of("report.docx"), "documents");
  EXPECT_EQ(value_of("page.html"), "web files");
  EXPECT_EQ(value_of("Makefile"), "<none>");
  EXPECT_EQ(value_of("archive.zzz"), "<none>");
  EXPECT_EQ(value_of("sub"), "Folder");
  EXPECT_EQ(value_of("pics.d"), "Folder");  // a folder's dotted name is no extension

  SetFileKinds({{"strange", "zz*"}});
  EXPECT_EQ(value_of("archive.zzz"), "strange");
  EXPECT_EQ(value_of("report.docx"), "<none>");
}

}  // namespace
}  // namespace trovix::props
