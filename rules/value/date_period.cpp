#include "rules/value/date_period.h"

#include "base/clock.h"
#include "base/file_time.h"

#include <optional>

namespace trovix::rules {
namespace {

using base::FileTime;

// The drop-down rows in their order; the row number is what a rule stores.
constexpr std::string_view kPeriodWords[kPeriodCount] = {
    "last hour",  "today",      "yesterday", "this week", "last week",
    "this month", "last month", "this year", "last year", "long ago"};

constexpr std::string_view kPreviousUnitWords[kPreviousUnitCount] = {
    "second(s)", "minute(s)", "hour(s)", "day(s)", "month(s)", "year(s)"};

// Each unit is the previous one times its multiplier.
constexpr int64_t kPreviousUnitSteps[kPreviousUnitCount] = {10'000'000, 60, 60, 24, 30, 12};

constexpr int kPreviousUnitShift = 12;

char AsciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (AsciiLower(a[i]) != AsciiLower(b[i])) return false;
  return true;
}

FileTime AtTimeOfDay(FileTime local, int hour, int minute, int second) {
  base::CivilTime c = base::CivilFromFileTime(local);
  c.hour = hour;
  c.minute = minute;
  c.second = second;
  c.millisecond = 0;
  c.sub_ms_ticks = 0;
  return base::FileTimeFromCivil(c);
}

FileTime StartOfDay(FileTime local) { return AtTimeOfDay(local, 0, 0, 0); }
FileTime EndOfDay(FileTime local) { return AtTimeOfDay(local, 23, 59, 59); }

FileTime FirstOfJanuary(int year) {
  base::CivilTime c;
  c.year = year;
  return base::FileTimeFromCivil(c);
}

// The local bounds of a period at local time `now`; `upper` stays unset for periods without
// an end.
bool PeriodBounds(int period, FileTime now, FileTime* lower, std::optional<FileTime>* upper) {
  const base::CivilTime today = base::CivilFromFileTime(now);
  const int weekday = today.day_of_week == 0 ? 7 : today.day_of_week;  // Monday 1 ... Sunday 7
  auto days_before = [now](int64_t days) { return now - days * base::kTicksPerDay; };
  switch (period) {
    case 1:  // last hour
      *lower = now - base::kTicksPerHour;
      return true;
    case 2:  // today
      *lower = StartOfDay(now);
      return true;
    case 3:  // yesterday
      *lower = StartOfDay(days_before(1));
      *upper = EndOfDay(days_before(1));
      return true;
    case 4:  // this week
      *lower = StartOfDay(days_before(weekday - 1));
      return true;
    case 5:  // last week
      *lower = StartOfDay(days_before(weekday + 6));
      *upper = EndOfDay(days_before(weekday));
      return true;
    case 6: {  // this month
      base::CivilTime first = today;
      first.day = 1;
      *lower = StartOfDay(base::FileTimeFromCivil(first));
      return true;
    }
    case 7:  // last month: deliberately a fixed 31 days ending on the last day of the previous
             // month, not that calendar month
      *lower = StartOfDay(days_before(today.day + 30));
      *upper = EndOfDay(days_before(today.day));
      return true;
    case 8:  // this year
      *lower = FirstOfJanuary(today.year);
      return true;
    case 9:  // last year
      *lower = FirstOfJanuary(today.year - 1);
      *upper = EndOfDay(FirstOfJanuary(today.year) - base::kTicksPerDay);
      return true;
    case 10:  // long ago
      *lower = FirstOfJanuary(1970);
      *upper = FirstOfJanuary(today.year - 1);
      return true;
    default:
      return false;
  }
}

}  // namespace

std::string_view PeriodWord(int period) {
  return period >= 1 && period <= kPeriodCount ? kPeriodWords[period - 1] : std::string_view();
}

int PeriodFromText(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  for (int i = 0; i < kPeriodCount; ++i)
    if (EqualsIgnoringCase(text, kPeriodWords[i])) return i + 1;
  return 0;
}

std::string_view PreviousUnitWord(int unit) {
  return unit >= 1 && unit <= kPreviousUnitCount ? kPreviousUnitWords[unit - 1]
                                                 : std::string_view();
}

int64_t PreviousUnitTicks(int unit) {
  if (unit < 1 || unit > kPreviousUnitCount) return 0;
  int64_t ticks = 1;
  for (int i = 0; i < unit; ++i) ticks *= kPreviousUnitSteps[i];
  return ticks;
}

uint32_t PeriodFlags(int period) {
  return cf::kFixedPeriod | cf::kDateKind | (static_cast<uint32_t>(period) << cf::kHighShift);
}

uint32_t PreviousFlags(int unit, int count) {
  return cf::kDateKind | (static_cast<uint32_t>(unit) << kPreviousUnitShift) |
         (static_cast<uint32_t>(count) << cf::kHighShift);
}

bool ResolvePeriod(ValueBounds& value) {
  using namespace cf;
  if ((value.flags & kRelativeMask) == 0 || (value.flags & kLowerBound) != 0) return false;
  const int high = static_cast<int>(value.flags >> kHighShift);
  if (value.flags & kFixedPeriod) {
    FileTime lower = 0;
    std::optional<FileTime> upper;
    if (!PeriodBounds(high, base::UtcToLocal(base::NowUtc()), &lower, &upper)) return false;
    value.min = static_cast<uint64_t>(base::LocalToUtc(lower));
    value.flags |= kLowerBound;
    if (upper) {
      value.max = static_cast<uint64_t>(base::LocalToUtc(*upper));
      value.flags |= kUpperBound;
    }
    return true;
  }
  const int unit = static_cast<int>((value.flags & kPreviousUnitMask) >> kPreviousUnitShift);
  const int64_t length = PreviousUnitTicks(unit);
  if (length == 0) return false;
  // 65,535 years reach back past the start of file time; such a rule has no lower limit.
  value.min = static_cast<uint64_t>(
      base::SaturatedFileTime(__int128{base::NowUtc()} - __int128{high} * length));
  value.flags |= kLowerBound;
  return true;
}

}  // namespace trovix::rules
