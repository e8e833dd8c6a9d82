#include "rules/patterns/text_pattern.h"

#include <gtest/gtest.h>

namespace trovix::rules {
namespace {

TEST(TextPattern, Smoke) {
  auto p = TextPattern::Compile("win", kPatternIgnoreCase);
  ASSERT_NE(p, nullptr);
  EXPECT_TRUE(p->Match("Rowing WIN"));
}

}  // namespace
}  // namespace trovix::rules
