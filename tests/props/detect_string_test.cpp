#include <gtest/gtest.h>

#include <string>

#include "props/detect_string.h"

namespace trovix::props {
namespace {

bool Eval(const std::string& text, const std::string& ext, uint64_t size = 0) {
  DetectError error;
  std::optional<DetectString> detect = DetectString::Compile(text, &error);
  EXPECT_TRUE(detect.has_value()) << text << ": " << error.message << " at " << error.position;
  return detect && detect->Matches(DetectItem{ext, size});
}

DetectError ErrorOf(const std::string& text) {
  DetectError error;
  EXPECT_FALSE(DetectString::Compile(text, &error).has_value()) << text;
  EXPECT_FALSE(error.message.empty()) << text;
  return error;
}

TEST(DetectString, EvaluatesTheGrammarOnExtensionAndSize) {
  struct Case {
    const char* text;
    const char* ext;
    uint64_t size;
    bool expected;
  } cases[] = {
      {"EXT=\"PDF\"", "PDF", 0, true},
      {"EXT=\"PDF\"", "PDFX", 0, false},
      {"EXT=\"pdf\"", "PDF", 0, true},  // the quoted text is upper-cased like the extension
      {"ext=\"JPG\" | Ext=\"JPEG\"", "JPEG", 0, true},
      {"EXT=\"JPG\" | EXT=\"JPEG\"", "PNG", 0, false},
      {"EXT!=\"TXT\"", "TXT", 0, false},
      {"EXT!=\"TXT\"", "DOC", 0, true},
      {"EXT=\"\"", "", 0, true},  // a name without an extension
      {"EXT=\"TAR GZ\"", "TAR GZ", 0, true},  // spaces inside quotes are part of the text
      {"SIZE>1000", "", 1001, true},
      {"SIZE>1000", "", 1000, false},
      {"SIZE>=1000", "", 1000, true},
      {"SIZE<5", "", 5, false},
      {"SIZE<=5", "", 5, true},
      {"SIZE=0", "", 0, true},
      {"SIZE!=0", "", 0, false},
      {"size > 18446744073709551615", "", UINT64_MAX, false},
      {"FORCE", "ANY", 0, true},
      {"force | EXT=\"X\"", "Y", 0, true},
      {"MULTIMEDIA & EXT=\"MP3\"", "MP3", 0, true},
      // "!" binds tighter than "&", and "&" tighter than "|".
      {"!EXT=\"A\" & EXT=\"B\"", "B", 0, true},
      {"!EXT=\"A\" & EXT=\"B\"", "A", 0, false},
      {"!(EXT=\"A\" & EXT=\"B\")", "A", 0, true},
      {"EXT=\"A\" | EXT=\"B\" & SIZE>10", "A", 0, true},
      {"EXT=\"A\" | EXT=\"B\" & SIZE>10", "B", 0, false},
      {"(EXT=\"A\" | EXT=\"B\") & SIZE>10", "A", 0, false},
      {"!!EXT=\"A\"", "A", 0, true},
      {"  ( ( EXT = \"A\" ) )  ", "A", 0, true},
      // Content tests are not run here and count as true, also under a negation's eyes.
      {"EXT=\"DOC\" & FIND(\"Word.Document\")", "DOC", 0, true},
      {"EXT=\"DOC\" & findi(\"a\", \"b c\")", "TXT", 0, false},
      {"[0]=37 & [1]=\"P\"", "", 0, true},
      {"!FIND(\"x\")", "", 0, false},
  };
  for (const Case& c : cases)
    EXPECT_EQ(Eval(c.text, c.ext, c.size), c.expected) << c.text << " on " << c.ext << "/" << c.size;
}

TEST(DetectString, MalformedTextNamesThePlace) {
  struct Case {
    const char* text;
    size_t position;
  } cases[] = {
      {"", 0},
      {"   ", 3},
      {"EXT=PDF", 4},              // a string must be quoted
      {"EXT=\"PDF", 4},            // unclosed quote: the opening one
      {"EXT<\"PDF\"", 3},          // EXT compares only for equality
      {"SIZE>", 5},
      {"SIZE>abc", 5},
      {"SIZE>99999999999999999999", 5},  // beyond 64 bits
      {"SIZE 5", 5},
      {"EXT=\"A\" &", 9},
      {"EXT=\"A\" EXT=\"B\"", 8},
      {"(EXT=\"A\"", 8},
      {"EXT=\"A\")", 7},
      {"COLOR=\"RED\"", 0},
      {"FIND(x)", 5},
      {"FIND(\"x\"", 8},
      {"[x]=1", 1},
      {"[1]=", 4},
      {"#", 0},
      {"EXT=\"A\" && EXT=\"B\"", 9},
  };
  for (const Case& c : cases) {
    DetectError error = ErrorOf(c.text);
    EXPECT_EQ(error.position, c.position) << c.text << ": " << error.message;
  }
}

TEST(DetectString, BoundsNestingAndLength) {
  std::string ok = std::string(kMaxDetectDepth - 1, '(') + "FORCE" + std::string(kMaxDetectDepth - 1, ')');
  EXPECT_TRUE(Eval(ok, ""));
  std::string deep = std::string(100000, '(') + "FORCE" + std::string(100000, ')');
  deep.resize(kMaxDetectLength);  // within the length bound, so the depth bound must refuse it
  DetectError error = ErrorOf(deep);
  EXPECT_EQ(error.position, static_cast<size_t>(kMaxDetectDepth));
  EXPECT_NE(error.message.find("deeper"), std::string::npos);
  EXPECT_NE(ErrorOf(std::string(kMaxDetectLength, '!')).message.find("deeper"), std::string::npos);

  EXPECT_NE(ErrorOf(std::string(kMaxDetectLength + 1, ' ')).message.find("longer"), std::string::npos);

  // A long flat list of alternatives, as plugins for many formats write, stays within bounds.
  std::string many = "EXT=\"E0\"";
  for (int i = 1; i < 600; ++i) many += "|EXT=\"E" + std::to_string(i) + "\"";
  ASSERT_LE(many.size(), kMaxDetectLength);
  EXPECT_TRUE(Eval(many, "E599"));
  EXPECT_FALSE(Eval(many, "E600"));
}

}  // namespace
}  // namespace trovix::props
