#include "rules/matchers/number_matcher.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "tests/rules/rule_test_util.h"

namespace trovix::rules {
namespace {

using namespace testing;

std::unique_ptr<NumberMatcher> Made(uint32_t flags, uint64_t min, uint64_t max) {
  auto m = std::make_unique<NumberMatcher>(Rule::Create(SizeKey()), false);
  m->SetBounds(flags, min, max);
  m->Prepare();
  return m;
}

bool Matches(uint32_t flags, uint64_t min, uint64_t max, uint64_t value) {
  NumberMatcher m(Rule::Create(SizeKey()), false);
  m.SetBounds(flags, min, max);
  m.Prepare();
  m.SetNumber(value);
  return m.Evaluate();
}

TEST(NumberMatcher, ComparesUnderItsFlags) {
  const uint64_t kNeg = Bits(int64_t{-5});
  struct Case {
    const char* what;
    uint32_t flags;
    uint64_t min, max, value;
    bool match;
  } cases[] = {
      {"equal", cf::kEqual, 5, kNoValue, 5, true},
      {"not equal", cf::kNotEqual, 5, kNoValue, 5, false},
      {"not equal other", cf::kNotEqual, 5, kNoValue, 6, true},
      {"range inclusive low", cf::kBounds, 3, 5, 3, true},
      {"range inclusive high", cf::kBounds, 3, 5, 5, true},
      {"range above", cf::kBounds, 3, 5, 6, false},
      {"at least is signed", cf::kLowerBound, kNeg, kNoValue, Bits(int64_t{-4}), true},
      {"at least below", cf::kLowerBound, kNeg, kNoValue, Bits(int64_t{-6}), false},
      {"at most", cf::kUpperBound, kNoValue, 100, 100, true},
      {"no bound flags match all", 0, 1, 2, 99, true},
      {"float range", cf::kFloatKind | cf::kBounds, Bits(-1.5), Bits(2.5), Bits(0.5), true},
      {"float range as doubles", cf::kFloatKind | cf::kBounds, Bits(-1.5), Bits(2.5), Bits(-2.0), false},
      // 0x03 is not Float: the low two bits must be exactly 0x02.
      {"low bits 3 compare as integers", 0x3 | cf::kUpperBound, 0, Bits(-1.0), Bits(1.0), false},
      {"float equality by bits", cf::kFloatKind | cf::kEqual, Bits(0.0), kNoValue, Bits(-0.0), false},
      {"sentinel never matches", 0, 0, 0, kNoValue, false},
      {"sentinel never matches not-equal", cf::kNotEqual, 5, kNoValue, kNoValue, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(Matches(c.flags, c.min, c.max, c.value), c.match);
  }
}

TEST(NumberMatcher, ApproximateUsesFivePercentWhenNoToleranceIsGiven) {
  const uint32_t kApprox = cf::kEqual | cf::kApproximate;
  EXPECT_EQ(Made(kApprox, 1000, kNoValue)->max(), 50u);
  EXPECT_EQ(Made(kApprox, 19, kNoValue)->max(), 1u);   // 0.95 truncates to 0, then 1
  EXPECT_EQ(Made(kApprox, Bits(int64_t{-200}), kNoValue)->max(), 10u);
  EXPECT_EQ(Made(kApprox, 0, kNoValue)->max(), 1u);
  EXPECT_EQ(Made(kApprox, std::numeric_limits<uint64_t>::max() / 2 + 1, kNoValue)->max(),
            461168601842738790u);  // |INT64_MIN| x 5 / 100 without overflow
  EXPECT_EQ(Made(kApprox, 1000, 7)->max(), 7u);  // a given tolerance stays
  EXPECT_EQ(Made(kApprox | cf::kFloatKind, Bits(-40.0), kNoValue)->max(), Bits(2.0));
  EXPECT_EQ(Made(kApprox | cf::kFloatKind, Bits(0.0), kNoValue)->max(), Bits(1.0));

  EXPECT_TRUE(Matches(kApprox, 1000, kNoValue, 950));
  EXPECT_TRUE(Matches(kApprox, 1000, kNoValue, 1050));
  EXPECT_FALSE(Matches(kApprox, 1000, kNoValue, 1051));
  EXPECT_TRUE(Matches(kApprox | cf::kFloatKind, Bits(10.0), Bits(0.5), Bits(10.5)));
  EXPECT_FALSE(Matches(kApprox | cf::kFloatKind, Bits(10.0), Bits(0.5), Bits(9.4)));
  // No overflow at the ends of the integer range.
  EXPECT_TRUE(Matches(kApprox, Bits(std::numeric_limits<int64_t>::max()), 10,
                      Bits(std::numeric_limits<int64_t>::max())));
}

TEST(NumberMatcher, LoadedRelativeDatesDropTheirStoredBounds) {
  RulePtr rule = Rule::Create(DateModifiedKey());
  rule->SetFlags(cf::kDateKind | cf::kFixedPeriod | cf::kBounds | (2u << 16));
  rule->SetMin(1);
  rule->SetMax(2);
  std::unique_ptr<RuleMatcher> matcher = rule->CreateMatcher(false);
  ASSERT_NE(matcher, nullptr);
  auto& number = static_cast<NumberMatcher&>(*matcher);
  EXPECT_EQ(number.flags() & cf::kBounds, 0u);
  EXPECT_EQ(number.flags() & cf::kFixedPeriod, cf::kFixedPeriod);
}

}  // namespace
}  // namespace trovix::rules
