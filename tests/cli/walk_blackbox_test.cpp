// What the walk could not read, roots as given, and output that cannot be written: the exit
// statuses and messages of trovix-cli as a program.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::cli {
namespace {

testing::ProgramRun Cli(const std::vector<std::string>& args, const std::string& err = "",
                        const std::string& env = "") {
  return testing::RunProgram(TROVIX_CLI_PATH, args, err, env);
}

TEST(WalkMessages, RootsAreLiteralAndABadOneIsNamedWhileTheOthersAreSearched) {
  testing::TempTree tree({"a|b/in.txt", "z|../deep.txt", "plain/p.txt", "file.txt"});
  const std::string err = tree.path("err");
  testing::ProgramRun run = Cli({"search", tree.path("a|b"), tree.path("nosuch"), tree.path("file.txt"),
                                 tree.path("z|.."), "--ext", "txt"},
                                err);
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(testing::SortedLines(run.out),
            (std::vector<std::string>{tree.path("a|b/in.txt"), tree.path("z|../deep.txt")}));
  EXPECT_NE(run.err.find(tree.path("nosuch") + ": No such file or directory"), std::string::npos) << run.err;
  EXPECT_NE(run.err.find(tree.path("file.txt") + ": Not a directory"), std::string::npos) << run.err;
  // The program's own "|"-joined root text is still there, behind --roots.
  testing::ProgramRun joined = Cli({"search", "--roots", tree.path("plain") + "|" + tree.path("a|b"), "--ext", "txt"});
  EXPECT_EQ(joined.status, 0);
  // A folder given twice (or through another spelling) is searched once.
  EXPECT_EQ(Cli({"search", tree.path("plain"), tree.path("plain/"), "--ext", "txt"}).out, tree.path("plain/p.txt") + "\n");
  // Only bad roots: each named, then the system's message; status 2.
  testing::ProgramRun none = Cli({"search", tree.path("nosuch"), "--ext", "txt"}, err);
  EXPECT_EQ(none.status, 2);
  EXPECT_NE(none.err.find("nosuch: No such file or directory"), std::string::npos) << none.err;
}

TEST(WalkMessages, RelativeRootsGiveRelativePaths) {
  testing::TempTree tree({"src/a.txt", "src/sub/b.txt"});
  const std::string in_tree = "cd " + testing::ShellQuote(tree.root()) + " && ";
  testing::ProgramRun relative = Cli({"search", "src", "--ext", "txt", "--ordered", "--threads", "1"}, "", in_tree);
  EXPECT_EQ(testing::SortedLines(relative.out), (std::vector<std::string>{"src/a.txt", "src/sub/b.txt"}));
  testing::ProgramRun here = Cli({"search", "--ext", "txt"}, "", in_tree);
  EXPECT_EQ(testing::SortedLines(here.out), (std::vector<std::string>{"src/a.txt", "src/sub/b.txt"}));
  testing::ProgramRun dot = Cli({"search", ".", "--ext", "txt", "-x", "echo", "{//}"}, "", in_tree);
  EXPECT_EQ(testing::SortedLines(dot.out), (std::vector<std::string>{"./src", "./src/sub"}));
  testing::ProgramRun absolute = Cli({"search", tree.path("src"), "--ext", "txt", "-d", "1"});
  EXPECT_EQ(absolute.out, tree.path("src/a.txt") + "\n");
}

TEST(WalkMessages, AnUnreadableFolderIsNamedAndMakesTheStatusTwo) {
  testing::TempTree tree({"open/a.txt", "locked/inner/b.txt"});
  ASSERT_EQ(chmod(tree.path("locked").c_str(), 0), 0);
  // Root reads every folder: the search then runs as another user.
  std::string as_user;
  if (geteuid() == 0) {
    if (access("/usr/bin/setpriv", X_OK) != 0) GTEST_SKIP() << "running as root without setpriv";
    as_user = "/usr/bin/setpriv --reuid=nobody --regid=nogroup --clear-groups ";
    chmod(tree.root().c_str(), 0755);
  }
  const std::string err = tree.path("err");
  auto run = [&](std::vector<std::string> extra) {
    std::vector<std::string> args = {"search", tree.root(), "--ext", "txt"};
    args.insert(args.end(), extra.begin(), extra.end());
    return Cli(args, err, as_user);
  };
  testing::ProgramRun plain = run({});
  EXPECT_EQ(plain.status, 2);
  EXPECT_EQ(plain.out, tree.path("open/a.txt") + "\n");
  EXPECT_NE(plain.err.find(tree.path("locked") + ": Permission denied"), std::string::npos) << plain.err;
  testing::ProgramRun silent = run({"--no-messages"});
  EXPECT_EQ(silent.status, 2);
  EXPECT_EQ(silent.err, "");
  testing::ProgramRun quiet = run({"-q"});  // found something: 0, as rg's -q
  EXPECT_EQ(quiet.status, 0);
  EXPECT_EQ(quiet.out, "");
  chmod(tree.path("locked").c_str(), 0755);
}

TEST(WalkMessages, ATreeDeeperThanAnyPathLimitIsWalkedWhole) {
  testing::TempTree tree;
  // 100 folders of 200 bytes: a path of some 20,000 bytes, built relative to each parent since
  // no single call takes it.
  const std::string name(200, 'd');
  std::string relative;
  int dir = open(tree.root().c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_GE(dir, 0);
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(mkdirat(dir, name.c_str(), 0755), 0);
    int next = openat(dir, name.c_str(), O_RDONLY | O_DIRECTORY);
    close(dir);
    ASSERT_GE(next, 0);
    dir = next;
    relative += name + "/";
  }
  int file = openat(dir, "leaf.txt", O_CREAT | O_WRONLY, 0644);
  ASSERT_EQ(write(file, "hello", 5), 5);
  close(file);
  close(dir);
  const std::string expected = tree.root() + "/" + relative + "leaf.txt\n";
  ASSERT_GT(expected.size(), 20000u);
  // A name rule needs no status; a size rule does: both reach the bottom.
  testing::ProgramRun by_name = Cli({"search", tree.root(), "--ext", "txt"});
  EXPECT_EQ(by_name.status, 0);
  EXPECT_EQ(by_name.out, expected);
  testing::ProgramRun by_size = Cli({"search", tree.root(), "--ext", "txt", "-S", "5"});
  EXPECT_EQ(by_size.out, expected);
  // TempTree removes what it made; a tree this deep needs removing from the bottom up.
  testing::RunProgram("/bin/sh", {"-c", "cd " + testing::ShellQuote(tree.root()) + " && rm -rf " + name});
}

TEST(WalkMessages, OutputThatCannotBeWrittenEndsTheSearch) {
  testing::TempTree tree;
  for (int i = 0; i < 3000; ++i) tree.Add("many/file-" + std::to_string(i) + ".txt");
  const std::string err = tree.path("err");
  const std::string cli = testing::ShellQuote(TROVIX_CLI_PATH);
  const std::string root = testing::ShellQuote(tree.path("many"));
  // A full disk is an error with a message.
  testing::ProgramRun full =
      testing::RunProgram("/bin/sh", {"-c", cli + " search " + root + " --ext txt > /dev/full"}, err);
  EXPECT_EQ(full.status, 2);
  EXPECT_NE(full.err.find("cannot write the results: No space left on device"), std::string::npos) << full.err;
  // A reader that leaves early is not: quiet, and the status says what was found.
  testing::ProgramRun head = testing::RunProgram(
      "/bin/bash", {"-c", cli + " search " + root + " --ext txt | head -1 >/dev/null; echo ${PIPESTATUS[0]}"}, err);
  EXPECT_EQ(head.out, "0\n");
  EXPECT_EQ(head.err, "");
}

}  // namespace
}  // namespace trovix::cli
