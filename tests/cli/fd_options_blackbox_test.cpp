// The fd-style options of trovix-cli against fd itself on the same generated tree: the same
// items must come out. Skips visibly where fd is not installed (Debian names it fdfind).
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <set>
#include <sstream>

#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::cli {
namespace {

std::string FdProgram() {
  for (const char* p : {"/usr/bin/fdfind", "/usr/bin/fd", "/usr/local/bin/fd"})
    if (access(p, X_OK) == 0) return p;
  return "";
}

// The paths a run printed, relative to `root`, without a folder's trailing "/".
std::set<std::string> RelativeLines(const std::string& out, const std::string& root) {
  std::set<std::string> lines;
  std::istringstream in(out);
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind(root + "/", 0) == 0) line = line.substr(root.size() + 1);
    if (line.rfind("./", 0) == 0) line = line.substr(2);
    while (line.size() > 1 && line.back() == '/') line.pop_back();
    lines.insert(line);
  }
  return lines;
}

void SetAge(const std::string& path, int seconds_ago) {
  struct timeval times[2];
  times[0].tv_sec = times[1].tv_sec = std::time(nullptr) - seconds_ago;
  times[0].tv_usec = times[1].tv_usec = 0;
  ASSERT_EQ(lutimes(path.c_str(), times), 0) << path;
}

class FdOptions : public ::testing::Test {
 protected:
  void SetUp() override {
    fd_ = FdProgram();
    if (fd_.empty()) GTEST_SKIP() << "fd is not installed: the fd-style options are not compared";
    const std::string pdf(3000, 'x'), gz(1500, 'z'), cpp(900, 'c'), deep(2048, 'd');
    tree_ = std::make_unique<testing::TempTree>(std::initializer_list<std::string_view>{
        "docs/report.pdf=" + pdf, "docs/notes.TXT=hello", "docs/empty.txt=", "docs/archive.tar.gz=" + gz,
        "src/main.cpp=" + cpp, "src/deep/er/file.cpp=" + deep, "bin/tool=#!/bin/sh\n", "empty/"});
    ASSERT_EQ(chmod(tree_->path("bin/tool").c_str(), 0755), 0);
    ASSERT_EQ(symlink("docs/report.pdf", tree_->path("report-link").c_str()), 0);
    SetAge(tree_->path("docs/report.pdf"), 3 * 86400);
    SetAge(tree_->path("src/main.cpp"), 2 * 3600);
  }

  // Both programs with the same options; trovix-cli's --ext is fd's --extension.
  void Compare(const std::vector<std::string>& ours, const std::vector<std::string>& theirs) {
    std::vector<std::string> args = {"search", tree_->root(), "--threads", "1"};
    args.insert(args.end(), ours.begin(), ours.end());
    testing::ProgramRun run = testing::RunProgram(TROVIX_CLI_PATH, args);
    std::vector<std::string> fd_args = {"-u", "."};
    fd_args.insert(fd_args.end(), theirs.begin(), theirs.end());
    fd_args.push_back(tree_->root());
    testing::ProgramRun fd = testing::RunProgram(fd_, fd_args);
    ASSERT_EQ(fd.status, 0) << "fd refused the options";
    std::set<std::string> expected = RelativeLines(fd.out, tree_->root());
    EXPECT_EQ(RelativeLines(run.out, tree_->root()), expected);
    EXPECT_EQ(run.status, expected.empty() ? 1 : 0);
  }

  std::string fd_;
  std::unique_ptr<testing::TempTree> tree_;
};

TEST_F(FdOptions, TypesAloneAndCombined) {
  for (const char* type : {"f", "d", "l", "x", "e"}) {
    SCOPED_TRACE(type);
    Compare({"-t", type}, {"-t", type});
  }
  // Several kinds are alternatives; "e" beside "f" narrows to empty files.
  Compare({"-t", "f", "-t", "l"}, {"-t", "f", "-t", "l"});
  Compare({"-t", "f", "-t", "e"}, {"-t", "f", "-t", "e"});
  Compare({"-t", "d", "-t", "e"}, {"-t", "d", "-t", "e"});
}

TEST_F(FdOptions, ExtensionsSizesAndTimes) {
  Compare({"--ext", "txt"}, {"-e", "txt"});
  Compare({"--ext", "txt", "--ext", "pdf"}, {"-e", "txt", "-e", "pdf"});
  Compare({"--ext", "tar.gz"}, {"-e", "tar.gz"});
  for (const char* size : {"+2k", "-1ki", "+2ki", "-900b", "+1k"}) {
    SCOPED_TRACE(size);
    Compare({"-t", "f", "-S", size}, {"-t", "f", "-S", size});
  }
  Compare({"--changed-within", "1h"}, {"--changed-within", "1h"});
  Compare({"--changed-before", "1day"}, {"--changed-before", "1day"});
  Compare({"--changed-within", "2days", "-t", "f"}, {"--changed-within", "2days", "-t", "f"});
}

