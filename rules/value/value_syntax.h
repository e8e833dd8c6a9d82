// Value syntax: the one line of text a user types into a rule box, turned into a rule's value.
// A Number, Float or Date box takes a value, a range "a .. b", a comparison (">=", "<=", ">",
// "<", "<>", "~" and "=" prefixes), sizes with units ("50 KB"), durations ("1:30") and, for
// dates, the period words of the drop-down ("yesterday"). A text box takes one pattern or a
// list of keywords, with an "=" prefix for an exact match.
//
// Thread-safety: the functions keep no state of their own; dates go through date_text.h.
// ParseRuleText edits only the rule it is given, which its caller owns.
#pragma once

#include <cstdint>
#include <string_view>

#include "rules/value/value_bounds.h"

namespace trovix::rules {

class Rule;

struct ParsedNumber {
  int64_t value = 0;
  // 0 no unit, 1-4 the size units k, m, g, t, -1 a duration h:m:s (in 100 ns ticks).
  int unit_index = 0;
};

// An integer with an optional size unit, or a duration. Reads the leading integer; with a
// colon anywhere the text is minutes:seconds (hours:minutes:seconds, and so on), each colon
// multiplying by 60, in 100 ns ticks. A unit counts only when the text holds a "b"; then the
// first of k, m, g, t found anywhere in the text chooses it (case-blind): "10 K" is 10 and
// "10 KB" is 10,240.
ParsedNumber ParseNumber(std::string_view text);

// A decimal floating-point number from the start of `text` (0 when none). A comma directly
// between digits counts as the decimal separator when no point came first, as many locales
// write it ("3,5"). Degrees, minutes and seconds as coordinates are shown (-33° 30' 0") read
// back as the same angle.
double ParseFloat(std::string_view text);

// Sets value.min, value.max and value.flags from typed text for value.kind (Number, Date or
// Float); flags start from the kind. `typed_unit` receives whether a number carried a size
// unit. The bounds are not normalised: Rule::Normalise follows (ParseRuleText does both).
// False for text the kind does not accept; `value` is then unspecified.
bool ParseValueText(std::string_view text, ValueBounds& value, bool* typed_unit = nullptr);

struct RuleTextOptions {
  int32_t option_index = 0;        // enumerated rules: the option chosen in the drop-down
  bool to_any_part = false;        // several keywords go to "Contains any of" instead of "all of"
  bool disable_wildcards = false;  // the general option "Disable wildcards"
};

// Sets the rule's value from the text typed into its box: the context becomes AND, the summary
// is emptied, the bounds and flags (or the text, mode and flags) are replaced and normalised.
// Returns false for text the rule's kind does not accept, and then leaves the rule exactly as
// it was.
bool ParseRuleText(Rule& rule, std::string_view text, const RuleTextOptions& options = {});

}  // namespace trovix::rules
