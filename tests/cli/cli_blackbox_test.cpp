// trovix-cli run as a program on generated trees; expectations are computed independently
// of the library (from the list of files the test itself created).
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::cli {
namespace {

using CliRun = testing::ProgramRun;

CliRun Cli(const std::vector<std::string>& args) { return testing::RunProgram(TROVIX_CLI_PATH, args); }

std::vector<std::string> Lines(const std::string& text, char sep = '\n') {
  std::vector<std::string> lines;
  std::string line;
  std::istringstream in(text);
  while (std::getline(in, line, sep)) lines.push_back(line);
  return lines;
}

TEST(TrovixCli, NameAndSizeRulesMatchAnIndependentList) {
  testing::TempTree tree({"a/one.txt=1234567890", "a/two.txt=12", "a/b/three.txt=123456789012",
                          "a/b/four.log=1234567890123", "a/.hid/five.txt=123456789012345", "c/six.TXT=1234567890"});
  CliRun run = Cli({"search", tree.path("a"), tree.path("c"), "-r", "name: *.txt", "-r", "size: >= 10", "--ordered"});
  EXPECT_EQ(run.status, 0);
  std::vector<std::string> expected = {tree.path("a/one.txt"), tree.path("a/b/three.txt"), tree.path("c/six.TXT")};
  EXPECT_EQ(Lines(run.out), expected);

  CliRun hidden = Cli({"search", tree.path("a"), "-r", "name: five.txt", "--hidden", "-0"});
  EXPECT_EQ(hidden.out, tree.path("a/.hid/five.txt") + std::string(1, '\0'));
  CliRun none = Cli({"search", tree.path("a"), "-r", "name: five.txt"});
  EXPECT_EQ(none.status, 1);
  EXPECT_TRUE(none.out.empty());
}

TEST(TrovixCli, ContextsIndentsSortAndLimit) {
  testing::TempTree tree({"x/a.txt=1", "x/b.md=123", "x/c.txt=12345", "x/d.bin=1234"});
  // name *.txt AND NOT (size < 3 OR name d*)
  CliRun run = Cli({"search", tree.path("x"), "-r", "name: *.txt", "-r", "and not size: < 3", "-r", "or > name: d*",
                 "--ordered"});
  EXPECT_EQ(Lines(run.out), (std::vector<std::string>{tree.path("x/c.txt")}));
  CliRun sorted = Cli({"search", tree.path("x"), "-r", "size: > 0", "--sort", "size", "--desc", "--limit", "2",
                    "--columns", "name,size"});
  EXPECT_EQ(Lines(sorted.out), (std::vector<std::string>{"Name\tSize", "c.txt\t5", "d.bin\t4"}));
}

// Bad roots, properties, values and options have tests of their own (walk messages, typed
// names, value warnings, fd options); a search without rules says so in the system's text.
TEST(TrovixCli, ErrorsUseTheSystemsTextsAndExitTwo) {
  testing::TempTree tree({"f.txt"});
  CliRun run = testing::RunProgram(TROVIX_CLI_PATH, {"search", tree.root()}, tree.path("err"));
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(run.err.find("Please specify what to search for, e.g. a filename"), std::string::npos) << run.err;
}

TEST(TrovixCli, SingleFileRootPrintsTheDetectivesReport) {
  testing::TempTree tree({"report.txt=abc"});
  CliRun found = Cli({"explain", tree.path("report.txt"), "-r", "name: *.txt"});
  EXPECT_EQ(found.status, 0);
  // explain lists the rules first, then the report.
  EXPECT_EQ(found.out.rfind("1   Name (System.ItemNameDisplay) contains *.txt [WC]", 0), 0u) << found.out;
  EXPECT_NE(found.out.find("\nFOUND!\n"), std::string::npos) << found.out;
  EXPECT_NE(found.out.find("\n\nFILE REPORT\nName: report.txt (hit=1)\n"), std::string::npos) << found.out;
}

TEST(TrovixCli, JsonKeepsNamesThatAreNotUtf8) {
  testing::TempTree tree({"d/bad\xff.txt=xy"});
  CliRun run = Cli({"search", tree.path("d"), "-r", "name: *.txt", "--json", "--columns", "size"});
  std::string expected = "{\"System.ItemPathDisplay\":\"" + tree.path("d") + "/bad\\udcff.txt\",\"System.Size\":2}\n";
  EXPECT_EQ(run.out, expected);
}

}  // namespace
}  // namespace trovix::cli

namespace trovix::cli {
namespace {

TEST(TrovixCli, ASingleFileRootHonoursTheOutputForms) {
  testing::TempTree tree({"notes.txt=hello"});
  const std::string file = tree.path("notes.txt");
  testing::ProgramRun json = testing::RunProgram(TROVIX_CLI_PATH, {"search", file, "-r", "name: notes", "--json"});
  EXPECT_EQ(json.status, 0);
  EXPECT_EQ(json.out, "{\"System.ItemPathDisplay\":\"" + file + "\"}\n");
  testing::ProgramRun nul = testing::RunProgram(TROVIX_CLI_PATH, {"search", file, "-r", "name: notes", "-0"});
  EXPECT_EQ(nul.out, file + std::string(1, '\0'));
  testing::ProgramRun columns =
      testing::RunProgram(TROVIX_CLI_PATH, {"search", file, "-r", "name: notes", "--columns", "name,size"});
  EXPECT_EQ(columns.out, "Name\tSize\nnotes.txt\t5\n");
  // Not satisfied: nothing on stdout, status 1; the plain form prints the report either way.
  testing::ProgramRun miss = testing::RunProgram(TROVIX_CLI_PATH, {"search", file, "-r", "name: other", "--json"});
  EXPECT_EQ(miss.status, 1);
  EXPECT_EQ(miss.out, "");
  testing::ProgramRun plain = testing::RunProgram(TROVIX_CLI_PATH, {"search", file, "-r", "name: other"});
  EXPECT_EQ(plain.status, 1);
  EXPECT_EQ(plain.out.rfind("NOT FOUND!\n", 0), 0u) << plain.out;
  EXPECT_NE(plain.out.find("FILE REPORT"), std::string::npos);
}

}  // namespace
}  // namespace trovix::cli
