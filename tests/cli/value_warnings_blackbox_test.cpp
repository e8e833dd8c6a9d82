// How trovix-cli says it read a value: warnings that keep the program's reading and name the
// fix, errors for values that must not be used, and the rule list as it will be searched.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::cli {
namespace {

struct Case {
  std::string rule;
  int status;         // the exit status on a tree of one file made today (-1: depends on the year)
  std::string says;   // a piece of stderr
};

TEST(ValueWarnings, EachReadingIsSaidOnceWithItsFix) {
  testing::TempTree tree({"notes(1).txt=12345"});
  const std::string err = tree.path("err");
  const Case cases[] = {
      {"size: > 2K", 0, "\"> 2K\" reads as 2 (a size letter without \"B\" is no unit); write \"2 KB\""},
      {"size: 1 TB", 1, "reads as 0: a terabyte unit"},
      {"size: != 0", 1, "write \"<>\" for not equal"},
      {"size: => 5", 0, "write \">=\""},
      {"size: 5 lots", 0, "\"lots\" after the number in \"5 lots\" is ignored"},
      {"size: 2.5 MB", 1, "the fraction in \"2.5 MB\" is ignored"},
      {"DateModified: 2026-05", -1, "\"2026-05\" reads as 1/1/2026 .. 1/1/2027, not as a month"},
      {"name: notes(1).txt", 1, "is read as a regular expression; for the text as it stands write \"=notes(1).txt\""},
      // Errors: never a wrapped, clamped or guessed value.
      {"size: 99999999999999999999", 2, "too large for 64 bits"},
      {"System.GPS.LatitudeDecimal: 1e999", 2, "out of the range of a floating-point number"},
      {"size: lots", 2, "Enter a number or a range with optional units. Examples: >=50 KB; <=100"},
      {"DateModified: someday", 2, "Periods: last hour, today, yesterday"},
      {"Folder: maybe", 2, "none of the choices for Folder: \"No\", \"Yes\""},
      {"sise: 5", 2, "unknown property \"sise\" (did you mean Size?)"},
      {"> or name: x", 2, "\"or\" after \">\" is not understood; the context comes first (\"or > name: ...\")"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.rule);
    testing::ProgramRun run = testing::RunProgram(TROVIX_CLI_PATH, {"search", tree.root(), "-r", c.rule}, err);
    if (c.status >= 0) {
      EXPECT_EQ(run.status, c.status);
    }
    EXPECT_NE(run.err.find(c.says), std::string::npos) << run.err;
    if (c.status != 2) {
      EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
      testing::ProgramRun quiet =
          testing::RunProgram(TROVIX_CLI_PATH, {"search", tree.root(), "-r", c.rule, "--no-warnings"}, err);
      EXPECT_EQ(quiet.err, "");
    }
  }
  // The same warning for the same rule twice is said once; --literal takes the text as it is.
  testing::ProgramRun twice =
      testing::RunProgram(TROVIX_CLI_PATH, {"search", tree.root(), "-r", "size: > 2K", "-r", "size: > 2K"}, err);
  EXPECT_EQ(std::count(twice.err.begin(), twice.err.end(), '\n'), 1) << twice.err;
  testing::ProgramRun literal =
      testing::RunProgram(TROVIX_CLI_PATH, {"search", tree.root(), "-r", "name: notes(1)", "--literal"}, err);
  EXPECT_EQ(literal.out, tree.path("notes(1).txt") + "\n");
  EXPECT_EQ(literal.err, "");
}

TEST(ValueWarnings, TheRuleListShowsBracketsConditionsAndFlags) {
  testing::TempTree tree({"a.txt=1"});
  const std::string err = tree.path("err");
  testing::ProgramRun run = testing::RunProgram(
      TROVIX_CLI_PATH,
      {"search", tree.root(), "--show-rules", "-r", "name: report", "-r", "and size: >= 1 MB", "-r",
       "or > DateModified: yesterday", "-r", "> > Folder: no", "-r", "and not name: =*.tmp"},
      err);
  EXPECT_EQ(run.out, "");  // the list goes to stderr: piped results stay clean
  EXPECT_EQ(run.err,
            "1   Name (System.ItemNameDisplay) contains report [ignoring case]\n"
            "2   AND ( Size (System.Size) >=1 MB\n"
            "3     OR ( Date modified (System.DateModified) yesterday [a period, computed when the search starts]\n"
            "4       AND Folder (Stock.IsFolder) is No ))\n"
            "5   AND NOT Name (System.ItemNameDisplay) matches *.tmp [WC] [ignoring case, exact match]\n");
  // explain prints the list before its report; with no rules, the file's properties.
  testing::ProgramRun explain = testing::RunProgram(TROVIX_CLI_PATH, {"explain", tree.path("a.txt"), "-r", "name: a"});
  EXPECT_EQ(explain.out.rfind("1   Name (System.ItemNameDisplay) contains a", 0), 0u) << explain.out;
  EXPECT_NE(explain.out.find("FOUND!"), std::string::npos);
  testing::ProgramRun props = testing::RunProgram(TROVIX_CLI_PATH, {"explain", tree.path("a.txt")});
  EXPECT_EQ(props.status, 0);
  EXPECT_NE(props.out.find("System.Size\tSize\t1"), std::string::npos) << props.out;
}

}  // namespace
}  // namespace trovix::cli
