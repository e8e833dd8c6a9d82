#include "index/dialect/like_pattern.h"

#include <gtest/gtest.h>

namespace trovix::engine::index {
namespace {

TEST(LikePattern, WildcardsAndEscapes) {
  struct Case {
    const char* pattern;
    const char* value;
    bool match;
  } const cases[] = {
      {"abc", "abc", true},        {"abc", "abcd", false},     {"a%", "a", true},
      {"%c", "abc", true},         {"a_c", "aβc", true},       {"a_c", "ac", false},
      {"a%b%c", "axxbyyc", true},  {"a%b%c", "axxcyyb", false}, {"%%", "", true},
      {"[%]", "%", true},          {"[%]", "x", false},        {"[_]x", "_x", true},
      {"[[]a]", "[a]", true},      {"[ab]", "[ab]", true},     {"a[", "a[", true},
      {"%.t_t", "notes.txt", true}, {"_", "\xff", true},       {"%ß", "straß", true},
      // A doubled quotation mark is one, as the query builder writes it; a single one too.
      {"a\"\"b", "a\"b", true},   {"a\"\"b", "a\"\"b", false}, {"a\"b", "a\"b", true},
      {"%\"\"\"\"%", "x\"\"y", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.pattern) + " / " + c.value);
    EXPECT_EQ(LikePattern(c.pattern).Match(c.value), c.match);
  }
}

TEST(LikePattern, LiteralRunsSkipWildcards) {
  EXPECT_EQ(LikePattern("ab%cde_f[%]gh").LiteralRuns(), (std::vector<std::string>{"ab", "cde", "f%gh"}));
  EXPECT_TRUE(LikePattern("%_%").LiteralRuns().empty());
}

TEST(LikePattern, ManyStarsStayFast) {
  const std::string value(20000, 'a');
  EXPECT_FALSE(LikePattern("%a%a%a%a%a%a%a%a%b").Match(value));
  EXPECT_TRUE(LikePattern("%a%a%a%a%a%a%a%a%").Match(value));
}

}  // namespace
}  // namespace trovix::engine::index
