// trovix-cli's saved searches, settings and the program's own command line, run as a program.
// Every run gets its own configuration folder (XDG_CONFIG_HOME) and, mostly, its own settings
// file, so nothing here reads or writes the user's real settings.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::cli {
namespace {

using CliRun = testing::ProgramRun;
using testing::ReadWholeFile;
using testing::ShellQuote;

class StoreCommands : public ::testing::Test {
 protected:
  StoreCommands() : tree_({"data/a.txt=12345678901", "data/b.txt=1", "data/c.md=123456789012", "data/sub/d.TXT=123456789012",
                           "data/Makefile", "data/pics.d/", "My Files/e.txt=123456789012", "config/"}) {}

  CliRun Cli(const std::vector<std::string>& args) {
    return testing::RunProgram(TROVIX_CLI_PATH, args, tree_.path("stderr.txt"),
                               "XDG_CONFIG_HOME=" + ShellQuote(tree_.path("config")) + " ");
  }

  static std::vector<std::string> Sorted(const std::string& text) { return testing::SortedLines(text); }

  std::string Ini() const { return tree_.path("settings.ini"); }

  testing::TempTree tree_;
};

TEST_F(StoreCommands, SavedSearchIsWrittenOnceAndReadBackByteForByte) {
  CliRun save = Cli({"saved", "save", "Big texts", "--root", tree_.path("data"), "-r", "name: *.txt", "-r",
                     "size: > 10", "--settings", Ini()});
  ASSERT_EQ(save.status, 0) << save.err;
  const std::string written = ReadWholeFile(Ini());
  ASSERT_NE(written.find("[SavedSearch\\0]"), std::string::npos);
  ASSERT_NE(written.find("szName=Big texts"), std::string::npos);

  CliRun list = Cli({"--settings", Ini(), "saved", "list"});
  EXPECT_EQ(list.out, "Big texts\t" + tree_.path("data") + "\n");
  CliRun show = Cli({"saved", "show", "BIG TEXTS", "--settings", Ini()});
  EXPECT_EQ(show.status, 0);
  EXPECT_NE(show.out.find("root: " + tree_.path("data")), std::string::npos);
  EXPECT_NE(show.out.find("*.txt"), std::string::npos);

  // The stored block, read out and written back through the store, leaves the same bytes.
  CliRun blob = Cli({"settings", "get", "SavedSearch\\0\\binFilter", "--settings", Ini()});
  ASSERT_EQ(blob.status, 0);
  ASSERT_EQ(blob.out.rfind("hex:01000000", 0), 0u) << blob.out;  // version 1, little-endian
  std::string hex = blob.out.substr(0, blob.out.size() - 1);
  ASSERT_EQ(Cli({"settings", "set", "SavedSearch\\0\\binFilter", hex, "--settings", Ini()}).status, 0);
  EXPECT_EQ(ReadWholeFile(Ini()), written);

  // Running it reads only.
  CliRun run = Cli({"saved", "run", "big texts", "--settings", Ini()});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(Sorted(run.out), (std::vector<std::string>{tree_.path("data/a.txt"), tree_.path("data/sub/d.TXT")}));
  EXPECT_EQ(ReadWholeFile(Ini()), written);
}

TEST_F(StoreCommands, SameParametersAskBeforeAnotherCopy) {
  ASSERT_EQ(Cli({"saved", "save", "one", "-r", "name: *.md", "--settings", Ini()}).status, 0);
  CliRun again = Cli({"saved", "save", "two", "-r", "name: *.md", "--settings", Ini()});
  EXPECT_EQ(again.status, 1);
  EXPECT_NE(again.err.find("The same parameters are saved under name: one\nDo you want to create another copy?"),
            std::string::npos);
  // A root makes it another search; --copy saves a duplicate on purpose.
  EXPECT_EQ(Cli({"saved", "save", "two", "--root", "/tmp", "-r", "name: *.md", "--settings", Ini()}).status, 0);
  EXPECT_EQ(Cli({"saved", "save", "three", "--copy", "-r", "name: *.md", "--settings", Ini()}).status, 0);
  EXPECT_EQ(Cli({"saved", "save", "ONE", "-r", "name: x", "--settings", Ini()}).status, 2);  // name taken
  EXPECT_EQ(Cli({"saved", "save", "four", "--settings", Ini()}).status, 2);                   // no rules

  ASSERT_EQ(Cli({"saved", "delete", "Two", "--settings", Ini()}).status, 0);
  EXPECT_EQ(Cli({"saved", "list", "--settings", Ini()}).out, "one\nthree\n");
  EXPECT_EQ(ReadWholeFile(Ini()).find("[SavedSearch\\2]"), std::string::npos);  // the index after the last
  EXPECT_EQ(Cli({"saved", "delete", "two", "--settings", Ini()}).status, 2);
}

TEST_F(StoreCommands, ProgramLinePrintsTheSavedSearchesResults) {
  ASSERT_EQ(Cli({"saved", "save", "texts", "-r", "name: *.txt", "-r", "size: > 10", "--settings", Ini()}).status, 0);
  const std::vector<std::string> in_data = {tree_.path("data/a.txt"), tree_.path("data/sub/d.TXT")};
  // Dash and slash, either case, /I: and --settings alike.
  const std::vector<std::vector<std::string>> lines = {
      {"/C", "/G:texts", "/I:" + Ini(), tree_.path("data")},
      {"-c", "-g:TEXTS", "-i:" + Ini(), tree_.path("data")},
      {"/c", "/g:texts", tree_.path("nowhere"), tree_.path("data"), "--settings", Ini()},  // the last root wins
  };
  for (const auto& line : lines) {
    SCOPED_TRACE(line[1]);
    CliRun run = Cli(line);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(Sorted(run.out), in_data);
  }
  // An unquoted root with a blank is not joined when switches are present.
  CliRun split = Cli({"/C", "/G:texts", "/I:" + Ini(), tree_.root() + "/My", "Files"});
  EXPECT_NE(split.status, 0);
  // search --saved with an explicit root.
  CliRun search = Cli({"search", "--saved", "texts", tree_.path("My Files"), "--settings", Ini()});
  EXPECT_EQ(Sorted(search.out), std::vector<std::string>{tree_.path("My Files/e.txt")});

  EXPECT_EQ(Cli({"/C", "/I:" + Ini(), tree_.path("data")}).status, 2);       // no /G:
  EXPECT_EQ(Cli({"/C", "/G:missing", "/I:" + Ini()}).status, 2);
}

TEST_F(StoreCommands, SettingsAreListedReadAndWrittenThroughTheStore) {
  EXPECT_EQ(Cli({"settings", "path", "--settings", Ini()}).out, Ini() + "\n");
  ASSERT_EQ(Cli({"settings", "set", "nThumbSize", "120", "--settings", Ini()}).status, 0);
  ASSERT_EQ(Cli({"settings", "set", "nCharsAutoFilter", "-1", "--settings", Ini()}).status, 0);
  ASSERT_EQ(Cli({"settings", "set", "binFlags", "0x200102", "--settings", Ini()}).status, 0);
  ASSERT_EQ(Cli({"settings", "set", "szFileCountRule", "*.txt", "--settings", Ini()}).status, 0);
  EXPECT_EQ(Cli({"settings", "get", "nThumbSize", "--settings", Ini()}).out, "120\n");
  // --raw shows what is stored; without it, the value in effect once the range rules and
  // defaults are applied, as the program would use it.
  EXPECT_EQ(Cli({"settings", "get", "general\\nCharsAutoFilter", "--raw", "--settings", Ini()}).out, "-1\n");
  EXPECT_EQ(Cli({"settings", "get", "general\\nCharsAutoFilter", "--settings", Ini()}).out, "0\n");
  EXPECT_EQ(Cli({"settings", "get", "binFlags", "--raw", "--settings", Ini()}).out, "0x00200102\n");
  EXPECT_EQ(Cli({"settings", "get", "binFlags", "--settings", Ini()}).out, "0x00200002\n");
  EXPECT_EQ(Cli({"settings", "get", "szFileCountRule", "--settings", Ini()}).out, "*.txt\n");
  EXPECT_EQ(Cli({"settings", "get", "nUsecount", "--raw", "--settings", Ini()}).status, 1);
  EXPECT_EQ(Cli({"settings", "get", "nUsecount", "--settings", Ini()}).status, 0);
  EXPECT_EQ(Cli({"settings", "get", "nNoSuchSetting", "--settings", Ini()}).status, 1);
  EXPECT_EQ(Cli({"settings", "set", "nThumbSize", "big", "--settings", Ini()}).status, 2);
  CliRun list = Cli({"settings", "list", "--settings", Ini()});
  EXPECT_NE(list.out.find("general\tnThumbSize\t120\n"), std::string::npos);

  // Without --settings the per-user key store under the configuration folder is used.
  ASSERT_EQ(Cli({"saved", "save", "kept", "-r", "name: *.md"}).status, 0);
  EXPECT_EQ(Cli({"saved", "list"}).out, "kept\n");
  EXPECT_EQ(Sorted(Cli({"saved", "run", "kept", tree_.path("data")}).out),
            std::vector<std::string>{tree_.path("data/c.md")});
}

TEST_F(StoreCommands, KindsComeFromTheSettingsOrTheDefaults) {
  auto kinds = [&](const std::vector<std::string>& extra) {
    std::vector<std::string> args = {"search", tree_.path("data"), "-r", "name: ?*", "--columns", "name,Stock.Kind",
                                      "--sort", "name"};
    args.insert(args.end(), extra.begin(), extra.end());
    return Cli(args).out;
  };
  // No extension, no kind; a folder's dotted name is no extension.
  EXPECT_EQ(kinds({}), "Name\tType\na.txt\tdocuments\nb.txt\tdocuments\nc.md\t\nd.TXT\tdocuments\n"
                       "Makefile\t\npics.d\tFolder\nsub\tFolder\n");
  ASSERT_EQ(Cli({"settings", "set", "File types\\notes", "md,txt", "--settings", Ini()}).status, 0);
  ASSERT_EQ(Cli({"settings", "set", "File types\\markdown", "md", "--settings", Ini()}).status, 0);
  // "markdown" sorts before "notes" and takes md; txt is only a note now.
  EXPECT_EQ(kinds({"--settings", Ini()}), "Name\tType\na.txt\tnotes\nb.txt\tnotes\nc.md\tmarkdown\n"
                                          "d.TXT\tnotes\nMakefile\t\npics.d\tFolder\nsub\tFolder\n");
}

}  // namespace
}  // namespace trovix::cli
