#include <gtest/gtest.h>

#include "cli/output/json_text.h"
#include "cli/rule_line.h"

namespace trovix::cli {
namespace {

// The common forms run through the console's rule list (value warnings); these are the edges.
TEST(RuleLine, ContextsIndentsAndValues) {
  struct Case {
    const char* text;
    int context, indent;
    const char* property;
    const char* value;
  } cases[] = {
      {"AND NOT >> Date modified: yesterday", 2, 2, "Date modified", "yesterday"},
      {"Or Not >Size:1..2 MB", 3, 1, "Size", "1..2 MB"},
      {"DateModified: 12:30:00", 0, 0, "DateModified", "12:30:00"},
      {"Orientation: 1", 0, 0, "Orientation", "1"},  // "Or..." is a word of its own only
      {"and: x", 0, 0, "and", "x"},                   // a lone word is the property
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    RuleLine line;
    std::string error;
    ASSERT_TRUE(ParseRuleLine(c.text, &line, &error)) << error;
    EXPECT_EQ(line.context, c.context);
    EXPECT_EQ(line.indent, c.indent);
    EXPECT_EQ(line.property, c.property);
    EXPECT_EQ(line.value, c.value);
  }
}

TEST(RuleLine, RejectsLinesWithoutPropertyOrColon) {
  RuleLine line;
  std::string error;
  EXPECT_FALSE(ParseRuleLine("size > 5", &line, &error));
  EXPECT_NE(error.find("\":\""), std::string::npos);
  EXPECT_FALSE(ParseRuleLine("or >> : 5", &line, &error));
  EXPECT_NE(error.find("no property"), std::string::npos);
}

// A name that is not UTF-8 is driven through --json by the console tests; these are the rest.
TEST(JsonText, EscapesControlsAndKeepsInvalidBytesRecoverable) {
  std::string out;
  AppendJsonString(out, "a\"b\\c\n\x01 \xC3\xA9");
  EXPECT_EQ(out, "\"a\\\"b\\\\c\\n\\u0001 \xC3\xA9\"");
  out.clear();
  AppendJsonString(out, "cut\xE2\x82");  // a truncated three-byte sequence
  EXPECT_EQ(out, "\"cut\\udce2\\udc82\"");
}

}  // namespace
}  // namespace trovix::cli
