// --exec and --exec-batch: placeholders as fd fills them, outputs kept whole per result,
// exit statuses of the commands folded into trovix-cli's.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "cli/exec_runner.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::cli {
namespace {

using testing::SortedLines;

TEST(ExecPlaceholders, FilledAsFdFillsThem) {
  struct Case {
    const char* argument;
    const char* path;
    const char* expected;
  } cases[] = {
      {"{}", "dir/sub/photo.tar.gz", "dir/sub/photo.tar.gz"},
      {"{/}", "dir/sub/photo.tar.gz", "photo.tar.gz"},
      {"{//}", "dir/sub/photo.tar.gz", "dir/sub"},
      {"{.}", "dir/sub/photo.tar.gz", "dir/sub/photo.tar"},
      {"{/.}", "dir/sub/photo.tar.gz", "photo.tar"},
      {"{//}", "photo.jpg", "."},
      {"{//}", "/photo.jpg", "/"},
      {"{.}", "dir.d/.hidden", "dir.d/.hidden"},  // a leading dot starts no extension
      {"{/.}.png", "a/b.jpg", "b.png"},
      {"x{}y{}", "p", "xpyp"},
      {"{x}", "p", "{x}"},
  };
  for (const Case& c : cases) EXPECT_EQ(ExpandPlaceholders(c.argument, c.path), c.expected) << c.argument;
}

TEST(Exec, EachResultsOutputStaysWholeAndStatusesFold) {
  testing::TempTree tree({"d/a.txt", "d/b.txt", "d/c.txt", "d/bad.txt", "d/skip.md"});
  const std::string err = tree.path("err");
  // Two lines per result, with a pause between them: parallel runs must not interleave them.
  testing::ProgramRun run = testing::RunProgram(
      TROVIX_CLI_PATH, {"search", tree.path("d"), "--ext", "txt", "-x", "sh", "-c",
                        "echo \"1 $0\"; sleep 0.05; echo \"2 $0\"", "{/}", ";"});
  EXPECT_EQ(run.status, 0);
  std::istringstream in(run.out);
  std::string first, second;
  std::set<std::string> names;
  while (std::getline(in, first) && std::getline(in, second)) {
    ASSERT_EQ(first.substr(0, 2), "1 ");
    EXPECT_EQ(second, "2 " + first.substr(2));
    names.insert(first.substr(2));
  }
  EXPECT_EQ(names, (std::set<std::string>{"a.txt", "b.txt", "c.txt", "bad.txt"}));

  // One failing command makes the search's status 2; the others still ran.
  testing::ProgramRun failing = testing::RunProgram(
      TROVIX_CLI_PATH, {"search", tree.path("d"), "--ext", "txt", "-x", "sh", "-c", "echo $0; test $0 != bad.txt",
                        "{/}", ";"});
  EXPECT_EQ(failing.status, 2);
  EXPECT_EQ(SortedLines(failing.out), (std::vector<std::string>{"a.txt", "b.txt", "bad.txt", "c.txt"}));

  // A command that cannot run is said once, whatever the number of results.
  testing::ProgramRun missing =
      testing::RunProgram(TROVIX_CLI_PATH, {"search", tree.path("d"), "--ext", "txt", "-x", "no-such-command-xyz"}, err);
  EXPECT_EQ(missing.status, 2);
  EXPECT_EQ(std::count(missing.err.begin(), missing.err.end(), '\n'), 1) << missing.err;
}

TEST(Exec, BatchGetsEveryResultOnceAndArgumentsAfterTheCommand) {
  testing::TempTree tree({"d/a.txt", "d/b.txt", "d/c.md"});
  // Without a placeholder the paths come last; "--" after the command belongs to the command.
  testing::ProgramRun run = testing::RunProgram(
      TROVIX_CLI_PATH, {"search", tree.path("d"), "-X", "printf", "%s\\n", ";", "--ext", "txt"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(SortedLines(run.out), (std::vector<std::string>{tree.path("d/a.txt"), tree.path("d/b.txt")}));
  testing::ProgramRun named =
      testing::RunProgram(TROVIX_CLI_PATH, {"search", tree.path("d"), "--ext", "txt", "-X", "echo", "{/.}"});
  EXPECT_EQ(SortedLines(named.out).size(), 1u);
  EXPECT_TRUE(named.out == "a b\n" || named.out == "b a\n") << named.out;
  // Nothing found: the batch command does not run at all.
  testing::ProgramRun none =
      testing::RunProgram(TROVIX_CLI_PATH, {"search", tree.path("d"), "--ext", "pdf", "-X", "echo", "ran"});
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.out, "");
}

}  // namespace
}  // namespace trovix::cli
