#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "rules/patterns/text_pattern.h"

namespace trovix::rules {
namespace {

using Words = std::vector<std::string>;
constexpr uint32_t kCi = kPatternIgnoreCase;

std::unique_ptr<KeywordProgram> MustCompile(std::string_view text, int kind, uint32_t flags = kCi) {
  std::string error;
  auto program = KeywordProgram::Compile(text, kind, flags, &error);
  EXPECT_NE(program, nullptr) << text << ": " << error;
  return program;
}

std::string CompileError(std::string_view text, int kind = 5) {
  std::string error;
  auto program = KeywordProgram::Compile(text, kind, kCi, &error);
  EXPECT_EQ(program, nullptr) << text;
  return error;
}

TEST(SplitKeywords, SplitsAtBlanksAndKeepsQuotedPhrasesWhole) {
  struct Case {
    const char* text;
    Words words;
  } cases[] = {
      {"alpha  beta\tgamma", {"alpha", "beta", "gamma"}},
      {"  \"express ions\" more", {"express ions", "more"}},
      {"\"say \"\"hi\"\" now\" x", {"say \"\"hi\"\" now", "x"}},  // doubled marks stay doubled
      {"\"\"a b", {"\"\"a", "b"}},         // a doubled mark does not open a phrase
      {"\"open phrase", {"open phrase"}},  // runs to the end
      {"\"ab\"cd", {"ab", "cd"}},
      {"one \"\" two", {"one", "\"\"", "two"}},
      {"one \" two", {"one", " two"}},
      {"one \"", {"one"}},  // an empty keyword ends the list
      {"a\xC2\xA0"
       "b",
       {"a", "b"}},  // no-break space is a blank
      {"", {}},
      {"   ", {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(SplitKeywords(c.text), c.words);
  }
}

TEST(KeywordList, BuildsAndSplitsTheThreePartMultiString) {
  const std::string list = BuildKeywordList("a b", "", "zz");
  EXPECT_EQ(list, std::string("1a b\0"
                              "2\0"
                              "3zz\0\0",
                              12));
  EXPECT_EQ(list.size(), 3u + 0u + 2u + 7u);
  std::string all, any, none;
  ASSERT_TRUE(SplitKeywordList(list, &all, &any, &none));
  EXPECT_EQ(all, "a b");
  EXPECT_EQ(any, "");
  EXPECT_EQ(none, "zz");
  for (std::string bad : {std::string("1a\0"
                                      "2\0"
                                      "3\0",
                                      7),
                          std::string("1a\0"
                                      "3\0"
                                      "2\0\0",
                                      9),
                          std::string("xa\0"
                                      "2\0"
                                      "3\0\0",
                                      9),
                          std::string(),
                          std::string("1\0"
                                      "2\0"
                                      "3\0\0"
                                      "x",
                                      9)}) {
    EXPECT_FALSE(SplitKeywordList(bad, &all, &any, &none));
  }
}

TEST(KeywordProgram, KeywordListCombinesItsParts) {
  auto program = MustCompile(BuildKeywordList("alpha \"big beta\"", "x y", "zeta"), 4);
  EXPECT_TRUE(program->Match("ALPHA and big beta with x"));
  EXPECT_TRUE(program->Match("y big beta alpha"));
  EXPECT_FALSE(program->Match("alpha big beta"));         // no any-of keyword
  EXPECT_FALSE(program->Match("alpha beta big x"));       // the phrase is one keyword
  EXPECT_FALSE(program->Match("alpha big beta x zeta"));  // a none-of keyword
  EXPECT_TRUE(MustCompile(BuildKeywordList("", "", "tmp"), 4)->Match("report.doc"));
  EXPECT_FALSE(MustCompile(BuildKeywordList("", "", ""), 4)->Match("anything"));
  EXPECT_TRUE(MustCompile(BuildKeywordList("*.txt", "", ""), 4)->Match("a.TXT"));
  EXPECT_FALSE(
      MustCompile(BuildKeywordList("*.txt", "", ""), 4, kCi | kPatternVerbatim)->Match("a.TXT"));
  EXPECT_EQ(CompileError(std::string("1a\0", 3), 4), "The keyword list is damaged");
}

TEST(KeywordProgram, FreeformGrammar) {
  struct Case {
    const char* expression;
    const char* value;
    bool expected;
  } cases[] = {
      {"(this OR that) AND NOT \"the end\"", "this is it", true},
      {"(this OR that) AND NOT \"the end\"", "that is THE END", false},
      {"(this OR that) AND NOT \"the end\"", "neither", false},
      {"alpha beta", "beta alpha", true},  // juxtaposition is AND
      {"alpha beta", "alpha", false},
      {"a OR b c", "a", true},  // AND binds tighter than OR
      {"a OR b c", "b", false},
      {"NOT a OR b", "b a", true},  // NOT binds tightest
      {"NOT NOT a", "a", true},
      {"x and y", "x and y", true},  // lower-case words are keywords
      {"x and y", "x y", false},
      {"((a))", "a", true},
      {"(a OR b) (c OR d)", "b d", true},
      {"(a OR b) (c OR d)", "a b", false},
      {"file(1)", "file1", true},         // stays one word, a regular expression
      {"\"a+b\" OR none", "aaab", true},  // quoting groups, it does not escape
      {"*.txt OR *.doc", "report.doc", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.expression) + " / " + c.value);
    auto program = MustCompile(c.expression, 5);
    ASSERT_NE(program, nullptr);
    EXPECT_EQ(program->Match(c.value), c.expected);
  }
}

TEST(KeywordProgram, FreeformErrorsNameThePosition) {
  struct Case {
    const char* expression;
    const char* error;
  } cases[] = {
      {"", "Nothing to search for at position 1"},
      {"(a OR b", "Missing ')' at position 8 (for the '(' at position 1)"},
      {"a)", "Unexpected ')' at position 2"},
      {"a OR", "Keyword expected after OR at position 5"},
      {"a AND NOT", "Keyword expected after NOT at position 10"},
      {"OR a", "Keyword expected before OR at position 1"},
      {"a AND OR b", "Keyword expected before OR at position 7"},
      {"()", "Empty brackets at position 1"},
      {"ä \"", "Empty quoted phrase at position 3"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.expression);
    EXPECT_EQ(CompileError(c.expression), c.error);
  }
  EXPECT_EQ(CompileError(std::string(150, '(') + "a" + std::string(150, ')')),
            "Too many nested brackets at position 101");
  const std::string bad_term = CompileError("good OR b[ad");
  EXPECT_EQ(bad_term.rfind("Keyword \"b[ad\": Bad regular expression", 0), 0u) << bad_term;
  EXPECT_NE(bad_term.find("at position 9"), std::string::npos) << bad_term;
}

TEST(KeywordProgram, SimpleContentsRuleIsOneTerm) {
  auto program = MustCompile("big beta", 3);
  EXPECT_EQ(program->TermCount(), 1u);
  EXPECT_TRUE(program->Match("a BIG BETA here"));
  EXPECT_FALSE(program->Match("beta big"));
  EXPECT_EQ(program->Describe(), "contains big beta");
}

TEST(KeywordProgram, FirstPositiveTermGivesTheExcerpt) {
  auto program = MustCompile("NOT zeta AND (gamma OR beta)", 5);
  MatchRange hit;
  ASSERT_TRUE(program->Match("alpha beta gamma", &hit));
  EXPECT_EQ(hit.offset, 11u);  // "gamma", the first term that counted
  EXPECT_EQ(hit.length, 5u);
}

// The comma-separated term form is driven through the file kinds, which are written in it.
TEST(KeywordProgram, ScansTextInChunks) {
  auto program = MustCompile("(alpha OR beta) AND NOT gamma", 5);
  ASSERT_EQ(program->TermCount(), 3u);
  std::vector<uint8_t> hits(program->TermCount(), 0);
  EXPECT_FALSE(program->Settled(hits));
  program->ScanChunk("nothing here", &hits);
  program->ScanChunk("then BETA", &hits);
  EXPECT_FALSE(program->Settled(hits));  // gamma may still come
  EXPECT_TRUE(program->Decide(hits));
  program->ScanChunk("and gamma", &hits);
  EXPECT_TRUE(program->Settled(hits));
  EXPECT_FALSE(program->Decide(hits));

  auto any = MustCompile("alpha OR beta", 5);
  std::vector<uint8_t> any_hits(any->TermCount(), 0);
  any->ScanChunk("alpha", &any_hits);
  EXPECT_TRUE(any->Settled(any_hits));  // one alternative found decides it
}

TEST(KeywordProgram, DescribesTheRule) {
  EXPECT_EQ(MustCompile(BuildKeywordList("a b", "", "c"), 4)->Describe(),
            "contains all of a b; none of c");
  EXPECT_EQ(MustCompile("x OR y", 5)->Describe(), "contains x OR y");
}

}  // namespace
}  // namespace trovix::rules
