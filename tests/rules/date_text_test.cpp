#include "rules/value/date_text.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "base/clock.h"
#include "base/file_time.h"
#include "date_test_util.h"
#include "rules/value/date_period.h"

namespace trovix::rules {
namespace {

using base::FileTime;

using testing::Civil;
using testing::DateScope;
using testing::Local;

struct DateCase {
  const char* locale;
  const char* text;
  FileTime local;  // the expected start as a wall time
  std::optional<FileTime> local_end;
};

TEST(ParseDate, ReadsTheLocalesForms) {
  const DateCase cases[] = {
      {"en_GB", "31/10/2010", Civil(2010, 10, 31), {}},
      {"en_GB", "1/10/2014", Civil(2014, 10, 1), {}},
      {"en_GB", " 31/10/2010 14:30 ", Civil(2010, 10, 31, 14, 30), {}},
      {"en_GB", "31/10/2010 14:30:15", Civil(2010, 10, 31, 14, 30, 15), {}},
      {"en_GB", "31 Oct 2010", Civil(2010, 10, 31), {}},
      {"en_GB", "31 October 2010 8:05", Civil(2010, 10, 31, 8, 5), {}},
      {"en_US", "10/1/2014", Civil(2014, 10, 1), {}},
      {"en_US", "10/1/14", Civil(2014, 10, 1), {}},
      {"en_US", "10/1/2014 10:30 PM", Civil(2014, 10, 1, 22, 30), {}},
      {"en_US", "10/1/2014 22:30", Civil(2014, 10, 1, 22, 30), {}},
      {"en_US", "Oct 5, 2014", Civil(2014, 10, 5), {}},
      {"de_DE", "31.10.2010", Civil(2010, 10, 31), {}},
      {"de_DE", "31.10.2010 14:30", Civil(2010, 10, 31, 14, 30), {}},
      {"de_DE", "31. Oktober 2010", Civil(2010, 10, 31), {}},
      {"en_GB", "2014-10-05 10:30", Civil(2014, 10, 5, 10, 30), {}},
      {"en_GB", "2014-10-01", Civil(2014, 10, 1), {}},
      // Months and years: a text without a day covers the whole month or year.
      {"en_GB", "2014", Civil(2014, 1, 1), Civil(2015, 1, 1)},
      {"en_GB", "October 2014", Civil(2014, 10, 1), Civil(2014, 11, 1)},
      {"en_GB", "dec 2014", Civil(2014, 12, 1), Civil(2015, 1, 1)},
      {"en_GB", "1 October 2014", Civil(2014, 10, 1), {}},  // a leading "1 " is a day
      {"en_GB", "10/2014", Civil(2014, 10, 1), {}},         // a slash always counts as a day
      {"de_DE", "1.10.2014", Civil(2014, 10, 1), Civil(2014, 11, 1)},  // dots are no sign of a day
      {"de_DE", "Oktober 2014", Civil(2014, 10, 1), Civil(2014, 11, 1)},
      {"nl_NL", "1-10-2014", Civil(2014, 10, 1), {}},  // Dutch dates write hyphens
      {"nl_NL", "oktober 2014", Civil(2014, 10, 1), Civil(2014, 11, 1)},
  };
  for (const char* zone : {"UTC", "Europe/Berlin"}) {
    for (const DateCase& c : cases) {
      SCOPED_TRACE(std::string(c.locale) + " " + zone + " '" + c.text + "'");
      DateScope scope(c.locale, zone);
      std::optional<ParsedDate> date = ParseDate(c.text);
      ASSERT_TRUE(date.has_value());
      EXPECT_EQ(date->start, base::LocalToUtc(c.local));
      ASSERT_EQ(date->end.has_value(), c.local_end.has_value());
      if (c.local_end) {
        EXPECT_EQ(*date->end, base::LocalToUtc(*c.local_end));
      }
    }
  }
}

TEST(ParseDate, RefusesWhatIsNoDate) {
  DateScope scope("en_GB", "UTC");
  for (const char* text : {"", "   ", "hello", "10", "1969", "2101", "31/10/1969", "30/02/2014",
                           "32/1/2014", "13/13/2014", "31/10/2010 25:10", "yesterday"}) {
    SCOPED_TRACE(text);
    EXPECT_FALSE(ParseDate(text));
  }
  EXPECT_TRUE(ParseDate("1970"));
  EXPECT_TRUE(ParseDate("2100"));
}

TEST(ParseDate, RefusesYearsPastFourDigits) {
  // West of UTC the far future used to overflow on its way from local time to UTC.
  for (const char* zone : {"America/New_York", "Asia/Tokyo"}) {
    DateScope scope("en_GB", zone);
    for (const char* text : {"99999-01-01", "10000-01-01", "1/1/10000", "January 99999",
                             "9223372036854775807-01-01", "31/12/999999999 23:59"}) {
      SCOPED_TRACE(std::string(zone) + " " + text);
      EXPECT_FALSE(ParseDate(text));
    }
    std::optional<ParsedDate> last = ParseDate("December 9999");
    ASSERT_TRUE(last && last->end);
    EXPECT_EQ(*last->end, base::LocalToUtc(Civil(10000, 1, 1)));
  }
}

TEST(FormatDate, ShowsTheEndsOfTheRangeWithoutWrapping) {
  DateScope scope("en_GB", "America/New_York");
  for (FileTime t : {base::kMinFileTime, base::kMaxFileTime, FileTime{0}}) {
    SCOPED_TRACE(t);
    EXPECT_FALSE(FormatDate(t, true).empty());
  }
  EXPECT_EQ(FormatDate(Local(9999, 12, 31, 23, 59), true), "31/12/9999 23:59");
  // Four-digit years, so that no century has to be guessed. That every locale's text reads
  // back is checked through rules (the round trips of value formatting).
  DateScope us("en_US", "UTC");
  EXPECT_EQ(FormatDate(Civil(2014, 10, 1, 22, 30, 5), true), "10/1/2014 10:30:05 PM");
}

TEST(ParseDate, ConvertsWallTimesAcrossAChangeOfOffset) {
  DateScope scope("en_GB", "Europe/Berlin");
  // Winter is one hour ahead of UTC, summer two.
  EXPECT_EQ(ParseDate("1/12/2014")->start, Civil(2014, 11, 30, 23));
  EXPECT_EQ(ParseDate("1/7/2014")->start, Civil(2014, 6, 30, 22));
  // March 2014 starts in winter time and ends in summer time.
  std::optional<ParsedDate> march = ParseDate("March 2014");
  ASSERT_TRUE(march && march->end);
  EXPECT_EQ(march->start, Civil(2014, 2, 28, 23));
  EXPECT_EQ(*march->end, Civil(2014, 3, 31, 22));
}

// --- relative periods ---------------------------------------------------------------------

TEST(PeriodWords, AreFoundIgnoringCase) {
  EXPECT_EQ(PeriodFromText("Yesterday"), 3);
  EXPECT_EQ(PeriodFromText(" LAST HOUR "), 1);
  EXPECT_EQ(PeriodFromText("last"), 0);
  for (int p = 1; p <= kPeriodCount; ++p) EXPECT_EQ(PeriodFromText(PeriodWord(p)), p);
}

struct PeriodCase {
  int period;
  FileTime lower;                 // local
  std::optional<FileTime> upper;  // local
};

void ExpectPeriods(FileTime now_local, const PeriodCase* cases, size_t count) {
  base::ScopedFixedClock clock(base::LocalToUtc(now_local));
  for (size_t i = 0; i < count; ++i) {
    const PeriodCase& c = cases[i];
    SCOPED_TRACE(std::string(PeriodWord(c.period)));
    ValueBounds value{kKindDate, kNoValue, kNoValue, PeriodFlags(c.period)};
    ASSERT_TRUE(ResolvePeriod(value));
    EXPECT_EQ(static_cast<FileTime>(value.min), base::LocalToUtc(c.lower));
    EXPECT_TRUE(value.flags & cf::kLowerBound);
    EXPECT_EQ((value.flags & cf::kUpperBound) != 0, c.upper.has_value());
    if (c.upper) {
      EXPECT_EQ(static_cast<FileTime>(value.max), base::LocalToUtc(*c.upper));
    } else {
      EXPECT_EQ(value.max, kNoValue);
    }
  }
}

TEST(ResolvePeriod, ComputesEveryPeriodFromTheLocalClock) {
  for (const char* zone : {"UTC", "Europe/Berlin"}) {
    SCOPED_TRACE(zone);
    DateScope scope("en_GB", zone);
    // Wednesday 15 October 2014, 14:30:20.
    const PeriodCase cases[] = {
        {1, Civil(2014, 10, 15, 13, 30, 20), {}},
        {2, Civil(2014, 10, 15), {}},
        {3, Civil(2014, 10, 14), Civil(2014, 10, 14, 23, 59, 59)},
        {4, Civil(2014, 10, 13), {}},
        {5, Civil(2014, 10, 6), Civil(2014, 10, 12, 23, 59, 59)},
        {6, Civil(2014, 10, 1), {}},
        {7, Civil(2014, 8, 31), Civil(2014, 9, 30, 23, 59, 59)},  // 31 days, not September
        {8, Civil(2014, 1, 1), {}},
        {9, Civil(2013, 1, 1), Civil(2013, 12, 31, 23, 59, 59)},
        {10, Civil(1970, 1, 1), Civil(2013, 1, 1)},
    };
    ExpectPeriods(Civil(2014, 10, 15, 14, 30, 20), cases, std::size(cases));
  }
}

TEST(ResolvePeriod, ThisWeekOnASundayStartsSixDaysBefore) {
  DateScope scope("en_GB", "Europe/Berlin");
  const PeriodCase sunday[] = {{4, Civil(2014, 10, 13), {}},
                               {5, Civil(2014, 10, 6), Civil(2014, 10, 12, 23, 59, 59)}};
  ExpectPeriods(Civil(2014, 10, 19, 23, 0), sunday, std::size(sunday));
  const PeriodCase monday[] = {{4, Civil(2014, 10, 20), {}}};
  ExpectPeriods(Civil(2014, 10, 20, 0, 10), monday, std::size(monday));
}

TEST(ResolvePeriod, YesterdayAcrossTheSpringChangeKeepsLocalMidnights) {
  DateScope scope("en_GB", "Europe/Berlin");
  // 30 March 2014 had 23 hours in Berlin.
  base::ScopedFixedClock clock(Local(2014, 3, 31, 10));
  ValueBounds value{kKindDate, kNoValue, kNoValue, PeriodFlags(3)};
  ASSERT_TRUE(ResolvePeriod(value));
  EXPECT_EQ(static_cast<FileTime>(value.min), Civil(2014, 3, 29, 23));          // 00:00 CET
  EXPECT_EQ(static_cast<FileTime>(value.max), Civil(2014, 3, 30, 21, 59, 59));  // 23:59:59 CEST
}

TEST(ResolvePeriod, CountsBackPastTheStartOfFileTimeAsNoLimit) {
  base::ScopedFixedClock clock(Civil(2014, 10, 15, 12));
  ValueBounds value{kKindDate, kNoValue, kNoValue, PreviousFlags(6, 0xFFFF)};
  ASSERT_TRUE(ResolvePeriod(value));
  EXPECT_EQ(static_cast<FileTime>(value.min), base::kMinFileTime);
}

TEST(ResolvePeriod, CountsPreviousUnitsBackFromUtcOnce) {
  const FileTime now = Civil(2014, 10, 15, 12);
  // unit, count, ticks back: a month is 30 days and a year 360
  const int64_t cases[][3] = {{1, 90, 90 * base::kTicksPerSecond},
                              {5, 2, 60 * base::kTicksPerDay},
                              {6, 1, 360 * base::kTicksPerDay}};
  for (const auto& c : cases) {
    ValueBounds value{kKindDate, kNoValue, kNoValue,
                      PreviousFlags(static_cast<int>(c[0]), static_cast<int>(c[1]))};
    {
      base::ScopedFixedClock clock(now);
      ASSERT_TRUE(ResolvePeriod(value));
    }
    EXPECT_EQ(static_cast<FileTime>(value.min), now - c[2]);
    EXPECT_EQ(value.flags & cf::kBounds, cf::kLowerBound);
    // Later calls in the same search keep the bounds.
    base::ScopedFixedClock later(now + base::kTicksPerDay);
    EXPECT_FALSE(ResolvePeriod(value));
    EXPECT_EQ(static_cast<FileTime>(value.min), now - c[2]);
  }
}

}  // namespace
}  // namespace trovix::rules
