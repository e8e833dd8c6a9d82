#include "props/file_kinds.h"

#include <gtest/gtest.h>

namespace trovix::props {
namespace {

// Restores the default table when a test has set its own.
struct DefaultKindsAfterwards {
  ~DefaultKindsAfterwards() { SetFileKinds({}); }
};

TEST(FileKindTable, DefaultListsClassifyExtensions) {
  FileKindTable table(DefaultFileKinds());
  struct Case {
    std::string_view extension;
    std::optional<std::string> kind;
  };
  const Case cases[] = {
      {"docx", "documents"},  {"DOC", "documents"},   {"css", "web files"},    {"c", "source code"},
      {"cs", "source code"},  {"cxx", std::nullopt},  {"mydoc", std::nullopt}, {"", std::nullopt},
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
  EXPECT_EQ(table.KindOfExtension("tzz"), std::nullopt);  // and one of the plain terms
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

}  // namespace
}  // namespace trovix::props
