// Content plugins as a console user meets them: configured in the settings, listed and tried
// with `plugins`, their fields in `props`, rules, expressions, columns and sorting. The plugins
// are the test libraries built beside the tests; they run in the plugin host beside trovix-cli.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::cli {
namespace {

using testing::Occurrences;
using testing::ShellQuote;

std::string Plugin(const char* name) { return std::string(TROVIX_TEST_PLUGIN_DIR) + "/" + name + ".wdx"; }

class Plugins : public ::testing::Test {
 protected:
  Plugins() : tree_({"data/a.txt=hello", "data/b.md=# title", "data/c.pdf=%PDF", "config/velmora/"}) {}

  // Writes the settings file with these "ContentPlugins" lines ("0=/path", "0_detect=...").
  void Configure(const std::vector<std::string>& lines) {
    std::ofstream ini(tree_.path("config/velmora/trovix.ini"));
    ini << "[ContentPlugins]\n";
    for (const std::string& l : lines) ini << l << "\n";
  }

  testing::ProgramRun Cli(const std::vector<std::string>& args) {
    return testing::RunProgram(TROVIX_CLI_PATH, args, tree_.path("stderr.txt"),
                               "XDG_CONFIG_HOME=" + ShellQuote(tree_.path("config")) + " ");
  }

