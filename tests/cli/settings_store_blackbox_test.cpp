// The console reads the store the desktop program reads: what `settings set` stores changes what
// a search does, and flag words take "+BITS" and "-BITS". Every run gets its own configuration
// folder and index.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::cli {
namespace {

using testing::ProgramRun;
using testing::ShellQuote;

class DefaultStore : public ::testing::Test {
 protected:
  DefaultStore() : tree_({"indexed/a.txt=a", "elsewhere/b.txt=b", "config/"}) {}

  ProgramRun Cli(std::vector<std::string> args) {
    args.insert(args.begin(), {"--index", tree_.path("index.db")});
    return testing::RunProgram(TROVIX_CLI_PATH, args, tree_.path("stderr.txt"),
                               "XDG_CONFIG_HOME=" + ShellQuote(tree_.path("config")) + " ");
  }

  testing::TempTree tree_;
};

TEST_F(DefaultStore, SettingsSetChangesWhatASearchDoesAndBitsAreSetOneByOne) {
  ASSERT_EQ(Cli({"index", "add", tree_.path("indexed")}).status, 0);
  ASSERT_EQ(Cli({"index", "update"}).status, 0);
  const std::vector<std::string> outside = {"search", tree_.path("elsewhere"), "-r", "name: *.txt"};
  ProgramRun run = Cli(outside);
  EXPECT_EQ(run.out, tree_.path("elsewhere/b.txt") + "\n");
  // The note names the setting as it should be typed: a bit added, not the word replaced.
  EXPECT_NE(run.err.find("settings set bin1OffNotify +1 silences this"), std::string::npos)
      << run.err;

  ASSERT_EQ(Cli({"settings", "set", "bin1OffNotify", "+2"}).status, 0);
  ASSERT_EQ(Cli({"settings", "set", "bin1OffNotify", "+1"}).status, 0);
  EXPECT_EQ(Cli({"settings", "get", "bin1OffNotify", "--raw"}).out, "0x00000003\n");
  run = Cli(outside);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err.find("silences this"), std::string::npos) << run.err;
  ASSERT_EQ(Cli({"settings", "set", "bin1OffNotify", "-0x2"}).status, 0);
  EXPECT_EQ(Cli({"settings", "get", "bin1OffNotify", "--raw"}).out, "0x00000001\n");

  // binFlags 0x08000000: never the index, the folders are walked.
  const std::vector<std::string> inside = {"search", tree_.path("indexed"), "-r", "name: *.txt"};
  EXPECT_NE(Cli(inside).err.find("answered from the index"), std::string::npos);
  ASSERT_EQ(Cli({"settings", "set", "binFlags", "0x200102"}).status, 0);
  ASSERT_EQ(Cli({"settings", "set", "binFlags", "+0x08000000"}).status, 0);
  EXPECT_EQ(Cli({"settings", "get", "binFlags", "--raw"}).out, "0x08200102\n");
  run = Cli(inside);
  EXPECT_EQ(run.out, tree_.path("indexed/a.txt") + "\n");
  EXPECT_EQ(run.err.find("answered from the index"), std::string::npos) << run.err;

  for (const char* bad : {"+", "+-1", "+two", "-"}) {
    SCOPED_TRACE(bad);
    ProgramRun refused = Cli({"settings", "set", "binFlags", bad});
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.err.find("needs bits"), std::string::npos) << refused.err;
  }
  EXPECT_EQ(Cli({"settings", "get", "binFlags", "--raw"}).out, "0x08200102\n");
}

TEST_F(DefaultStore, ASettingsPathNamesTheSharedFolderAndWhy) {
  ProgramRun run = Cli({"settings", "path"});
  EXPECT_EQ(run.out, tree_.path("config/velmora/registry.db") + "\n");
  EXPECT_NE(run.err.find("desktop program"), std::string::npos) << run.err;
  EXPECT_NE(run.err.find("plug-in configuration"), std::string::npos) << run.err;
}

}  // namespace
}  // namespace trovix::cli
