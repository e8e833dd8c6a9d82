#include "rules/value/value_hints.h"

#include "rules/compare_flags.h"

namespace trovix::rules {

std::string_view NumberValueHint() {
  return "Enter a number or a range with optional units.\nExamples:\n>=50 KB\n<=100\n10 (equality)\n3 .. 5 (range "
         "from 3 to 5)";
}

std::string_view DateValueHint() {
  return "Enter a date or a period from the drop-down menu.\nExamples:\n>=31/10/2010 (newer than)\nyesterday\n"
         "10/1/2014 .. 10/2/2014 (range of dates)";
}

std::string_view TextValueHint() {
  return "Enter one or more keywords, or a phrase in double quotes.\nWildcards (* ?) and regular expressions can "
         "be used;\n=text matches the whole value exactly";
}

std::string_view ValueHintFor(int32_t kind) {
  if (kind == kKindDate) return DateValueHint();
  if (IsTextKind(kind) || kind == kKindEnumText) return TextValueHint();
  return NumberValueHint();
}

}  // namespace trovix::rules
