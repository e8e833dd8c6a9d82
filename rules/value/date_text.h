// Dates as the user types them into a date rule's box and as the box shows them again, in the
// conventions of one locale (ICU). Typed dates are local wall times; they are converted to and
// from UTC file times with the process-wide zone of base/file_time.h.
//
// Accepted forms: the locale's short, medium, long and full dates, each alone or followed by a
// time (the locale's short or medium time, or 24-hour H:mm[:ss]); ISO year-month-day; a month
// name or number with its year ("January 2014", "01/2014"); and a year alone from 1970 to 2100.
// Numeric fields may be typed with or without leading zeros; impossible dates (30 February) and
// dates before 1970 or after 9999 are refused.
//
// Thread-safety: all functions may be called from any thread; the prepared formats are shared
// behind one lock. SetDateLocale is meant for start-up and tests, while no search runs.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/file_time.h"

namespace trovix::rules {

// Chooses the ICU locale of date texts ("en_GB", "de_DE"); an empty id returns to the user's
// locale (ICU's default, from the environment). Returns false, changing nothing, for an id
// that is not a well-formed locale id.
bool SetDateLocale(std::string_view locale_id);
std::string DateLocaleName();

struct ParsedDate {
  base::FileTime start = 0;           // UTC
  std::optional<base::FileTime> end;  // UTC; set for a year or a whole month
};

// Converts typed text to a date. With `want_end`, a text that names a month without a day
// ("January 2014") reports the first day of the next month as its end; a year alone always
// reports 1 January of the next year. Nullopt when the text is no acceptable date.
std::optional<ParsedDate> ParseDate(std::string_view text, bool want_end = true);

// The local date of `utc` in the locale's short form with a four-digit year, followed by the
// local time of day (seconds only when they are not zero) when `with_time` is set. ParseDate
// reads the text back to the same second.
std::string FormatDate(base::FileTime utc, bool with_time);

}  // namespace trovix::rules
