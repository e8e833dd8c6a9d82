#include "rules/value/value_syntax.h"

#include <gtest/gtest.h>

#include <string>

#include "base/file_time.h"
#include "date_test_util.h"
#include "rule_test_util.h"
#include "rules/value/date_period.h"
#include "rules/value/date_text.h"
#include "rules/patterns/text_pattern.h"
#include "rules/rule.h"

namespace trovix::rules {
namespace {

using testing::Bits;

constexpr uint64_t kNone = kNoValue;

using testing::LocalBits;

RulePtr FloatRule() { return Rule::CreateFor(testing::FloatProperty()); }
RulePtr DurationRule() { return Rule::CreateFor(testing::DurationProperty()); }

TEST(ParseNumber, ReadsUnitsAndDurations) {
  struct {
    const char* text;
    int64_t value;
    int unit;
  } cases[] = {
      {"", 0, 0},
      {"50 KB", 51'200, 1},
      {"50 K", 50, 0},  // no "b": no unit
      {"3 MB", 3 * 1'048'576, 2},
      {"2 GB", 2'147'483'648, 3},
      {"1 TB", 0, 4},  // the terabyte multiplier overflows to 0
      {"0 KB", 0, 0},
      {"10 B", 10, 0},
      {"+7 kB", 7'168, 1},
      {"00:10", 100'000'000, -1},  // minutes:seconds
      {"1:30", 900'000'000, -1},
      {"1:02:05", 37'250'000'000, -1},
      {"99999999999999999999", INT64_MAX, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const ParsedNumber n = ParseNumber(c.text);
    EXPECT_EQ(n.value, c.value);
    EXPECT_EQ(n.unit_index, c.unit);
  }
}

TEST(ParseFloat, ReadsDecimalsCommasAndDegrees) {
  struct {
    const char* text;
    double value;
  } cases[] = {
      {"3.5", 3.5},
      {"-0.25", -0.25},
      {"+2", 2},
      {"3,5", 3.5},
      {"1e3", 1000},
      {"abc", 0},
      {"", 0},
      {"7 .. 9", 7},
      {"-33\xC2\xB0 30' 0\"", -33.5},
      {"12\xC2\xB0 15' 27\"", 12.2575},
      {"12\xC2\xB0 30'", 12.5},
      {"-0\xC2\xB0 30' 0\"", -0.5},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_DOUBLE_EQ(ParseFloat(c.text), c.value);
  }
}

struct RuleCase {
  const char* text;
  uint32_t flags;
  uint64_t min;
  uint64_t max;
};

void ExpectParsed(RulePtr (*make)(), const RuleCase* cases, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const RuleCase& c = cases[i];
    SCOPED_TRACE(std::string("'") + c.text + "'");
    RulePtr rule = make();
    rule->SetContext(kContextOrNot);
    rule->SetSummary("old");
    ASSERT_TRUE(ParseRuleText(*rule, c.text));
    EXPECT_EQ(rule->Flags(), c.flags) << std::hex << rule->Flags();
    EXPECT_EQ(rule->Min(), c.min);
    EXPECT_EQ(rule->Max(), c.max);
    EXPECT_EQ(rule->Context(), kContextAnd);
    EXPECT_EQ(rule->Summary(), "");
  }
}

RulePtr SizeRule() { return Rule::Create(testing::SizeKey()); }
RulePtr DateRule() { return Rule::Create(testing::DateModifiedKey()); }

TEST(ParseRuleText, NumberForms) {
  const RuleCase cases[] = {
      {"10", cf::kEqual, 10, kNone},
      {"50 KB", cf::kEqual | cf::kShowUnit, 51'200, kNone},
      {">=50 KB", cf::kLowerBound | cf::kShowUnit, 51'200, kNone},
      {"<=100", cf::kUpperBound, kNone, 100},
      {"<>5", cf::kNotEqual, 5, kNone},
      {"~100", cf::kApproximate | cf::kEqual, 100, kNone},
      {"3 .. 5", cf::kBounds, 3, 5},
      {"5 .. 3", cf::kBounds, 3, 5},
      {"4 .. 4", cf::kEqual, 4, 4},
      {"1 .. 2 KB", cf::kBounds | cf::kShowUnit, 1, 2'048},
      {".. 5", cf::kBounds, 0, 5},
      {"3 ..", cf::kEqual, 3, kNone},
      {"1 TB", cf::kEqual | cf::kShowUnit, 0, kNone},
  };
  ExpectParsed(SizeRule, cases, std::size(cases));
}

TEST(ParseRuleText, FloatAndDurationForms) {
  const RuleCase floats[] = {
      {"2.5", cf::kFloatKind | cf::kEqual, Bits(2.5), kNone},
      {"1.5 .. 0.5", cf::kFloatKind | cf::kBounds, Bits(0.5), Bits(1.5)},
      {"~3", cf::kFloatKind | cf::kApproximate | cf::kEqual, Bits(3.0), kNone},
      {"<>1", cf::kFloatKind | cf::kNotEqual, Bits(1.0), kNone},
  };
  ExpectParsed(FloatRule, floats, std::size(floats));
  const RuleCase durations[] = {
      {"1:30", cf::kEqual | cf::kDuration, 900'000'000, kNone},
      {">=0:10", cf::kLowerBound | cf::kDuration, 100'000'000, kNone},
  };
  ExpectParsed(DurationRule, durations, std::size(durations));
}

TEST(ParseRuleText, DateForms) {
  for (const char* zone : {"UTC", "Europe/Berlin"}) {
    SCOPED_TRACE(zone);
    testing::DateScope scope("en_GB", zone);
    const uint32_t d = cf::kDateKind;
    const RuleCase cases[] = {
        {"31/10/2010", d | cf::kWholeDays | cf::kBounds, LocalBits(2010, 10, 31),
         LocalBits(2010, 10, 31, 23, 59, 59)},
        {">=31/10/2010", d | cf::kLowerBound, LocalBits(2010, 10, 31), kNone},
        {"> 31/10/2010 14:30", d | cf::kLowerBound, LocalBits(2010, 10, 31, 14, 30), kNone},
        {"<=31/10/2010", d | cf::kUpperBound, kNone, LocalBits(2010, 10, 31, 23, 59, 59)},
        {"<31/10/2010 12:00", d | cf::kUpperBound, kNone, LocalBits(2010, 10, 31, 12)},
        {"10/1/2014 .. 10/2/2014", d | cf::kBounds, LocalBits(2014, 1, 10),
         LocalBits(2014, 2, 10, 23, 59, 59)},
        {"10/2/2014 .. 10/1/2014", d | cf::kBounds, LocalBits(2014, 1, 10),
         LocalBits(2014, 2, 10, 23, 59, 59)},
        {"4/1/2014 .. 4/1/2014", d | cf::kBounds, LocalBits(2014, 1, 4),
         LocalBits(2014, 1, 4, 23, 59, 59)},  // a date range stays a range
        {"2014", d | cf::kBounds, LocalBits(2014, 1, 1), LocalBits(2015, 1, 1, 23, 59, 59)},
        {"October 2014", d | cf::kBounds, LocalBits(2014, 10, 1),
         LocalBits(2014, 11, 1, 23, 59, 59)},
        {"10/1/2014 .. later 1x", d | cf::kLowerBound, LocalBits(2014, 1, 10), kNone},
        {"30/3/2014 10:00 .. 30/3/2014 20:00", d | cf::kBounds, LocalBits(2014, 3, 30, 10),
         LocalBits(2014, 3, 30, 20)},
        {"yesterday", PeriodFlags(3), kNone, kNone},
        {"Yesterday", PeriodFlags(3), kNone, kNone},
    };
    ExpectParsed(DateRule, cases, std::size(cases));
  }
}

TEST(ParseRuleText, RejectedTextLeavesTheRuleAsItWas) {
  SetDateLocale("en_GB");
  struct {
    RulePtr (*make)();
    const char* text;
  } cases[] = {
      {SizeRule, ""},           {SizeRule, "abc"},         {SizeRule, "KB"},
      {SizeRule, "yesterday"},  {FloatRule, "x"},          {DateRule, "tomorrow"},
      {DateRule, "1969"},       {DateRule, "2101"},        {DateRule, "31/10/1969"},
      {DateRule, "30/02/2014"}, {DateRule, ".. 5/1/2014"}, {DateRule, "~10/1/2014"},
      {DateRule, ""},           {DateRule, "99999-01-01"}, {DateRule, ">=1/1/10000"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    RulePtr rule = c.make();
    ASSERT_TRUE(ParseRuleText(*rule, (rule->Kind() == kKindDate) ? "=5/5/2015" : "7"));
    rule->SetContext(kContextOr);
    rule->SetSummary("kept");
    RulePtr before = rule->Clone();
    EXPECT_FALSE(ParseRuleText(*rule, c.text));
    EXPECT_TRUE(rule->Equals(*before));
    EXPECT_EQ(rule->Summary(), "kept");
  }
  SetDateLocale("");
}

// A far upper bound of a range leaves the range open, as any date that does not parse does.
TEST(ParseRuleText, DateRangeEndingPastYear9999IsOpen) {
  testing::DateScope scope("en_GB", "America/New_York");
  RulePtr rule = DateRule();
  ASSERT_TRUE(ParseRuleText(*rule, "1/1/2014 .. 99999-01-01"));
  EXPECT_EQ(rule->Flags() & cf::kBounds, cf::kLowerBound);
  EXPECT_EQ(rule->Min(), testing::LocalBits(2014, 1, 1));
}

TEST(ParseRuleText, TextForms) {
  using testing::NameKey;
  const std::string two_all = BuildKeywordList("two words", "", "");
  const std::string two_any = BuildKeywordList("", "two words", "");
  const props::PropertyKey find = testing::KeyOf("{00010203-0405-0607-0809-0A0B0C0D0E0F}", 17);
  struct {
    props::PropertyKey key;
    const char* text;
    RuleTextOptions options;
    int32_t kind;
    uint32_t flags;
    std::string value;
  } cases[] = {
      {NameKey(), "report", {}, kKindText, cf::kIgnoreCase, "report"},
      {NameKey(), "=report", {}, kKindText, cf::kIgnoreCase | cf::kExact, "report"},
      {NameKey(), "  two   words ", {}, kKindKeywordList, cf::kIgnoreCase, two_all},
      {NameKey(), "two words", {0, true, false}, kKindKeywordList, cf::kIgnoreCase, two_any},
      {NameKey(),
       "a \"b c\"",
       {},
       kKindKeywordList,
       cf::kIgnoreCase,
       BuildKeywordList("a \"b c\"", "", "")},
      {NameKey(), "*.txt", {0, false, true}, kKindText, cf::kIgnoreCase | cf::kVerbatim, "*.txt"},
      {find, "=x", {}, kKindText, cf::kIgnoreCase | cf::kVerbatim, "x"},
      {testing::ContentsKey(), "=x", {}, kKindText, cf::kIgnoreCase, "=x"},
      {testing::ComplexKey(),
       "$System.Size > 5",
       {},
       kKindText,
       cf::kIgnoreCase,
       "$System.Size > 5"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    RulePtr rule = Rule::Create(c.key);
    ASSERT_TRUE(IsTextKind(rule->Kind()));
    ASSERT_TRUE(ParseRuleText(*rule, c.text, c.options));
    EXPECT_EQ(rule->Kind(), c.kind);
    EXPECT_EQ(rule->Flags(), c.flags);
    EXPECT_EQ(rule->Text(), c.value);
  }
  for (const char* bad : {"", "   ", "*", "=", "=*"}) {
    SCOPED_TRACE(bad);
    RulePtr rule = testing::TextRule(NameKey(), "kept");
    EXPECT_FALSE(ParseRuleText(*rule, bad));
    EXPECT_EQ(rule->Text(), "kept");
    EXPECT_EQ(rule->Kind(), kKindText);
  }
  RulePtr complex = Rule::Create(testing::ComplexKey());
  EXPECT_FALSE(ParseRuleText(*complex, "  "));
}

}  // namespace
}  // namespace trovix::rules

namespace trovix::rules {
namespace {

// Found by fuzzing: huge durations wrapped through signed overflow.
TEST(ParseNumberRegression, HugeDurationsWrapWithoutOverflow) {
  ParsedNumber n = ParseNumber("1:99999999999999999999:99999999999999999999");
  EXPECT_EQ(n.unit_index, -1);
}

}  // namespace
}  // namespace trovix::rules
