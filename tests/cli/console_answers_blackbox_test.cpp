// The small answers of trovix-cli: a reader that stops early, what --help promises, properties
// of an archive member, and advice that is not repeated every time.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::cli {
namespace {

std::string Environment(const testing::TempTree& tree) {
  return "XDG_CACHE_HOME=" + testing::ShellQuote(tree.path(".cache")) + " ";
}

testing::ProgramRun Cli(const testing::TempTree& tree, const std::vector<std::string>& args) {
  return testing::RunProgram(TROVIX_CLI_PATH, args, tree.path("stderr.txt"), Environment(tree));
}

// `trovix-cli ARGS | head -c 60` in bash: the output head kept, and trovix-cli's own status.
testing::ProgramRun IntoHead(const testing::TempTree& tree, const std::string& args) {
  testing::ProgramRun run = testing::RunProgram(
      "/bin/bash", {"-c", std::string(TROVIX_CLI_PATH) + " " + args + " | head -c 60; echo \" status=${PIPESTATUS[0]}\""},
      tree.path("stderr.txt"), Environment(tree));
  return run;
}

TEST(ConsoleAnswers, AReaderThatStopsEarlyIsNoError) {
  if (access("/usr/bin/zip", X_OK) != 0) GTEST_SKIP() << "zip is not installed";
  testing::TempTree tree;
  std::string text;
  for (int i = 0; i < 40000; ++i) text += "line " + std::to_string(i) + " of a long text\n";
  tree.File("big.txt", text);
  ASSERT_EQ(std::system(("cd " + testing::ShellQuote(tree.root()) + " && zip -q a.zip big.txt").c_str()), 0);
  // A plain file (read here) and an archive member (read by the helper, whose answer is cut).
  for (const std::string& file : {tree.path("big.txt"), tree.path("a.zip/big.txt")}) {
    testing::ProgramRun run = IntoHead(tree, "text " + testing::ShellQuote(file));
    EXPECT_EQ(run.out.substr(0, 10), "line 0 of ") << file;
    EXPECT_NE(run.out.find(" status=0"), std::string::npos) << file << ": " << run.out;
    EXPECT_EQ(run.err, "") << file;
  }
  testing::ProgramRun props = IntoHead(tree, "props " + testing::ShellQuote(tree.path("big.txt")) + " --all");
  EXPECT_NE(props.out.find(" status=0"), std::string::npos) << props.out;
  EXPECT_EQ(props.err, "");
}

TEST(ConsoleAnswers, PropsSaysWhatItWritesAndReadsArchiveMembers) {
  if (access("/usr/bin/zip", X_OK) != 0) GTEST_SKIP() << "zip is not installed";
  testing::TempTree tree({"src/docs/b.txt=inside"});
  ASSERT_EQ(std::system(("cd " + testing::ShellQuote(tree.path("src")) + " && zip -qr ../a.zip docs").c_str()), 0);
  EXPECT_NE(Cli(tree, {"props", "--help"}).out.find("one JSON object per property"), std::string::npos);
  testing::ProgramRun member = Cli(tree, {"props", tree.path("a.zip/docs/b.txt")});
  EXPECT_EQ(member.status, 0) << member.err;
  EXPECT_NE(member.out.find("System.ItemNameDisplay\tName\tb.txt\n"), std::string::npos) << member.out;
  EXPECT_NE(member.out.find("System.Size\tSize\t6\n"), std::string::npos) << member.out;
  // A zip keeps a member's modification time only, which stands in for the others: no 1601.
  EXPECT_NE(member.out.find("System.DateModified\t"), std::string::npos) << member.out;
  EXPECT_EQ(member.out.find("1601"), std::string::npos) << member.out;
  testing::ProgramRun json = Cli(tree, {"props", tree.path("a.zip/docs/b.txt"), "--json"});
  EXPECT_NE(json.out.find("{\"name\":\"System.ItemNameDisplay\",\"label\":\"Name\",\"text\":\"b.txt\""),
            std::string::npos)
      << json.out;
  testing::ProgramRun missing = Cli(tree, {"props", tree.path("a.zip/docs/none.txt")});
  EXPECT_EQ(missing.status, 2);
}

TEST(ConsoleAnswers, TheNotInTheIndexNoteComesOncePerRootAndDay) {
  testing::TempTree tree({"docs/a.txt=x", "other/b.txt=x", "third/c.txt=x"});
  const std::string db = tree.path("ix.db");
  ASSERT_EQ(Cli(tree, {"--index", db, "index", "add", tree.path("docs")}).status, 0);
  auto note_said = [&](const std::string& root) {
    testing::ProgramRun run = Cli(tree, {"--index", db, "search", tree.path(root), "-r", "name: ?*"});
    EXPECT_EQ(run.status, 0) << run.err;
    return run.err.find("not in the index") != std::string::npos;
  };
  EXPECT_TRUE(note_said("other"));
  EXPECT_FALSE(note_said("other"));
  EXPECT_TRUE(note_said("third"));
  EXPECT_FALSE(note_said("other"));
}

}  // namespace
}  // namespace trovix::cli
