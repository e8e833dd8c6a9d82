// The hint texts that tell a user which forms a rule value may take: one for Number and Float
// values, one for dates (which also names the period words of the drop-down), one for text.
// The console prints them after a value it cannot read; the rule boxes show them as tool tips.
//
// Constant texts; thread-safe.
#pragma once

#include <cstdint>
#include <string_view>

namespace trovix::rules {

// "Enter a number or a range with optional units.\nExamples:\n>=50 KB\n..."
std::string_view NumberValueHint();
// "Enter a date or a period from the drop-down menu.\nExamples:\n>=31/10/2010 (newer than)\n..."
std::string_view DateValueHint();
// One or more keywords, a quoted phrase, wildcards and regular expressions.
std::string_view TextValueHint();

// The hint for a rule of `kind`: the date hint for dates, the text hint for text kinds, the
// number hint otherwise.
std::string_view ValueHintFor(int32_t kind);

}  // namespace trovix::rules
