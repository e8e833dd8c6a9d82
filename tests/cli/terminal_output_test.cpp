// What a terminal sees: names made safe to show, colours as ls gives them, and none of either
// when the output goes into a pipe.
#include <gtest/gtest.h>
#include <unistd.h>

#include "cli/output/ls_colors.h"
#include "cli/output/terminal_text.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::cli {
namespace {

TEST(TerminalSafe, ControlsAndBrokenUtf8AreShownNotObeyed) {
  struct Case {
    std::string in;
    std::string out;
  } cases[] = {
      {"plain/name.txt", "plain/name.txt"},
      {"caf\xc3\xa9/\xe6\x97\xa5\xe6\x9c\xac", "caf\xc3\xa9/\xe6\x97\xa5\xe6\x9c\xac"},  // letters stay
      {"a\tb\nc\rd", "a\\tb\\nc\\rd"},
      {"\x1b]0;title\x07", "\\e]0;title\\x07"},
      {"\x7f", "\\x7f"},
      {"\xc2\x9b" "31m", "\\xc2\\x9b31m"},        // a C1 control sequence introducer
      {"bad\xff\xfe", "bad\\xff\\xfe"},            // not UTF-8
      {"over\xc0\xaflong", "over\\xc0\\xaflong"},  // overlong "/"
      {"cut\xe6\x97", "cut\\xe6\\x97"},            // a character cut short
      {"back\\xslash\\\\", "back\\\\xslash\\\\\\"},
  };
  for (const Case& c : cases) EXPECT_EQ(TerminalSafe(c.in), c.out) << c.in;
}

TEST(LsColorsTest, TypesSuffixesAndTheFolderPart) {
  testing::TempTree tree({"d/photo.JPG=x", "d/tool=x", "d/sub/", "d/gone->d/nothing"});
  ASSERT_EQ(chmod(tree.path("d/tool").c_str(), 0755), 0);
  const LsColors colors = LsColors::Parse("di=34:ex=32:*.jpg=35:*.JPG=36:or=31:ln=33:bogus:fi=0;evil\x1b");
  auto paint = [&](const char* relative) {
    auto item = props::ShellItem::FromPath(tree.path(relative));
    return colors.Paint(relative, *item);
  };
  EXPECT_EQ(paint("d/photo.JPG"), "\x1b[34md/\x1b[0m\x1b[36mphoto.JPG\x1b[0m");  // exact case first
  EXPECT_EQ(paint("d/tool"), "\x1b[34md/\x1b[0m\x1b[32mtool\x1b[0m");
  EXPECT_EQ(paint("d/sub"), "\x1b[34md/\x1b[0m\x1b[34msub\x1b[0m");
  EXPECT_EQ(paint("d/gone"), "\x1b[34md/\x1b[0m\x1b[31mgone\x1b[0m");
}

TEST(TerminalOutput, PipesGetBytesTerminalsGetSafeText) {
  if (access("/usr/bin/script", X_OK) != 0) GTEST_SKIP() << "script(1) is not installed: no terminal to test with";
  testing::TempTree tree({"evil\x1b[2Jname.txt=x"});
  const std::string root = tree.root();
  // Into a pipe: the name byte for byte, no colours even when LS_COLORS asks.
  testing::ProgramRun piped = testing::RunProgram(TROVIX_CLI_PATH, {"search", root, "--ext", "txt"}, "",
                                                  "LS_COLORS='fi=32' ");
  EXPECT_EQ(piped.out, root + "/evil\x1b[2Jname.txt\n");
  // On a terminal (a pseudo-terminal made by script): escaped, and coloured unless NO_COLOR.
  const std::string command = std::string(TROVIX_CLI_PATH) + " search " + testing::ShellQuote(root) + " --ext txt";
  testing::ProgramRun shown = testing::RunProgram(
      "/usr/bin/script", {"-qec", command, "/dev/null"}, "", "LS_COLORS='di=34:*.txt=32' NO_COLOR= ");
  EXPECT_NE(shown.out.find("evil\\e[2Jname.txt"), std::string::npos) << shown.out;
  EXPECT_NE(shown.out.find("\x1b[32mevil"), std::string::npos) << shown.out;
  testing::ProgramRun plain = testing::RunProgram(
      "/usr/bin/script", {"-qec", command, "/dev/null"}, "", "LS_COLORS='di=34:*.txt=32' NO_COLOR=1 ");
  EXPECT_EQ(plain.out.find("\x1b[32m"), std::string::npos) << plain.out;
  EXPECT_EQ(plain.out.find("\x1b[2J"), std::string::npos) << plain.out;
}

}  // namespace
}  // namespace trovix::cli
