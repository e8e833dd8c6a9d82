// What users type for properties and options, taken as they mean it: dotted tails and common
// words for property names, fd's habits for options, and a clear word where either misses.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/cli_run.h"

namespace trovix::cli {
namespace {

using testing::RunCli;

// The rule list as the search reads it (--show-rules writes it on stderr).
std::string ShownRules(const testing::TempTree& tree, const std::string& rule) {
  testing::ProgramRun run = RunCli(tree, {"search", tree.path("d"), "--show-rules", "-r", rule});
  EXPECT_NE(run.status, 2) << rule << ": " << run.err;
  return run.err;
}

TEST(TypedPropertyNames, TailsLabelsAndCommonWordsFindTheProperty) {
  testing::TempTree tree({"d/a.txt=x"});
  struct Case {
    const char* rule;
    const char* property;
  } cases[] = {
      // Dotted tails, in any case; the name nearest its own wins (not Document's).
      {"Artist: harvey", "System.Music.Artist"},
      {"music.artist: harvey", "System.Music.Artist"},
      {"latitudedecimal: < 0", "System.GPS.LatitudeDecimal"},
      {"DateCreated: today", "System.DateCreated"},
      // Common words and labels.
      {"filename: a.txt", "System.ItemNameDisplay"},
      {"ext: .txt", "System.FileExtension"},
      {"created: today", "System.DateCreated"},
      {"date: today", "System.DateModified"},
      {"HEIGHT: > 100", "System.Image.VerticalSize"},
      {"Date modified: today", "System.DateModified"},
      {"Folder: yes", "Stock.IsFolder"},
  };
  for (const Case& c : cases) EXPECT_NE(ShownRules(tree, c.rule).find(c.property), std::string::npos) << c.rule;
}

TEST(TypedPropertyNames, MissesSayWhatWouldAnswer) {
  testing::TempTree tree({"d/a.txt=x"});
  // A typo gets its nearest names, never the name refused.
  testing::ProgramRun typo = RunCli(tree, {"search", tree.path("d"), "-r", "Artst: harvey"});
  EXPECT_EQ(typo.status, 2);
  EXPECT_NE(typo.err.find("unknown property \"Artst\" (did you mean"), std::string::npos) << typo.err;
  EXPECT_NE(typo.err.find("Artist"), std::string::npos) << typo.err;
  EXPECT_EQ(typo.err.find("mean Artst"), std::string::npos) << typo.err;
  // A name that two properties end in alike lists both.
  testing::ProgramRun ambiguous = RunCli(tree, {"search", tree.path("d"), "-r", "samplesize: > 8"});
  EXPECT_EQ(ambiguous.status, 2);
  EXPECT_NE(ambiguous.err.find("\"samplesize\" is ambiguous: System.Audio.SampleSize or System.Video.SampleSize"),
            std::string::npos)
      << ambiguous.err;
  // A property nothing here fills: searched as asked, with a warning naming the one that answers.
  struct Case {
    const char* rule;
    const char* answers;
  } cases[] = {
      {"System.FileName: a.txt", "System.ItemNameDisplay"},
      {"System.Calendar.Duration: > 0", "System.Media.Duration"},
      {"System.GPS.Date: today", "System.DateModified"},
  };
  for (const Case& c : cases) {
    testing::ProgramRun run = RunCli(tree, {"search", tree.path("d"), "-r", c.rule});
    EXPECT_EQ(run.status, 1) << c.rule << ": " << run.err;
    EXPECT_NE(run.err.find("nothing on this system fills"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find(std::string(c.answers) + " ("), std::string::npos) << run.err;
  }
  // The catalogue listing names the words beside their properties.
  testing::ProgramRun props = RunCli(tree, {"props"});
  EXPECT_EQ(props.out.rfind("name\tlabel\ttype\tflags\twords\n", 0), 0u);
  EXPECT_NE(props.out.find("System.FileExtension\tFile extension\t31\t"), std::string::npos);
  EXPECT_NE(props.out.find("\text,extension\n"), std::string::npos) << props.out;
}

TEST(FdHabits, AcceptedAsFdTakesThem) {
  testing::TempTree tree({"d/a.txt=x", "d/b.md=x", "d/sub/c.txt=x"});
  const std::string d = tree.path("d");
  EXPECT_EQ(RunCli(tree, {"search", d, "--extension", "txt", "-d1"}).out, d + "/a.txt\n");
  EXPECT_EQ(RunCli(tree, {"search", d, "-tf", "-d=1", "--ext", "md"}).out, d + "/b.md\n");
  EXPECT_EQ(RunCli(tree, {"search", d, "-td"}).out, d + "/sub\n");
  EXPECT_EQ(RunCli(tree, {"search", d, "-Htf", "--ext", "md"}).out, d + "/b.md\n");  // flags together
  EXPECT_EQ(RunCli(tree, {"search", d, "-S+1", "-tf", "-rname: b*"}).out, d + "/b.md\n");
}

TEST(FdHabits, ThoseThatMeanSomethingElseHereSayWhy) {
  testing::TempTree tree({"d/a.txt=x"});
  const std::string d = tree.path("d");
  testing::ProgramRun e = RunCli(tree, {"search", d, "-e", "txt"});
  EXPECT_EQ(e.status, 2);
  EXPECT_NE(e.err.find("did you mean --ext txt?"), std::string::npos) << e.err;
  // -r name: *.txt without quotes: the shell gave the value as a word of its own.
  testing::ProgramRun split = RunCli(tree, {"search", d, "-r", "name:", "*.txt"});
  EXPECT_EQ(split.status, 2);
  EXPECT_NE(split.err.find("did the shell split the rule? quote it: -r 'name: *.txt'"), std::string::npos)
      << split.err;
  testing::ProgramRun star = RunCli(tree, {"search", d, "-r", "name: *"});
  EXPECT_EQ(star.status, 2);
  EXPECT_NE(star.err.find("\"?*\" matches every value (-r 'name: ?*')"), std::string::npos) << star.err;
  EXPECT_NE(star.err.find("--ext"), std::string::npos) << star.err;
  EXPECT_EQ(RunCli(tree, {"search", d, "-r", "name: ?*", "-tf"}).out, d + "/a.txt\n");
  // An unknown letter among short flags is still an unknown option.
  EXPECT_EQ(RunCli(tree, {"search", d, "-tq"}).status, 2);
  EXPECT_EQ(RunCli(tree, {"search", d, "-Zf"}).status, 2);
}

}  // namespace
}  // namespace trovix::cli
