#include "app/command_line.h"

#include <gtest/gtest.h>

#include <set>

namespace trovix::app {
namespace {

// Only the names in `existing` exist.
ExistsFunction Existing(std::set<std::string> existing) {
  return [existing](const std::string& path) { return existing.count(path) > 0; };
}

TEST(CommandLine, SplitsAtBlanksOutsideQuotes) {
  std::vector<CommandArgument> args =
      SplitCommandLine("  trovix.exe \"/home/my files\"  /G:\"saved one\" plain\tx\"y z\"");
  ASSERT_EQ(args.size(), 5u);
  EXPECT_EQ(args[0].text, "trovix.exe");
  EXPECT_EQ(args[1].text, "/home/my files");
  EXPECT_TRUE(args[1].quoted);
  EXPECT_EQ(args[2].text, "/G:saved one");
  EXPECT_EQ(args[3].text, "plain");
  EXPECT_FALSE(args[3].quoted);
  EXPECT_EQ(args[4].text, "xy z");
  EXPECT_TRUE(SplitCommandLine("   ").empty());
  EXPECT_EQ(SplitCommandLine("a \"\"")[1].text, "");  // an empty quoted argument stays
}

TEST(CommandLine, SwitchesByDashOrSlashInAnyCase) {
  struct Case {
    const char* line;
    uint32_t switches;
    const char* search;
    const char* settings;
  };
  const Case cases[] = {
      {"p /C /G:Big files", kSwitchConsole, "Big", ""},  // "files" is a plain argument
      {"p /i:alt -I:other", 0, "", "other"},  // the last one wins
      {"p /F /J /M /P", kSwitchFresh | kSwitchSharedData | kSwitchMinimised | kSwitchPrivate, "",
       ""},
      {"p -fresh -x /Q", kSwitchFresh, "", ""},  // a dash switch is chosen by its second character
      {"p /G: /I:", 0, "", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    CommandLine line = ParseCommandLine(c.line, 5, Existing({}));
    EXPECT_EQ(line.switches, c.switches);
    EXPECT_EQ(line.search, c.search);
    EXPECT_EQ(line.settings_path, c.settings);
    EXPECT_EQ(line.show_command, 5u);
  }
}

TEST(CommandLine, AbsolutePathsAreRootsNotSwitches) {
  EXPECT_TRUE(IsSwitchArgument("/C"));
  EXPECT_TRUE(IsSwitchArgument("/g:x"));
  EXPECT_TRUE(IsSwitchArgument("-anything"));
  EXPECT_FALSE(IsSwitchArgument("/home"));
  EXPECT_FALSE(IsSwitchArgument("/"));
  EXPECT_FALSE(IsSwitchArgument("-"));
  EXPECT_FALSE(IsSwitchArgument("/1"));
  CommandLine line = ParseCommandLine("p /home/a /srv/b", 1, Existing({"/srv/b"}));
  EXPECT_EQ(line.root, "/srv/b");  // the last plain argument
  EXPECT_EQ(line.switches, 0u);
}

TEST(CommandLine, UnquotedBlanksAreJoinedOnlyWhenNothingOfTheLastNameExists) {
  struct Case {
    const char* line;
    std::set<std::string> existing;
    const char* root;
  };
  const Case cases[] = {
      {"p /home/My Files", {}, "/home/My Files"},
      {"p /home/My  Files", {}, "/home/My Files"},       // single blanks when joined
      {"p /home/My Files", {"Files"}, "Files"},          // the last one exists: no joining
      {"p \"/home/My\" Files", {}, "Files"},             // something was quoted
      {"p /home/My Files /F", {}, "Files"},              // a switch is present
      {"p /data", {}, "/data"},                          // one argument needs no joining
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    EXPECT_EQ(ParseCommandLine(c.line, 1, Existing(c.existing)).root, c.root);
  }
  // An already split argument vector (the program's own argv) joins the same way.
  EXPECT_EQ(ParseArguments(std::vector<std::string>{"/tmp/a", "b"}, 1, Existing({})).root,
            "/tmp/a b");
}

TEST(CommandLine, PrivateInstanceNeedsABlankBeforeTheSwitch) {
  EXPECT_TRUE(WantsPrivateInstance("trovix /p"));
  EXPECT_TRUE(WantsPrivateInstance("trovix /G:x /P /tmp"));
  EXPECT_FALSE(WantsPrivateInstance("trovix/p"));
  EXPECT_FALSE(WantsPrivateInstance("trovix -p"));
}

}  // namespace
}  // namespace trovix::app
