#include "app/settings/profile_file.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace trovix::app {
namespace {

// How blocks are written (upper-case hexadecimal, then the low byte of their sum) is pinned by
// the saved settings file of the settings tests; here, what reading refuses.
TEST(ProfileFile, StructReadChecksLengthDigitsAndChecksum) {
  uint8_t out[3] = {7, 7, 7};
  EXPECT_TRUE(ProfileFile::DecodeStruct("01abffab", out, 3));  // lower case is read too
  EXPECT_EQ(out[1], 0xAB);

  struct Case {
    const char* text;
    size_t size;
  } bad[] = {
      {"01ABFFAC", 3},   // wrong checksum
      {"01ABFFA", 3},    // odd length
      {"01ABFFAB", 2},   // length does not match the size asked for
      {"01ABFFABAB", 3}, // too long
      {"01XBFFAB", 3},   // not hexadecimal
      {"", 0},
  };
  for (const Case& c : bad) {
    SCOPED_TRACE(c.text);
    uint8_t buffer[8] = {9, 9, 9};
    EXPECT_FALSE(ProfileFile::DecodeStruct(c.text, buffer, c.size));
    EXPECT_EQ(buffer[0], 9) << "a rejected block must leave the buffer alone";
  }
}

TEST(ProfileFile, IntegersFollowTheProfileReadingRules) {
  ProfileFile file = ProfileFile::Parse(
      "[s]\nplain=42\nsuffix=123A\nhex=0x10\nempty=\nneg=-1\nplus=+7\nblank=  9  \n"
      "wrap=4294967297\nword=abc\nquoted=\"17\"\n");
  struct Case {
    const char* name;
    uint32_t expected;
  } cases[] = {
      {"plain", 42},  {"suffix", 123}, {"hex", 0},  {"empty", 0},   {"neg", 0xFFFFFFFFu},
      {"plus", 7},    {"blank", 9},    {"wrap", 1}, {"word", 0},    {"quoted", 17},
      {"absent", 55},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(file.GetInt("s", c.name, 55), c.expected);
  }
  EXPECT_EQ(file.GetInt("nosection", "plain", 55), 55u);
}

TEST(ProfileFile, NamesAndSectionsIgnoreCase) {
  ProfileFile file = ProfileFile::Parse("[General]\nnThumbSize=64\n");
  std::string value;
  EXPECT_TRUE(file.GetString("GENERAL", "NTHUMBSIZE", &value));
  EXPECT_EQ(value, "64");
  ASSERT_TRUE(file.SetString("general", "nthumbsize", "80"));
  EXPECT_EQ(file.Serialize(), "[General]\nnThumbSize=80\n");  // first spelling kept
}

TEST(ProfileFile, ValuesRoundTripThroughText) {
  const std::vector<std::string> values = {
      "plain", " leading", "trailing ", "\"quoted\"", "'single'", "\"", "a=b=c", "", "ünï",
      "\"a\" or \"b\""};
  ProfileFile file;
  for (size_t i = 0; i < values.size(); ++i) {
    ASSERT_TRUE(file.SetString("s", "v" + std::to_string(i), values[i]));
  }
  ProfileFile back = ProfileFile::Parse(file.Serialize());
  for (size_t i = 0; i < values.size(); ++i) {
    std::string read;
    ASSERT_TRUE(back.GetString("s", "v" + std::to_string(i), &read));
    EXPECT_EQ(read, values[i]);
  }
}

// Found by fuzzing: a first name that begins with U+FEFF lost it to the byte-order-mark rule
// on the next reading, and a section header appeared out of it.
TEST(ProfileFile, LeadingByteOrderMarkCharacterSurvivesARewrite) {
  ProfileFile file = ProfileFile::Parse("\t\xEF\xBB\xBF[=\n[=\nl[=\n");
  ProfileFile again = ProfileFile::Parse(file.Serialize());
  EXPECT_EQ(again.Serialize(), file.Serialize());
  std::string value;
  EXPECT_TRUE(again.GetString("=", "l[", &value));
}

TEST(ProfileFile, RefusesWhatTheFormatCannotHold) {
  ProfileFile file;
  EXPECT_FALSE(file.SetString("s", "name", "two\nlines"));
  EXPECT_FALSE(file.SetString("s", "a\rb", "x"));
  EXPECT_FALSE(file.SetString("s", "[name", "x"));
  EXPECT_FALSE(file.SetString("s", "  ", "x"));
  EXPECT_FALSE(file.SetString("a]b", "name", "x"));
  EXPECT_EQ(file.Serialize(), "");
}

TEST(ProfileFile, KeepsForeignLinesAndWritesNewValuesInPlace) {
  const std::string text =
      "; written by hand\n"
      "[general]\r\n"
      "no equals sign here\n"
      "nUsecount=3\n"
      "\n"
      "[other]\n"
      "x=1\n";
  ProfileFile file = ProfileFile::Parse(text);
  ASSERT_TRUE(file.SetString("general", "binVer", "65536"));
  ASSERT_TRUE(file.SetString("new", "a", "b"));
  EXPECT_EQ(file.Serialize(),
            "; written by hand\n"
            "[general]\n"
            "no equals sign here\n"
            "nUsecount=3\n"
            "binVer=65536\n"
            "\n"
            "[other]\n"
            "x=1\n"
            "\n"
            "[new]\n"
            "a=b\n");
}

TEST(ProfileFile, FirstCopyOfARepeatedSectionOrValueWins) {
  ProfileFile file = ProfileFile::Parse("[a]\nx=1\nx=2\n[A]\nx=3\ny=4\n");
  EXPECT_EQ(file.GetInt("a", "x", 0), 1u);
  EXPECT_EQ(file.GetInt("a", "y", 0), 0u);
  EXPECT_EQ(file.SectionNames(), std::vector<std::string>{"a"});
  ASSERT_TRUE(file.ClearSection("a"));
  EXPECT_EQ(file.GetInt("a", "y", 0), 0u) << "the second copy must not show through";
}

TEST(ProfileFile, DamagedInputReadsAsAbsent) {
  ProfileParseReport report;
  std::string garbage("\x7F" "ELF\0\0[general]\nx=1\n", 19);
  ProfileFile binary = ProfileFile::Parse(garbage, &report);
  EXPECT_TRUE(report.binary);
  EXPECT_TRUE(binary.SectionNames().empty());

  ProfileFile latin1 = ProfileFile::Parse("[s]\nname=caf\xE9\nok=1\n", &report);
  EXPECT_TRUE(report.invalid_utf8);
  EXPECT_EQ(latin1.GetInt("s", "ok", 0), 1u);

  std::string giant = "[s]\nbig=" + std::string(200'000, 'A') + "\nafter=5\n";
  ProfileFile big = ProfileFile::Parse(giant);
  std::string value;
  ASSERT_TRUE(big.GetString("s", "big", &value));
  EXPECT_EQ(value.size(), kProfileReadLimit);
  EXPECT_EQ(big.GetInt("s", "after", 0), 5u);
  uint8_t block[4];
  EXPECT_FALSE(big.GetStruct("s", "big", block, sizeof block));
}

TEST(ProfileFile, ReadsUtf16FilesWithTheirMark) {
  std::string bytes = "\xFF\xFE";
  for (char c : std::string("[s]\r\nk=v\r\n")) {
    bytes += c;
    bytes += '\0';
  }
  ProfileParseReport report;
  ProfileFile file = ProfileFile::Parse(bytes, &report);
  EXPECT_FALSE(report.binary);
  std::string value;
  ASSERT_TRUE(file.GetString("s", "k", &value));
  EXPECT_EQ(value, "v");
}

}  // namespace
}  // namespace trovix::app
