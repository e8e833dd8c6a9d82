// trovix-cli search --area and the stored map areas, run as a program: an area gives the same
// two range rules the desktop program writes, and a stored area is found by its name.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"
#include "tests/support/test_files.h"

namespace trovix::cli {
namespace {

using CliRun = testing::ProgramRun;

class MapAreaCli : public ::testing::Test {
 protected:
  MapAreaCli() : tree_({"config/", "empty/"}) {}

  CliRun Cli(std::vector<std::string> args) {
    args.insert(args.begin(), {"--settings", tree_.path("settings.ini")});
    return testing::RunProgram(TROVIX_CLI_PATH, args, tree_.path("stderr.txt"),
                               "XDG_CONFIG_HOME=" + testing::ShellQuote(tree_.path("config")) + " ");
  }

  // The hex text of four doubles as the store keeps binCoords (little-endian).
  static std::string CoordsHex(double top, double left, double bottom, double right) {
    std::string hex = "hex:";
    for (double d : {top, left, bottom, right}) {
      unsigned char bytes[8];
      std::memcpy(bytes, &d, 8);
      for (unsigned char b : bytes) {
        static const char* digits = "0123456789abcdef";
        hex += digits[b >> 4];
        hex += digits[b & 15];
      }
    }
    return hex;
  }

  testing::TempTree tree_;
};

TEST_F(MapAreaCli, AreaBecomesTheTwoRangeRules) {
  CliRun run = Cli({"search", tree_.path("empty"), "--area", "40.9921, -74.5459,40.4446,-73.5214", "--show-rules"});
  EXPECT_EQ(run.status, 1) << run.err;  // nothing found in an empty folder
  const std::string rules = run.out + run.err;
  EXPECT_NE(rules.find("System.GPS.Latitude"), std::string::npos) << rules;
  EXPECT_NE(rules.find("System.GPS.Longitude"), std::string::npos) << rules;

  // The same rules typed by hand list alike.
  CliRun typed = Cli({"search", tree_.path("empty"), "-r", "System.GPS.Latitude: 40.4446 .. 40.9921", "-r",
                      "System.GPS.Longitude: -74.5459 .. -73.5214", "--show-rules"});
  EXPECT_EQ(typed.out + typed.err, rules);
}

TEST_F(MapAreaCli, BadAreasAreRefusedWithAReason) {
  struct Case {
    const char* area;
    const char* says;
  } cases[] = {
      {"1,2,3", "four numbers"},
      {"10,20,x,30", "south edge"},
      {"91,0,0,10", "-90 and 90"},
      {"10,-181,0,10", "-180 and 180"},
      {"0,0,10,10", "north edge lies south"},
      {"10,170,0,-170", "180th meridian"},
      {"Atlantis", "no map area named \"Atlantis\""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.area);
    CliRun run = Cli({"search", tree_.path("empty"), "--area", c.area});
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find(c.says), std::string::npos) << run.err;
  }
}

TEST_F(MapAreaCli, StoredAreasAreListedAndSearchedByName) {
  // First use: the default area.
  CliRun first = Cli({"saved", "areas"});
  EXPECT_EQ(first.status, 0) << first.err;
  EXPECT_EQ(first.out, "New York\t40.9921,-74.5459,40.4446,-73.5214\n");

  // Every change writes the lists back whole: the default entry, once written, is changed in
  // place (an entry without both values would be dropped and the default written again).
  ASSERT_EQ(Cli({"settings", "set", "nThumbSize", "100"}).status, 0);
  ASSERT_EQ(Cli({"settings", "set", "MapRects\\0\\binCoords", CoordsHex(48.9, 2.25, 48.8, 2.45)}).status, 0);
  ASSERT_EQ(Cli({"settings", "set", "MapRects\\0\\szName", "Paris"}).status, 0);
  CliRun list = Cli({"saved", "areas"});
  EXPECT_EQ(list.out, "Paris\t48.9,2.25,48.8,2.45\n") << list.err;

  CliRun by_name = Cli({"search", tree_.path("empty"), "--area", "paris", "--show-rules"});
  CliRun by_numbers = Cli({"search", tree_.path("empty"), "--area", "48.9,2.25,48.8,2.45", "--show-rules"});
  EXPECT_EQ(by_name.status, 1) << by_name.err;
  EXPECT_EQ(by_name.out + by_name.err, by_numbers.out + by_numbers.err);
}

// The corpus's photos, where exiftool places them: one in New York (40.658 N, 73.993 W), one
// just south of the equator (0.371 S, 36.056 E), two near 43.46 N, 11.88 E.
TEST_F(MapAreaCli, CorpusPhotosAreFoundInTheirAreas) {
  const std::string images = testing::CorpusDir() + "/images";
  if (!std::filesystem::is_directory(images)) GTEST_SKIP() << "no corpus at " << images;
  struct Case {
    const char* area;
    std::vector<std::string> found;
  } cases[] = {
      {"New York", {"et-GoPro.jpg"}},  // the default area, west of Greenwich
      {"0,35,-1,37", {"Kodak_CX7530.jpg"}},  // south of the equator
      {"43.5,11.8,43.4,11.95", {"DSCN0010.jpg", "DSCN0042.jpg"}},
      {"43.466,11.8,43.4,11.95", {"DSCN0042.jpg"}},  // minutes and seconds count, not only degrees
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.area);
    CliRun run = Cli({"search", images, "--robust", "--area", c.area});
    std::vector<std::string> names;
    for (const std::string& line : testing::SortedLines(run.out))
      names.push_back(std::filesystem::path(line).filename().string());
    EXPECT_EQ(names, c.found) << run.err;
  }
}

}  // namespace
}  // namespace trovix::cli
