// Relative date rules: the ten period words of the date box's drop-down ("last hour" ...
// "long ago") and the "In the previous N units" intervals, and how a search turns either into
// concrete bounds from the clock when it starts (base::NowUtc, fixed by tests).
//
// A period is stored in a Date rule's flags as 0x800 with its number (1-based) in the high 16
// bits; an "In the previous" interval as its unit (1-6) in bits 12-15 with the count N in the
// high 16 bits. Neither keeps bounds until ResolvePeriod computes them.
//
// Thread-safety: pure functions of their arguments and the clock.
#pragma once

#include <cstdint>
#include <string_view>

#include "rules/value/value_bounds.h"

namespace trovix::rules {

inline constexpr int kPeriodCount = 10;
inline constexpr int kPreviousUnitCount = 6;

// The word of period 1 to 10 ("last hour", "today", "yesterday", "this week", "last week",
// "this month", "last month", "this year", "last year", "long ago"); empty otherwise.
std::string_view PeriodWord(int period);
// The number of the period word `text` names, ignoring case and surrounding blanks; 0 when it
// names none.
int PeriodFromText(std::string_view text);

// The word of "In the previous" unit 1 to 6 ("second(s)" ... "year(s)"); empty otherwise.
std::string_view PreviousUnitWord(int unit);
// The unit's length in 100 ns ticks: a month counts 30 days and a year 360; 0 for no unit.
int64_t PreviousUnitTicks(int unit);

// The flags of a Date rule for period `period`: 0x801 with the number in the high 16 bits.
uint32_t PeriodFlags(int period);
// The flags of a Date rule for "In the previous `count` units".
uint32_t PreviousFlags(int unit, int count);

// Gives a relative date value (any of 0xF800 in its flags) its bounds, once: when the lower
// bound flag 0x4 is already set nothing changes, so bounds computed when a search starts stay
// for the rest of it. A period is computed on the local calendar (Monday starts a week; "last
// month" is the 31 days ending on the last day of the previous month) and converted to UTC; it
// gets an upper bound (0x8) where the period has an end. "In the previous" counts back from
// the UTC clock and has no upper bound. Returns true when bounds were computed; false when the
// value is not relative, is resolved already, or names no known period or unit.
bool ResolvePeriod(ValueBounds& value);

}  // namespace trovix::rules
