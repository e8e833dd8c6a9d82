// Value formatting: the inverse of the value syntax. Turns a rule's value back into the one
// line of text its box shows, which the value syntax reads again: ">=50 KB", "1:02:05",
// "3 .. 5", "~12", "-33° 30' 0"", "yesterday", "10/1/2014 .. 10/2/2014". Also the summary a
// rule shows in the rule list.
//
// Thread-safety: pure functions of their arguments (dates use the locale and zone chosen in
// date_text.h and base/file_time.h).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "props/property_info.h"
#include "rules/value/value_bounds.h"

namespace trovix::rules {

class Rule;

// A size or a duration. Durations count 100 ns ticks and show as s, m:ss or h:mm:ss ("0:59",
// "1:02:05"). Sizes show in the largest unit they reach, whole units only ("1536" is "1 KB":
// the fraction is dropped on display while the rule keeps its exact value).
std::string FormatNumber(int64_t value, bool as_duration);

// A property's value as lists and columns show it: a duration as h:mm:ss (FormatNumber), a
// GPS position (degrees, minutes, seconds) as FormatDegrees does, everything else in the
// value's own display text.
std::string DisplayValue(const props::PropertyInfo& property, const props::PropValue& value);

// An angle as degrees, minutes and seconds: "-33° 30' 0"".
std::string FormatDegrees(double value);

// One keyword as a keyword line writes it: in quotation marks (inner ones doubled) when it
// holds a blank, so that splitting the line gives it back whole.
std::string FormatKeyword(std::string_view keyword);

// The box text of a Number, Date or Float value (the kind is read from the low two flag bits).
std::string FormatRuleValue(const ValueBounds& value);

// The box text of any rule: its numeric value as above; for a text rule the typed text ("="
// first for an exact match, a keyword list as its keyword line); for an enumerated rule the
// chosen option's label.
std::string FormatRuleValue(const Rule& rule);

// The summary the rule list shows after the property name: the box text for Number, Date and
// Float rules, the matcher's words for a simple text rule ("contains report [WC]"), nothing
// for an enumerated rule (Rule::Describe adds its option).
std::string DescribeRuleValue(const Rule& rule);

}  // namespace trovix::rules
