// --help, the manual page and the shell completions come from one table; these tests hold the
// built files to what the program says of itself, so that they cannot drift apart.
#include <gtest/gtest.h>
#include <unistd.h>

#include <regex>
#include <set>

#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::cli {
namespace {

testing::ProgramRun Cli(const std::vector<std::string>& args, const std::string& err = "") {
  return testing::RunProgram(TROVIX_CLI_PATH, args, err);
}

std::string BuildFile(const std::string& relative) {
  std::string cli = TROVIX_CLI_PATH;
  return testing::ReadWholeFile(cli.substr(0, cli.rfind('/') + 1) + relative);
}

std::set<std::string> LongOptions(const std::string& help) {
  std::set<std::string> names;
  static const std::regex kOption("(^|[ ,])(--[a-z][a-z0-9-]*)");
  for (auto it = std::sregex_iterator(help.begin(), help.end(), kOption); it != std::sregex_iterator(); ++it)
    names.insert((*it)[2]);
  return names;
}

std::string ManEscaped(const std::string& option) { return std::regex_replace(option, std::regex("-"), "\\-"); }

TEST(Help, EveryCommandsOptionsAreInTheManualPageAndEveryCompletion) {
  const std::string man = BuildFile("trovix-cli.1");
  const std::string bash = BuildFile("completions/trovix-cli.bash");
  const std::string zsh = BuildFile("completions/_trovix-cli");
  const std::string fish = BuildFile("completions/trovix-cli.fish");
  ASSERT_FALSE(man.empty() || bash.empty() || zsh.empty() || fish.empty()) << "the build did not write them";
  // The files in the build are what the program prints now.
  EXPECT_EQ(man, Cli({"--generate", "man"}).out);
  EXPECT_EQ(fish, Cli({"--generate", "fish"}).out);
  for (const char* command : {"search", "explain", "props", "text", "saved", "settings"}) {
    SCOPED_TRACE(command);
    testing::ProgramRun help = Cli({command, "--help"});
    EXPECT_EQ(help.status, 0);
    std::set<std::string> options = LongOptions(help.out);
    EXPECT_FALSE(options.empty());
    EXPECT_NE(man.find(std::string(".SS ") + command), std::string::npos);
    for (const std::string& option : options) {
      EXPECT_NE(man.find("\\fB" + ManEscaped(option) + "\\fR"), std::string::npos) << option;
      EXPECT_NE(bash.find(option + " "), std::string::npos) << option;
      EXPECT_NE(zsh.find("*" + option + "["), std::string::npos) << option;
      EXPECT_NE(fish.find("-l " + option.substr(2) + " "), std::string::npos) << option;
    }
  }
}

TEST(Help, CompletionScriptsAreValidForTheirShells) {
  testing::TempTree tree;
  struct Shell {
    const char* program;
    const char* file;
  } shells[] = {{"/bin/bash", "completions/trovix-cli.bash"},
                {"/usr/bin/zsh", "completions/_trovix-cli"},
                {"/usr/bin/fish", "completions/trovix-cli.fish"}};
  int checked = 0;
  for (const Shell& s : shells) {
    if (access(s.program, X_OK) != 0) continue;
    std::string cli = TROVIX_CLI_PATH;
    testing::ProgramRun run =
        testing::RunProgram(s.program, {"-n", cli.substr(0, cli.rfind('/') + 1) + s.file}, tree.path("err"));
    EXPECT_EQ(run.status, 0) << s.program << ": " << run.err;
    ++checked;
  }
  if (checked < 3) std::printf("[ NOTE ] %d of 3 shells installed; the others' scripts were not parsed\n", checked);
}

TEST(Help, VersionHelpAndMistypedNames) {
  testing::TempTree tree;
  const std::string err = tree.path("err");
  testing::ProgramRun version = Cli({"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out.rfind("trovix-cli ", 0), 0u);
  EXPECT_EQ(Cli({"-V"}).out, version.out);
  testing::ProgramRun help = Cli({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("trovix-cli search"), std::string::npos);
  EXPECT_EQ(Cli({"help", "search"}).out, Cli({"search", "--help"}).out);

  testing::ProgramRun command = Cli({"serach"}, err);
  EXPECT_EQ(command.status, 2);
  EXPECT_NE(command.err.find("did you mean search?"), std::string::npos) << command.err;
  testing::ProgramRun option = Cli({"search", "--follow-link"}, err);
  EXPECT_EQ(option.status, 2);
  EXPECT_NE(option.err.find("did you mean --follow-links?"), std::string::npos) << option.err;
  testing::ProgramRun props = Cli({"props", "--jsn", "x"}, err);
  EXPECT_EQ(props.status, 2);
  EXPECT_NE(props.err.find("--json"), std::string::npos) << props.err;
}

}  // namespace
}  // namespace trovix::cli
