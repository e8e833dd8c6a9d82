#include "rules/patterns/text_pattern.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include <unicode/uchar.h>

namespace trovix::rules {
namespace {

constexpr uint32_t kCi = kPatternIgnoreCase;

std::unique_ptr<TextPattern> MustCompile(std::string_view pattern, uint32_t flags,
                                         uint16_t mode = kModeDetect) {
  std::string error;
  auto p = TextPattern::Compile(pattern, flags, mode, &error);
  EXPECT_NE(p, nullptr) << pattern << ": " << error;
  return p;
}

bool Matches(std::string_view pattern, uint32_t flags, std::string_view value,
             uint16_t mode = kModeDetect) {
  auto p = MustCompile(pattern, flags, mode);
  return p != nullptr && p->Match(value);
}

std::string Excerpt(const TextPattern& p, std::string_view value) {
  MatchRange hit;
  if (!p.Match(value, &hit)) return "<no match>";
  return std::string(value.substr(hit.offset, hit.length));
}

TEST(TextPattern, DetectsModeFromSpecialCharacters) {
  struct Case {
    const char* pattern;
    uint16_t mode;
  } cases[] = {
      {"report", kModePlain},       {"*.txt", kModeWildcard}, {"file?.doc", kModeWildcard},
      {"a[bc]", kModeRegex},        {"a\\d", kModeRegex},     {"^start", kModeRegex},
      {"end$", kModeRegex},         {"a|b", kModeRegex},      {"a+", kModeRegex},
      {"name (1).txt", kModeRegex},  // a bracket wins over the wildcard-free rest
      {"x{2}", kModeRegex},         {"x*.(txt)", kModeRegex}, {"a.b", kModePlain},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.pattern);
    EXPECT_EQ(DetectMatchMode(c.pattern), c.mode);
    EXPECT_EQ(MustCompile(c.pattern, kCi)->mode(), c.mode);
  }
  // Auto wildcards off: always plain, and the stored flags lose the verbatim bit.
  auto verbatim = MustCompile("name (1).txt", kCi | kPatternVerbatim);
  EXPECT_EQ(verbatim->mode(), kModePlain);
  EXPECT_EQ(verbatim->flags(), kCi);
  EXPECT_TRUE(verbatim->Match("My Name (1).TXT"));
}

TEST(TextPattern, PreparesPatternText) {
  EXPECT_EQ(MustCompile("say \"\"hi\"\"", 0)->pattern(), "say \"hi\"");
  EXPECT_EQ(MustCompile("Say \"\"Hi\"\"", 0, kModeNormalised)->pattern(), "say \"hi\"");
  EXPECT_EQ(MustCompile("*.TXT", 0)->pattern(), "*.txt");      // wildcards are lowered
  EXPECT_EQ(MustCompile("Nacht", 0, 40)->pattern(), "nacht");  // so is similarity
  EXPECT_EQ(MustCompile("A\"\"B+", 0)->pattern(), "A\"\"B+");  // a regex is left alone
  EXPECT_EQ(MustCompile("Report", kCi)->pattern(), "Report");  // plain keeps its case
  EXPECT_EQ(MustCompile("\xEF\xAC\x81le", 0, kModeNormalised)->pattern(), "file");  // NFKC
  std::string error;
  EXPECT_EQ(TextPattern::Compile("x", 0, 102, &error), nullptr);
  EXPECT_FALSE(error.empty());
}

TEST(TextPattern, PlainContainsAndExact) {
  EXPECT_TRUE(Matches("report", kCi, "Annual REPORT.doc"));
  EXPECT_FALSE(Matches("report", kCi | kPatternExact, "Annual REPORT.doc"));
  EXPECT_TRUE(Matches("report", kCi | kPatternExact, "REPORT"));
  EXPECT_FALSE(Matches("Report", 0, "report"));  // case matters without 0x1
  EXPECT_TRUE(Matches("Report", 0, "my Report"));
  EXPECT_FALSE(Matches("report", kCi, ""));  // an empty value never matches
  EXPECT_FALSE(Matches("", kCi, "anything"));
  EXPECT_TRUE(Matches("say \"\"hi\"\"", kCi, "they SAY \"hi\" there"));
  // Non-ASCII values on the byte path and the decoding path.
  EXPECT_TRUE(Matches("report", kCi, "Répört REPORT"));
  EXPECT_TRUE(Matches("ärger", kCi, "VIEL ÄRGER"));
  EXPECT_TRUE(Matches("ÄRGER", kCi | kPatternExact, "ärger"));
  EXPECT_FALSE(Matches("ärger", kCi, "ARGER"));
  EXPECT_TRUE(Matches("stra", kCi, "\xC5\xBFTRASSE"));  // long s folds to s
  EXPECT_TRUE(Matches("kelvin", kCi,
                      "\xE2\x84\xAA"
                      "ELVIN"));  // Kelvin sign folds to k
  EXPECT_TRUE(Matches("summary", kCi, "\xE2\x80\x94 SUMMARY \xE2\x80\x94"));  // dashes, no trap
  EXPECT_TRUE(Matches("summary", kCi, "\xE2\x80\x9C\xC5\xBFUMMARY\xE2\x80\x9D"));
  // A trap after punctuation that shares its lead byte.
  EXPECT_TRUE(Matches("kelvin", kCi, "\xE2\x80\x94 \xE2\x80\x9C\xE2\x84\xAA" "ELVIN"));
  EXPECT_TRUE(Matches("s*y", kCi, "\xE2\x80\x94 \xC5\xBFUMMARY"));
  EXPECT_FALSE(Matches("summary", 0, "\xC5\xBFummary"));  // case matters without 0x1
}

TEST(TextPattern, WholeWordsLookOnlyAtTheFirstOccurrence) {
  const uint32_t ww = kCi | kPatternWholeWords;
  EXPECT_FALSE(Matches("win", ww, "rowing win"));  // first "win" is inside "rowing"
  EXPECT_TRUE(Matches("win", ww, "win rowing"));
  EXPECT_TRUE(Matches("win", ww, "the WIN."));
  EXPECT_TRUE(Matches("win", ww, "win_32"));  // underscore is no letter or digit
  EXPECT_FALSE(Matches("win", ww, "win32"));
  EXPECT_FALSE(Matches("win", ww, "éwin"));  // nor is a non-ASCII letter allowed
  EXPECT_TRUE(Matches("ärger", ww, "kein ÄRGER!"));
  EXPECT_FALSE(Matches("ärger", ww, "ÄRGERlich"));
  EXPECT_TRUE(Matches("win", kCi, "rowing win"));  // without whole words any occurrence does
}

TEST(TextPattern, PlainExcerptIsTheMatchedRange) {
  auto p = MustCompile("ärger", kCi);
  EXPECT_EQ(Excerpt(*p, "viel ÄRGER heute"), "ÄRGER");
  EXPECT_EQ(Excerpt(*MustCompile("rep", kCi), "my REPORT"), "REP");
}

TEST(TextPattern, NormalisedModeComparesCompatibilityForms) {
  EXPECT_TRUE(Matches("FILE", 0, "my \xEF\xAC\x81le.txt", kModeNormalised));  // "ﬁ" ligature
  EXPECT_TRUE(Matches("straße", 0, "STRASSE", kModeNormalised));
  EXPECT_TRUE(Matches("file", kPatternExact, "\xEF\xAC\x81LE", kModeNormalised));
  EXPECT_FALSE(Matches("file", kPatternWholeWords, "profile", kModeNormalised));
  auto p = MustCompile("file", 0, kModeNormalised);
  EXPECT_EQ(Excerpt(*p, "a \xEF\xAC\x81le b"), "\xEF\xAC\x81le");
}

TEST(TextPattern, WildcardExactAndContains) {
  auto exact = MustCompile("*.txt", kCi | kPatternExact);
  EXPECT_TRUE(exact->Match("notes.txt"));
  EXPECT_TRUE(exact->Match("NOTES.TXT"));
  EXPECT_FALSE(exact->Match("notes.txt.bak"));
  auto contains = MustCompile("*.txt", kCi);
  EXPECT_TRUE(contains->Match("notes.txt.bak"));
  EXPECT_FALSE(contains->Match("notes.text"));
  // The pattern is lowered, so a wildcard is case-blind even without 0x1.
  EXPECT_TRUE(Matches("*.TXT", kPatternExact, "A.Txt"));
  // "?" is one character, also a non-ASCII or an ill-formed one.
  EXPECT_TRUE(Matches("caf?", kPatternExact, "café"));
  EXPECT_TRUE(Matches("caf?", kPatternExact, "caf\xFF"));
  EXPECT_FALSE(Matches("caf??", kPatternExact, "café"));
  EXPECT_TRUE(Matches("a*b*c", kPatternExact, "aXbYc"));
  EXPECT_FALSE(Matches("a*b*c", kPatternExact, "aXbYcZ"));
  EXPECT_TRUE(Matches("a*b*c", 0, "xxaXbYcZ"));
  EXPECT_TRUE(Matches("é*ß", kCi, "Das ÉtÉ STRAẞE"));
}

TEST(TextPattern, WildcardSkipsLeadingWildcardsWhenNotExact) {
  EXPECT_TRUE(Matches("?abc", 0, "abc"));  // a leading "?" does not demand a character
  EXPECT_FALSE(Matches("?abc", kPatternExact, "abc"));
  EXPECT_TRUE(Matches("*?*", 0, "x"));  // nothing left: any value matches
  EXPECT_FALSE(Matches("*?*", 0, ""));
  EXPECT_TRUE(Matches("**?x", 0, "x"));
}

TEST(TextPattern, WildcardExcerptIsBoundedByPatternLength) {
  // "ab*" has 3 characters: the excerpt is at most 3 * 4 / 3 + 1 = 5 characters.
  auto p = MustCompile("ab*", kCi);
  EXPECT_EQ(Excerpt(*p, "xxABCDEFGH"), "ABCDE");
  EXPECT_EQ(Excerpt(*p, "xxabc"), "abc");
  EXPECT_EQ(Excerpt(*MustCompile("ä*", kCi), "xÄöüßé"), "Äöü");
  EXPECT_EQ(Excerpt(*MustCompile("*.txt", kCi | kPatternExact), "a.txt"), "a.txt");
}

TEST(TextPattern, WildcardWithManyStarsStaysFast) {
  const std::string value(20000, 'a');
  EXPECT_FALSE(Matches("*a*a*a*a*a*a*a*a*b", 0, value));
  EXPECT_FALSE(Matches("a*a*a*a*a*a*a*a*b", kPatternExact, value));
  EXPECT_TRUE(Matches("a*a*a*a*a*a*a*a*a", kPatternExact, value));
}

TEST(TextPattern, SimilarityScore) {
  EXPECT_EQ(SimilarityScore("night", "nacht"), 25);  // one pair "ht" of 4 + 4
  EXPECT_EQ(SimilarityScore("ab", "ab"), 100);
  EXPECT_EQ(SimilarityScore("a", ""), 0);
  EXPECT_EQ(SimilarityScore("", "a"), 0);      // sum of lengths below 2
  EXPECT_EQ(SimilarityScore("a", "abc"), 50);  // one-character text: 200 / 4
  EXPECT_EQ(SimilarityScore("abc", "c"), 50);
  EXPECT_EQ(SimilarityScore("x", "abc"), 0);
  EXPECT_EQ(SimilarityScore("aaa", "aa"), 66);      // each pattern pair is used once
  EXPECT_EQ(SimilarityScore("äö", "äö"), 100);      // characters, not bytes
  EXPECT_EQ(SimilarityScore("NIGHT", "nacht"), 0);  // as given: no folding here
}

TEST(TextPattern, SimilarityModeIsAThreshold) {
  EXPECT_TRUE(Matches("nacht", 0, "night", 25));
  EXPECT_FALSE(Matches("nacht", 0, "night", 26));
  EXPECT_TRUE(Matches("NACHT", kCi, "NiGhT", 25));  // pattern and value are lowered
  EXPECT_TRUE(Matches("größe", 0, "GRÖSSE", 40));
}

TEST(TextPattern, RegularExpressions) {
  EXPECT_TRUE(Matches("^[[:alpha:]]+$", 0, "Ärger"));  // POSIX classes take non-ASCII letters
  EXPECT_TRUE(Matches("\\w+\\d", 0, "ĳssel9"));
  EXPECT_TRUE(Matches("a|ab", kPatternExact, "ab"));  // exact: the whole value, any branch
  EXPECT_FALSE(Matches("b", kPatternExact, "abc"));
  EXPECT_TRUE(Matches("b+", 0, "abbc"));
  EXPECT_FALSE(Matches("B+", 0, "abbc"));
  EXPECT_TRUE(Matches("B+", kCi, "abbc"));
  auto p = MustCompile("b+", 0);
  EXPECT_EQ(Excerpt(*p, "abbc"), "bb");
  // A name with brackets needs auto wildcards off, else it is an expression.
  EXPECT_FALSE(Matches("copy (1).txt", kCi, "copy (1).txt"));
  EXPECT_TRUE(Matches("copy (1).txt", kCi | kPatternVerbatim, "copy (1).txt"));
}

TEST(TextPattern, BadRegularExpressionGivesNoPatternAndAMessage) {
  for (const char* bad : {"a(b", "[abc", "x{2,1}", "a)|(b", "(?<n>a)(?<n>b)", "\\"}) {
    SCOPED_TRACE(bad);
    std::string error;
    EXPECT_EQ(TextPattern::Compile(bad, kCi, kModeDetect, &error), nullptr);
    EXPECT_NE(error.find("Bad regular expression at position "), std::string::npos) << error;
  }
  std::string error;
  EXPECT_EQ(TextPattern::Compile("ä(", 0, kModeRegex, &error), nullptr);
  EXPECT_NE(error.find("position 3"), std::string::npos) << error;  // counted in characters
}

TEST(TextPattern, CatastrophicRegexIsBoundedAsNoMatch) {
  const std::string value = std::string(5000, 'a') + "!";
  EXPECT_FALSE(Matches("(a+)+$", 0, value));
  EXPECT_FALSE(Matches("(a|aa)*b", 0, value));
  EXPECT_FALSE(Matches("^(\\w+\\s?)*$", 0, value));
  EXPECT_TRUE(Matches("(a+)+!", 0, value));  // a normal match on the same value still works
}

TEST(TextPattern, IllFormedValuesNeverCrash) {
  const std::string bad[] = {"\xFF",
                             "a\xC3",
                             "\xE2\x82",
                             "\xF0\x9F\x98",
                             "\xED\xA0\x80x",
                             "ab\x80"
                             "cd",
                             std::string("a\0b", 3)};
  const char* patterns[] = {"a", "cd", "*d", "?", "a.*", "x", "é"};
  const uint16_t modes[] = {kModeDetect, kModeNormalised, 30};
  for (const char* pattern : patterns) {
    for (uint16_t mode : modes) {
      for (uint32_t flags : {0u, kCi, kCi | kPatternExact, kCi | kPatternWholeWords}) {
        auto p = MustCompile(pattern, flags, mode);
        for (const std::string& value : bad) p->Match(value);
      }
    }
  }
  EXPECT_TRUE(Matches("cd", kCi,
                      "ab\x80"
                      "CD"));
  EXPECT_TRUE(Matches("cd", kCi | kPatternWholeWords,
                      "ab\x80"
                      "cd"));  // a bad byte is no letter
  EXPECT_TRUE(Matches("c[d]", 0,
                      "ab\x80"
                      "cd"));  // regex finds past it
}

// "contains" and "matches ... [WC]" show in the console's rule list (value warnings); the rest:
TEST(TextPattern, DescribesModeAndPattern) {
  EXPECT_EQ(MustCompile("report", kCi | kPatternExact)->Describe(), "is report");
  EXPECT_EQ(MustCompile("^a+", kCi)->Describe(), "contains ^a+ [RE]");
  EXPECT_EQ(MustCompile("Nacht", 0, 25)->Describe(), "contains nacht [FZ]");
  EXPECT_EQ(MustCompile("x", kPatternExact, kModeNormalised)->Describe(), "matches x [FZ]");
}

// "Ignore case" means simple case folding for every kind of pattern: these pairs must get the
// same answer from a plain pattern, a wildcard, a regular expression and a keyword term.
TEST(TextPattern, IgnoreCaseAgreesAcrossModes) {
  struct Case {
    const char* pattern;
    const char* value;
    bool expected;
  } cases[] = {
      {"ärger", "ÄRGER", true},
      {"σίσυφος", "ΣΊΣΥΦΟΣ", true},
      {"k", "\xE2\x84\xAA", true},   // Kelvin sign
      {"s", "\xC5\xBF", true},       // long s
      {"ß", "ẞ", true},              // capital sharp s is a simple fold
      {"straße", "STRASSE", false},  // full folding is not used
      {"i", "İ", false},             // nor Turkish dotted I
      {"ǆ", "ǅ", true},
      {"ﬁ", "FI", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.pattern) + " / " + c.value);
    EXPECT_EQ(Matches(c.pattern, kCi, c.value, kModePlain), c.expected) << "plain";
    EXPECT_EQ(Matches(std::string(c.pattern) + "*", kCi, c.value), c.expected) << "wildcard";
    EXPECT_EQ(Matches(std::string("(") + c.pattern + ")", kCi, c.value), c.expected) << "regex";
    EXPECT_EQ(Matches(c.pattern, kCi | kPatternExact, c.value, kModePlain), c.expected) << "is";
    EXPECT_EQ(Matches(std::string("^") + c.pattern + "$", kCi, c.value), c.expected) << "regex is";
    auto keywords = KeywordProgram::Compile(c.pattern, 5, kCi | kPatternVerbatim);
    ASSERT_NE(keywords, nullptr);
    EXPECT_EQ(keywords->Match(c.value), c.expected) << "keyword";
  }
}

// The byte path of case-blind plain matching relies on only "k" and "s" having non-ASCII
// characters that fold onto them.
TEST(TextPattern, OnlyKAndSHaveNonAsciiFoldPartners) {
  std::set<UChar32> onto_ascii;
  for (UChar32 c = 0x80; c <= 0x10FFFF; ++c) {
    if (u_foldCase(c, U_FOLD_CASE_DEFAULT) < 0x80) onto_ascii.insert(c);
  }
  EXPECT_EQ(onto_ascii, (std::set<UChar32>{0x17F, 0x212A}));
}

}  // namespace
}  // namespace trovix::rules