  testing::TempTree tree_;
};

TEST_F(Plugins, AGapInTheNumbersEndsTheList) {
  Configure({"0=" + Plugin("allfields"), "1=" + Plugin("crash"), "3=" + Plugin("fulltext")});
  testing::ProgramRun list = Cli({"plugins", "list"});
  ASSERT_EQ(list.status, 0) << list.err;
  EXPECT_EQ(Occurrences(list.out, "\n"), 2u) << list.out;
  EXPECT_EQ(list.out.find("fulltext"), std::string::npos);
  EXPECT_NE(list.out.find("0\tallfields\t14 fields\t"), std::string::npos) << list.out;
}

TEST_F(Plugins, NothingConfiguredIsSaidAndNothingStarts) {
  testing::ProgramRun list = Cli({"plugins", "list"});
  EXPECT_EQ(list.status, 1);
  EXPECT_NE(list.err.find("no content plugins are configured"), std::string::npos);
  testing::ProgramRun props = Cli({"props", tree_.path("data/a.txt")});
  EXPECT_EQ(props.status, 0);
  EXPECT_EQ(props.out.find(".allfields"), std::string::npos);
}

TEST_F(Plugins, FieldsAreProperties) {
  Configure({"0=" + Plugin("allfields"), "1=" + Plugin("fulltext")});
  testing::ProgramRun fields = Cli({"plugins", "fields", "ALLFIELDS"});
  ASSERT_EQ(fields.status, 0) << fields.err;
  EXPECT_NE(fields.out.find("6\tChoice.allfields\tmultiple choice\tred|green|blue\n"), std::string::npos)
      << fields.out;
  EXPECT_EQ(fields.out.find("Date.allfields"), std::string::npos);
  EXPECT_NE(Cli({"plugins", "fields", "1"}).out.find("2\t(full text)"), std::string::npos);

  testing::ProgramRun props = Cli({"props", tree_.path("data/a.txt")});
  EXPECT_NE(props.out.find("Int32.allfields\tInt32\t-123456\n"), std::string::npos) << props.out;
  EXPECT_NE(props.out.find("Title.fulltext\tTitle\ta title\n"), std::string::npos);
  EXPECT_EQ(props.out.find("After.fulltext"), std::string::npos);

  // In a rule, an expression, a column and a sort.
  testing::ProgramRun rule = Cli({"search", tree_.path("data"), "-r", "Choice.allfields: green", "-r", "name: *.md"});
  EXPECT_EQ(rule.status, 0) << rule.err;
  EXPECT_EQ(rule.out, tree_.path("data/b.md") + "\n");
  testing::ProgramRun expression =
      Cli({"search", tree_.path("data"), "-e", "$Rounded.allfields = 41 & $Int32.allfields < 0", "--columns",
           "name,Text.allfields", "--sort", "name"});
  EXPECT_EQ(expression.status, 0) << expression.err;
  EXPECT_NE(expression.out.find("a.txt\tcaf\xc3\xa9\n"), std::string::npos) << expression.out;
}

TEST_F(Plugins, APathOf260CharactersOrMoreHasNoPluginValues) {
  Configure({"0=" + Plugin("allfields")});
  // The interface hands names through buffers of 260 characters, the terminator included.
  const std::string folder = tree_.path("data/") + std::string(200, 'd');
  const std::string fits = std::string(259 - folder.size() - 1, 'f');
  tree_.Add("data/" + std::string(200, 'd') + "/" + fits);
  tree_.Add("data/" + std::string(200, 'd') + "/" + fits + "g");
  ASSERT_EQ((folder + "/" + fits).size(), 259u);
  EXPECT_NE(Cli({"props", folder + "/" + fits}).out.find("Int32.allfields"), std::string::npos);
  EXPECT_EQ(Cli({"props", folder + "/" + fits + "g"}).out.find("Int32.allfields"), std::string::npos);
}

TEST_F(Plugins, TestShowsEachValueAndTheFullText) {
  Configure({"0=" + Plugin("fulltext"), "1=" + Plugin("detect")});
  testing::ProgramRun test = Cli({"plugins", "test", "fulltext", tree_.path("data/a.txt")});
  ASSERT_EQ(test.status, 0) << test.err;
  EXPECT_NE(test.out.find("Lines.fulltext\t3000\n"), std::string::npos) << test.out;
  EXPECT_NE(test.out.find("(full text)\t"), std::string::npos);
  EXPECT_EQ(test.out.find("(full text)\t0 bytes"), std::string::npos);

  // The detect string keeps the plugin away from files it does not take: its library is not
  // asked about them.
  EXPECT_EQ(Cli({"plugins", "test", "detect", tree_.path("data/c.pdf")}).status, 1);
  EXPECT_NE(Cli({"props", tree_.path("data/b.md")}).out.find("Seen.detect\tSeen\tmd\n"), std::string::npos);
  EXPECT_EQ(Cli({"props", tree_.path("data/c.pdf")}).out.find("Seen.detect"), std::string::npos);
}

TEST_F(Plugins, AFullTextPluginReadsDocumentsNoOtherReaderReads) {
  Configure({"0=" + Plugin("fulltext"), "0_detect=EXT=\"XYZ\""});
  // Bytes no reader of the program takes for text.
  const std::string binary(std::string("\0\0\0\x07\x01\x02\x03\x04\0\x05\x06\0", 12) + std::string(400, '\0'));
  std::ofstream(tree_.path("data/doc.xyz"), std::ios::binary) << binary;
  std::ofstream(tree_.path("data/doc.abc"), std::ios::binary) << binary;
  testing::ProgramRun found = Cli({"search", tree_.path("data"), "-r", "contents: line 2999"});
  EXPECT_EQ(found.status, 0) << found.err;
  EXPECT_EQ(found.out, tree_.path("data/doc.xyz") + "\n");
  // The first piece of the plugin's text is searched as well as the last.
  EXPECT_EQ(Cli({"search", tree_.path("data"), "-r", "contents: line 0"}).out, tree_.path("data/doc.xyz") + "\n");
}

TEST_F(Plugins, APluginCrashNeverTakesDownTheConsole) {
  Configure({"0=" + Plugin("crash"), "0_detect=EXT=\"TXT\""});
  tree_.Add("data/boom1.txt=x");
  testing::ProgramRun one = Cli({"search", tree_.path("data"), "-r", "Fine.crash: fine"});
  EXPECT_EQ(one.status, 0) << one.err;
  EXPECT_EQ(one.out, tree_.path("data/a.txt") + "\n");
  EXPECT_EQ(Cli({"plugins", "test", "crash", tree_.path("data/boom1.txt")}).status, 1);

  // Three crashes switch the plugin off, once, with a word on standard error.
  for (const char* name : {"data/boom2.txt=x", "data/boom3.txt=x", "data/boom4.txt=x"}) tree_.Add(name);
  testing::ProgramRun many = Cli({"search", tree_.path("data"), "-r", "Fine.crash: fine", "--threads", "1"});
  // Items may be missing for want of its values: the status says so, as for an unread folder.
  EXPECT_EQ(many.status, 2) << many.err;
  EXPECT_EQ(Occurrences(many.err, "switched off"), 1u) << many.err;
  EXPECT_NE(many.err.find("trovix-cli: the content plugin"), std::string::npos) << many.err;
}

TEST_F(Plugins, APluginThatHangsCostsItsValueOnly) {
  Configure({"0=" + Plugin("hang"), "1=" + Plugin("allfields")});
  std::ofstream(tree_.path("config/velmora/trovix.ini"), std::ios::app) << "[general]\nnPluginTimeoutMs=200\n";
  testing::ProgramRun props = Cli({"props", tree_.path("data/a.txt")});
  EXPECT_EQ(props.status, 0) << props.err;
  EXPECT_EQ(props.out.find("Polite.hang"), std::string::npos);
  EXPECT_NE(props.out.find("Int32.allfields\tInt32\t-123456"), std::string::npos) << props.out;
}

}  // namespace
}  // namespace trovix::cli
