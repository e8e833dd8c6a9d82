// Names and files made by someone else, met by trovix-cli: a file name that is an option of the
// command run on it, escape sequences in names and values on their way to a terminal, a FIFO
// where a desktop-entry file is expected, an ignore file with a line of many megabytes.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/support/cli_run.h"

namespace trovix::cli {
namespace {

using testing::RunCli;

// trovix-cli run in `folder` (relative results) through sh.
testing::ProgramRun CliIn(const testing::TempTree& tree, const std::string& folder, const std::string& args) {
  return testing::RunProgram(
      "/bin/sh", {"-c", "cd " + testing::ShellQuote(folder) + " && exec " + std::string(TROVIX_CLI_PATH) + " " + args},
      tree.path("stderr.txt"), "XDG_CACHE_HOME=" + testing::ShellQuote(tree.path(".cache")) + " ");
}

// On a pseudo-terminal, as a user at a terminal sees it (script(1) makes one).
testing::ProgramRun OnTerminal(const testing::TempTree& tree, const std::string& args) {
  return testing::RunProgram("/usr/bin/script", {"-qec", std::string(TROVIX_CLI_PATH) + " " + args, "/dev/null"},
                             "", "XDG_CACHE_HOME=" + testing::ShellQuote(tree.path(".cache")) + " NO_COLOR=1 ");
}

TEST(HostileNames, ResultsNamedLikeOptionsReachCommandsAsFiles) {
  if (access("/usr/bin/tar", X_OK) != 0 && access("/bin/tar", X_OK) != 0) GTEST_SKIP() << "tar is not installed";
  testing::TempTree tree({"box/x.sh=touch pwned\n"});
  for (const char* name : {"box/--checkpoint=1", "box/--checkpoint-action=exec=sh x.sh", "box/-n"}) tree.File(name, "");
  // tar reads "--checkpoint-action=exec=sh x.sh" as an option when it is given bare.
  testing::ProgramRun run = CliIn(tree, tree.path("box"), "search -t f -X tar cf out.tar");
  EXPECT_EQ(run.status, 0) << testing::ReadWholeFile(tree.path("stderr.txt"));
  EXPECT_FALSE(std::filesystem::exists(tree.path("box/pwned")));
  testing::ProgramRun listed = testing::RunProgram("tar", {"tf", tree.path("box/out.tar")});
  EXPECT_EQ(testing::SortedLines(listed.out),
            (std::vector<std::string>{"./--checkpoint-action=exec=sh x.sh", "./--checkpoint=1", "./-n", "x.sh"}));
  // Per result too: echo gets "./-n", not its option -n.
  testing::ProgramRun each = CliIn(tree, tree.path("box"), "search -r 'name: -n' -x echo");
  EXPECT_EQ(each.out, "./-n\n");
  // Absolute results are left as they are.
  testing::ProgramRun absolute = RunCli(tree, {"search", tree.path("box"), "-r", "name: -n", "-x", "echo"});
  EXPECT_EQ(absolute.out, tree.path("box/-n") + "\n");
}

TEST(HostileNames, TerminalsGetColumnsAndPropertiesEscapedPipesGetThemWhole) {
  if (access("/usr/bin/script", X_OK) != 0) GTEST_SKIP() << "script(1) is not installed: no terminal to test with";
  testing::TempTree tree({"d/evil\x1b]0;owned\x07.txt=x", "d/c/.directory=[Desktop Entry]\nComment=one\\ntwo\x1b[2J\n"});
  const std::string d = testing::ShellQuote(tree.path("d"));
  // --columns on a terminal: the name's escape sequence shown, not obeyed; headers by label.
  testing::ProgramRun columns = OnTerminal(tree, "search " + d + " --ext txt --columns name,size");
  EXPECT_NE(columns.out.find("Name\tSize"), std::string::npos) << columns.out;
  EXPECT_NE(columns.out.find("evil\\e]0;owned\\x07.txt\t1"), std::string::npos) << columns.out;
  EXPECT_EQ(columns.out.find("\x1b]0;"), std::string::npos) << columns.out;
  // A comment (the folder's say about itself) likewise, its newline kept on one line.
  testing::ProgramRun comment = OnTerminal(tree, "search " + d + " -r 'name: c' --columns name,System.Comment");
  EXPECT_NE(comment.out.find("c\tone\\ntwo\\e[2J"), std::string::npos) << comment.out;
  // props, plain: the same escapes on a terminal; into a pipe the bytes, but one line per value.
  testing::ProgramRun props_shown = OnTerminal(tree, "props " + testing::ShellQuote(tree.path("d/c")));
  EXPECT_NE(props_shown.out.find("one\\ntwo\\e[2J"), std::string::npos) << props_shown.out;
  testing::ProgramRun props_piped = RunCli(tree, {"props", tree.path("d/c")});
  EXPECT_NE(props_piped.out.find("\tone\\ntwo\x1b[2J\n"), std::string::npos) << props_piped.out;
  // explain's report quotes the name.
  testing::ProgramRun report =
      OnTerminal(tree, "explain " + testing::ShellQuote(tree.path("d/evil\x1b]0;owned\x07.txt")) + " -r 'name: *.txt'");
  EXPECT_NE(report.out.find("Name: evil\\e]0;owned\\x07.txt"), std::string::npos) << report.out;
  EXPECT_EQ(report.out.find("\x1b]0;"), std::string::npos) << report.out;
  // JSON stays JSON, on a terminal too.
  testing::ProgramRun json = OnTerminal(tree, "search " + d + " --ext txt --json");
  EXPECT_NE(json.out.find("evil\\u001b]0;owned\\u0007.txt"), std::string::npos) << json.out;
}

TEST(HostileNames, AFifoNamedLikeADesktopEntryFileNeverHangsASearch) {
  testing::TempTree tree({"d/stuck/.directory|fifo", "d/told/.directory=[Desktop Entry]\nComment=kept\n",
                          "d/huge/"});
  tree.File("d/huge/.directory", "[Desktop Entry]\nComment=big\n" + std::string(1 << 20, '#'));
  // `timeout` stands in for a user who gives up: a hang shows as its status 124.
  testing::ProgramRun run = testing::RunProgram(
      "timeout", {"20", TROVIX_CLI_PATH, "search", tree.path("d"), "-t", "d", "--columns", "name,System.Comment",
                  "--ordered"});
  EXPECT_NE(run.status, 124);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(testing::SortedLines(run.out),
            (std::vector<std::string>{"Name\tComments", "huge\t", "stuck\t", "told\tkept"}));
}

TEST(HostileNames, AnIgnoreLineOfManyMegabytesIsSkippedAndTheRestStillHolds) {
  testing::TempTree tree({"repo/.git/", "repo/a.log=x", "repo/b.txt=x"});
  tree.File("repo/.gitignore", std::string(15u << 20, 'a') + "*\n*.log\n");
  testing::ProgramRun run = RunCli(tree, {"search", tree.path("repo"), "--ignore-vcs", "-t", "f"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, tree.path("repo/b.txt") + "\n");
  // An -E pattern that long is an error, said as such.
  testing::ProgramRun exclude = RunCli(tree, {"search", tree.path("repo"), "-E", std::string(5000, '*')});
  EXPECT_EQ(exclude.status, 2);
  EXPECT_NE(testing::ReadWholeFile(tree.path("stderr.txt")).find("longer than 4096 bytes"), std::string::npos);
}

}  // namespace
}  // namespace trovix::cli
