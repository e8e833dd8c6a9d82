// Word, Excel and PowerPoint 97-2003 files through trovix-cli, as a user meets them: their text
// printed, a contents search that finds a word in them, their properties listed.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/cli_run.h"

namespace trovix::cli {
namespace {

using testing::RunCli;

std::string Data(const char* name) { return std::string(TROVIX_SOURCE_DIR) + "/tests/data/legacy_office/" + name; }

TEST(TrovixCliLegacyOffice, TextSearchAndProperties) {
  testing::TempTree tree({"docs/"});
  auto text = RunCli(tree, {"text", Data("sample.doc")});
  EXPECT_EQ(text.status, 0) << text.err;
  EXPECT_NE(text.out.find("Cell alpha\tCell beta"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("A footnote about pears."), std::string::npos) << text.out;

  std::filesystem::copy_file(Data("sample.doc"), tree.path("docs/report.doc"));
  std::filesystem::copy_file(Data("sample.xls"), tree.path("docs/ledger.xls"));
  std::filesystem::copy_file(Data("word-extractor-test05.doc"), tree.path("docs/other.doc"));
  auto found = RunCli(tree, {"search", tree.path("docs"), "-r", "System.Search.Contents: footnote about pears", "--columns", "name"});
  EXPECT_EQ(found.status, 0) << found.err;
  EXPECT_EQ(found.out, "Name\nreport.doc\n");
  auto cells = RunCli(tree, {"search", tree.path("docs"), "-r", "System.Search.Contents: 1253.75", "--columns", "name"});
  EXPECT_EQ(cells.out, "Name\nledger.xls\n") << cells.err;

  auto props = RunCli(tree, {"props", Data("sample.doc")});
  EXPECT_EQ(props.status, 0) << props.err;
  EXPECT_NE(props.out.find("System.Title\tTitle\tQuarterly harvest report"), std::string::npos) << props.out;
  EXPECT_NE(props.out.find("System.Author\tAuthors\tAda Lovelace"), std::string::npos) << props.out;
}

}  // namespace
}  // namespace trovix::cli