TEST_F(FdOptions, DepthsAndExcludesLimitTheWalk) {
  Compare({"-d", "1"}, {"-d", "1"});
  Compare({"-d", "2", "-t", "f"}, {"-d", "2", "-t", "f"});
  Compare({"--min-depth", "3"}, {"--min-depth", "3"});
  Compare({"--min-depth", "2", "--max-depth", "2"}, {"--min-depth", "2", "--max-depth", "2"});
  Compare({"-E", "src"}, {"-E", "src"});
  Compare({"-E", "*.txt", "-E", "deep/"}, {"-E", "*.txt", "-E", "deep/"});
  Compare({"-E", "src/deep/er"}, {"-E", "src/deep/er"});
}

TEST_F(FdOptions, IgnoreFilesOfAWorkTree) {
  if (testing::RunProgram("/usr/bin/git", {"init", "-q", tree_->root()}).status != 0) GTEST_SKIP() << "no git";
  tree_->Add(".gitignore=*.gz\nsrc/deep/\n!keep.gz\n");
  tree_->Add("docs/.ignore=*.TXT\n");
  tree_->Add("docs/keep.gz=k");
  tree_->Add(".git/info/exclude=tool\n");
  // fd shows hidden items with -H, the .git folder aside; --ignore-vcs is fd's default.
  std::vector<std::string> args = {"search", tree_->root(), "-H", "--ignore-vcs", "-E", ".git"};
  testing::ProgramRun run = testing::RunProgram(TROVIX_CLI_PATH, args);
  testing::ProgramRun fd = testing::RunProgram(fd_, {"-H", "-E", ".git", ".", tree_->root()});
  EXPECT_EQ(RelativeLines(run.out, tree_->root()), RelativeLines(fd.out, tree_->root()));
  EXPECT_EQ(RelativeLines(run.out, tree_->root()).count("docs/keep.gz"), 1u);
}

TEST_F(FdOptions, JoinTheUsersRulesWithAnd) {
  // name *.cpp OR name *.pdf, and then at least 1,000 bytes: brackets of the user's rules hold.
  testing::ProgramRun run = testing::RunProgram(
      TROVIX_CLI_PATH, {"search", tree_->root(), "-r", "name: =*.cpp", "-r", "or name: =*.pdf", "-S", "+1k"});
  EXPECT_EQ(RelativeLines(run.out, tree_->root()),
            (std::set<std::string>{"docs/report.pdf", "src/deep/er/file.cpp"}));
}

TEST(FdOptionValues, MistakesAreErrorsThatSayWhatIsTaken) {
  testing::TempTree tree({"a.txt=1"});
  const std::string err = tree.path("err");
  struct Case {
    std::vector<std::string> args;
    std::string says;
  } cases[] = {
      {{"-t", "q"}, "--type takes f (file)"},
      {{"-S", "10x"}, "--size takes [+-]NUMBER[UNIT]"},
      {{"-S", "99999999999ti"}, "too large"},
      {{"--ext", "*.txt"}, "--ext takes an extension"},
      {{"--changed-within", "soon"}, "--changed-within takes a duration"},
      {{"--changed-before", "2026-13-01"}, "--changed-before takes a duration"},
      {{"--max-depth", "1x"}, "--max-depth needs a whole number"},
      {{"--color", "sometimes"}, "--color takes auto, always or never"},
      {{"--sizee", "1"}, "did you mean --size?"},
      {{"-x"}, "needs a command"},
      {{"--hidden=yes"}, "option --hidden takes no value"},
      {{"--max-depth"}, "option --max-depth needs a value (N)"},
      {{"--no-such-option"}, "unknown option --no-such-option for search"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args = {"search", tree.root()};
    args.insert(args.end(), c.args.begin(), c.args.end());
    testing::ProgramRun run = testing::RunProgram(TROVIX_CLI_PATH, args, err);
    SCOPED_TRACE(c.args[0]);
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find(c.says), std::string::npos) << run.err;
  }
  // "--name=value" is the same as "--name value".
  testing::ProgramRun attached = testing::RunProgram(TROVIX_CLI_PATH, {"search", tree.root(), "--ext=txt"});
  EXPECT_EQ(attached.out, tree.path("a.txt") + "\n");
}

}  // namespace
}  // namespace trovix::cli
