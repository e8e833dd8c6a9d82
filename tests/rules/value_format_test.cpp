#include "rules/value/value_format.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>

#include "base/file_time.h"
#include "date_test_util.h"
#include "props/catalogue.h"
#include "rule_test_util.h"
#include "rules/value/date_period.h"
#include "rules/value/date_text.h"
#include "rules/patterns/text_pattern.h"
#include "rules/rule.h"
#include "rules/value/value_syntax.h"

namespace trovix::rules {
namespace {

using testing::Bits;

using testing::LocalBits;

TEST(FormatNumber, SizesAndDurations) {
  struct {
    int64_t value;
    bool duration;
    const char* text;
  } cases[] = {
      {51'200, false, "50 KB"},
      {int64_t{5} << 50, false, "5 PB"},
      {1'536, false, "1 KB"},  // the fraction is dropped on display
      {1'023, false, "1023 B"},
      {2'147'483'648, false, "2 GB"},
      {37'250'000'000, true, "1:02:05"},
      {590'000'000, true, "0:59"},
      {6'000'000'000, true, "10:00"},
      {36'000'000'000, true, "1:00:00"},
      {9'999'999, true, "0:00"},  // whole seconds only
  };
  for (const auto& c : cases) {
    EXPECT_EQ(FormatNumber(c.value, c.duration), c.text) << c.value;
  }
}

// Columns show a length as h:mm:ss and a GPS position in degrees, minutes and seconds; other
// properties keep their value's own text.
TEST(DisplayValue, DurationsAndPositionsByTheirProperty) {
  const props::Catalogue& cat = props::DefaultCatalogue();
  EXPECT_EQ(DisplayValue(*cat.FindProperty("System.Media.Duration"), props::PropValue::UInt64(2'905'600'000)), "4:50");
  EXPECT_EQ(DisplayValue(*cat.FindProperty("System.GPS.Latitude"), props::PropValue::DoubleVector({54, 59.38, 0})),
            "54\xC2\xB0 59' 22.8\"");
  EXPECT_EQ(DisplayValue(*cat.FindProperty("System.Size"), props::PropValue::UInt64(2'905'600'000)), "2905600000");
}

// A damaged rule list or a garbage tag can hold any double where a position belongs.
TEST(FormatDegrees, ShowsWhatHasNoWholeDegreesAsThePlainNumber) {
  EXPECT_EQ(FormatDegrees(-33.5), "-33\xC2\xB0 30' 0\"");
  EXPECT_EQ(FormatDegrees(1e300), "1e+300");
  EXPECT_EQ(FormatDegrees(-3e9), "-3e+09");
  EXPECT_EQ(FormatDegrees(std::numeric_limits<double>::infinity()), "inf");
  EXPECT_EQ(FormatDegrees(-std::numeric_limits<double>::infinity()), "-inf");
  EXPECT_NE(FormatDegrees(std::numeric_limits<double>::quiet_NaN()).find("nan"), std::string::npos);
  EXPECT_EQ(FormatDegrees(999'999'999.5), "999999999\xC2\xB0 30' 0\"");
}

TEST(FormatRuleValue, ShowsDatesAtTheEndsOfTheRange) {
  testing::DateScope scope("en_GB", "America/New_York");
  for (uint64_t bound : {static_cast<uint64_t>(INT64_MIN), static_cast<uint64_t>(INT64_MAX)}) {
    ValueBounds value{kKindDate, bound, bound, cf::kDateKind | cf::kBounds};
    EXPECT_NE(FormatRuleValue(value).find(" .. "), std::string::npos);
  }
}

TEST(FormatRuleValue, ChoosesTheOperatorAndTheBounds) {
  testing::DateScope dates("en_GB", "Europe/Berlin");
  const uint32_t d = cf::kDateKind, f = cf::kFloatKind;
  struct {
    ValueBounds value;
    const char* text;
  } cases[] = {
      {{kKindNumber, 51'200, kNoValue, cf::kLowerBound | cf::kShowUnit}, ">=50 KB"},
      {{kKindNumber, 3, 5, cf::kBounds}, "3 .. 5"},
      {{kKindNumber, kNoValue, 100, cf::kUpperBound}, "<=100"},
      {{kKindNumber, 100, 5, cf::kApproximate | cf::kEqual | cf::kBounds}, "~100"},
      {{kKindNumber, 37'250'000'000, kNoValue, cf::kEqual | cf::kDuration}, "=1:02:05"},
      {{kKindFloat, Bits(-33.5), kNoValue, f | cf::kEqual | cf::kCoordinate},
       "=-33\xC2\xB0 30' 0\""},
      {{kKindFloat, Bits(12.2575), kNoValue, f | cf::kEqual | cf::kCoordinate},
       "=12\xC2\xB0 15' 27\""},
      {{kKindFloat, Bits(-34.0), Bits(-33.5), f | cf::kBounds | cf::kCoordinate},
       "-34\xC2\xB0 0' 0\" .. -33\xC2\xB0 30' 0\""},
      {{kKindDate, LocalBits(2014, 1, 10), LocalBits(2014, 2, 10, 23, 59, 59), d | cf::kBounds},
       "10/01/2014 .. 10/02/2014"},
      {{kKindDate, LocalBits(2014, 1, 10, 8, 15), LocalBits(2014, 2, 10, 18, 0), d | cf::kBounds},
       "10/01/2014 08:15 .. 10/02/2014 18:00"},
      {{kKindDate, LocalBits(2010, 10, 31), LocalBits(2010, 10, 31, 23, 59, 59),
        d | cf::kBounds | cf::kWholeDays},
       "=31/10/2010"},
      {{kKindDate, LocalBits(2010, 10, 31, 14, 30), kNoValue, d | cf::kLowerBound},
       ">=31/10/2010 14:30"},
      {{kKindDate, kNoValue, LocalBits(2010, 10, 31, 23, 59, 59), d | cf::kUpperBound},
       "<=31/10/2010"},
      {{kKindDate, kNoValue, kNoValue, PeriodFlags(3)}, "yesterday"},
      {{kKindDate, kNoValue, kNoValue, PreviousFlags(4, 3)}, "In the previous 3 day(s)"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(FormatRuleValue(c.value), c.text);
  }
}

TEST(FormatRuleValue, NamesTheFilledPartsOfAKeywordList) {
  RulePtr name = Rule::Create(testing::NameKey());
  name->SetText(BuildKeywordList("a", "b", ""));
  name->SetKind(kKindKeywordList);
  EXPECT_EQ(FormatRuleValue(*name), "Contains all of a; Contains any of b");
}

// Rules as the value syntax can produce them: text written for such a rule must read back to
// an equal rule. What deliberately does not come back, and is therefore not generated here:
//  - sizes shown in a unit drop their fraction (1,536 shows as "1 KB"), a unit-flagged size
//    below 1 KB shows as "n B", which reads back without the unit flag, and sizes of a
//    terabyte and more cannot be typed at all (the terabyte unit multiplies by 0);
//  - an approximate rule's tolerance (set in the rule's dialog) is not part of the text;
//  - a range typed with equal ends ("4 .. 4") becomes an equality that keeps its upper bound,
//    which its text "=4" does not carry;
//  - floats show with six significant digits;
//  - dates show to the second, and a bound on the edge of its day shows as the date alone:
//    a lower bound in the first minute of a day reads back at 00:00:00, an upper bound in
//    the last minute at 23:59:59;
//  - "In the previous" intervals are set in the dialog and have no typed form;
//  - keywords typed into the "any of" part read back into "all of" unless the caller asks for
//    the any-of part again, and a list using more than one part has no one-line form;
//  - in locales whose short date has neither slashes nor hyphens (German dots), a whole-day
//    rule on the first of a month reads back as the whole month;
//  - in the hour that repeats when daylight saving ends, a time reads back as its first
//    occurrence.
class RoundTrip : public ::testing::TestWithParam<std::tuple<const char*, const char*>> {
 protected:
  void SetUp() override {
    SetDateLocale(std::get<0>(GetParam()));
    base::SetLocalTimeZone(std::get<1>(GetParam()));
  }
  void TearDown() override {
    SetDateLocale("");
    base::SetLocalTimeZone("");
  }

  // Coordinates pass through degrees, minutes and seconds, which give the angle back only to
  // the last bits of the double: they are compared as angles.
  void Check(const RulePtr& rule, bool as_angles = false) {
    const std::string text = FormatRuleValue(*rule);
    SCOPED_TRACE("'" + text + "' flags " + std::to_string(rule->Flags()));
    RulePtr back = Rule::CreateFor(rule->Descriptor(), rule->Key());
    ASSERT_TRUE(ParseRuleText(*back, text));
    if (!as_angles) {
      EXPECT_TRUE(back->Equals(*rule)) << "read back min " << back->Min() << " max " << back->Max();
      return;
    }
    EXPECT_EQ(back->Flags(), rule->Flags());
    for (auto [x, y] : {std::pair{back->Min(), rule->Min()}, std::pair{back->Max(), rule->Max()}}) {
      if (y == kNoValue || x == kNoValue) {
        EXPECT_EQ(x, y);
      } else {
        EXPECT_NEAR(BitsAsDouble(x), BitsAsDouble(y), 1e-9);
      }
    }
  }

  static RulePtr Make(const props::PropertyInfo* info, uint32_t flags, uint64_t min, uint64_t max) {
    RulePtr rule = Rule::CreateFor(info, info->key);
    rule->SetFlags(flags);
    rule->SetMin(min);
    rule->SetMax(max);
    rule->Normalise();
    return rule;
  }
};

TEST_P(RoundTrip, NumbersSizesDurationsFloatsAndCoordinates) {
  std::mt19937_64 random(7);
  auto pick = [&](int64_t n) { return static_cast<int64_t>(random() % static_cast<uint64_t>(n)); };
  const props::PropertyInfo* size = props::DefaultCatalogue().FindProperty(testing::SizeKey());
  ASSERT_NE(size, nullptr);
  // equality, at least, at most, a range, not equal, about
  const uint32_t forms[] = {cf::kEqual,  cf::kLowerBound, cf::kUpperBound,
                            cf::kBounds, cf::kNotEqual,   cf::kApproximate | cf::kEqual};
  for (int i = 0; i < 1200; ++i) {
    const int what = i % 4;  // size, duration, float, coordinate
    const int unit = what == 0 ? static_cast<int>(pick(4)) : 0;
    auto value = [&]() -> uint64_t {
      switch (what) {
        case 0:  // whole units below 1024 of the unit, as a size shows them
          return unit ? Bits((1 + pick(1023)) << (10 * unit)) : Bits(pick(5000) - 2000);
        case 1:
          return Bits(pick(20'000) * base::kTicksPerSecond);
        case 2:  // at most six significant digits
          return Bits(static_cast<double>(pick(80'000) - 40'000) / 4.0);
        default:  // whole seconds of arc
          return Bits(static_cast<double>(pick(648'000) - 324'000) / 3600.0);
      }
    };
    const props::PropertyInfo* info = what == 0   ? size
                                      : what == 1 ? &testing::DurationProperty()
                                      : what == 2 ? &testing::FloatProperty()
                                                  : &testing::CoordinateProperty();
    const uint32_t form = forms[pick(6)];
    const uint64_t a = value(), b = value();
    if (form == cf::kBounds && a == b) continue;
    const uint32_t flags = form | (unit ? cf::kShowUnit : 0) | (what >= 2 ? cf::kFloatKind : 0);
    const uint64_t min = form == cf::kUpperBound ? kNoValue : a;
    const uint64_t max = form == cf::kUpperBound ? a : form == cf::kBounds ? b : kNoValue;
    Check(Make(info, flags, min, max), what == 3);
    if (::testing::Test::HasFailure()) return;
  }
}

TEST_P(RoundTrip, DatesAndPeriods) {
  std::mt19937_64 random(13);
  const props::PropertyInfo* modified =
      props::DefaultCatalogue().FindProperty(testing::DateModifiedKey());
  ASSERT_NE(modified, nullptr);
  const bool dotted = std::string_view(std::get<0>(GetParam())) == "de_DE";
  auto random_time = [&](bool upper) {
    const int y = 1971 + static_cast<int>(random() % 120);
    const int mo = 1 + static_cast<int>(random() % 12);
    const int d = 1 + static_cast<int>(random() % 28);
    int h = static_cast<int>(random() % 24), mi = static_cast<int>(random() % 60);
    int s = random() % 2 ? static_cast<int>(random() % 60) : 0;
    if (random() % 3 == 0) h = mi = s = 0;  // a day edge, shown as the date alone
    if (!upper && h == 0 && mi == 0) s = 0;
    if (upper && h == 23 && mi == 59) s = 59;
    return LocalBits(y, mo, d, h, mi, s);
  };
  for (int i = 0; i < 300; ++i) {
    const uint32_t date = cf::kDateKind;
    switch (random() % 4) {
      case 0: {  // whole day
        const uint64_t day = random_time(false);
        if (dotted &&
            base::CivilFromFileTime(base::UtcToLocal(static_cast<base::FileTime>(day))).day == 1)
          continue;
        Check(Make(modified, date | cf::kWholeDays | cf::kBounds, day, day));
        break;
      }
      case 1:
        Check(Make(modified, date | cf::kLowerBound, random_time(false), kNoValue));
        break;
      case 2:
        Check(Make(modified, date | cf::kUpperBound, kNoValue, random_time(true)));
        break;
      default:
        Check(Make(modified, date | cf::kBounds, random_time(false), random_time(true)));
    }
    if (::testing::Test::HasFailure()) return;
  }
  for (int period = 1; period <= kPeriodCount; ++period)
    Check(Make(modified, PeriodFlags(period), kNoValue, kNoValue));
}

TEST_P(RoundTrip, TextRules) {
  const props::PropertyKey find = testing::KeyOf("{00010203-0405-0607-0809-0A0B0C0D0E0F}", 17);
  for (const char* typed : {"report", "=report", "\"annual report\"", "=\"a b\"", "a b c",
                            "a \"b c\" d", "*.txt", "say \"\"hi\"\""}) {
    for (const props::PropertyKey& key : {testing::NameKey(), testing::ContentsKey(), find}) {
      RulePtr rule = Rule::Create(key);
      if (!ParseRuleText(*rule, typed)) continue;
      SCOPED_TRACE(typed);
      Check(rule);
    }
  }
  RulePtr complex = Rule::Create(testing::ComplexKey());
  ASSERT_TRUE(ParseRuleText(*complex, "$System.Size > 5 & \"x y\""));
  Check(complex);
}

// One locale for each way of writing a short date (French writes as British English does), in a
// zone with daylight saving (UTC adds nothing a zone with an offset does not cover).
INSTANTIATE_TEST_SUITE_P(LocalesAndZones, RoundTrip,
                         ::testing::Combine(::testing::Values("en_GB", "en_US", "de_DE", "nl_NL", "ja_JP"),
                                            ::testing::Values("Europe/Berlin")));

}  // namespace
}  // namespace trovix::rules
