// What the console says about a value it read. The value syntax is the program's own and is
// kept as it is ("10 K" is 10, "1 TB" is 0, ">" includes the value); where the reading differs
// from what the text suggests, a warning names the rule, the reading and the fix. Numbers that
// no 64-bit value holds are errors, never wrapped or clamped. A value that does not parse gets
// the program's hint text.
//
// Stateless; thread-safe.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "props/property_info.h"
#include "rules/rule.h"

namespace trovix::cli {

// Checks `value` as typed for `rule` (already parsed from it). Returns false with *error for a
// value that must not be used; otherwise appends the warnings (without the rule's name) to
// *warnings.
bool CheckValueReading(const rules::Rule& rule, std::string_view value, std::vector<std::string>* warnings,
                       std::string* error);

// The hint for a value of this kind that does not parse: the accepted forms, with examples.
std::string ValueHint(int32_t kind);

}  // namespace trovix::cli
