#include "rules/expression_matcher.h"

namespace trovix::rules {

// No expression compiler yet: a Complex rule gets the matcher that is never true.
std::unique_ptr<RuleMatcher> MakeExpressionMatcher(std::shared_ptr<const Rule> rule, bool with_name) {
  (void)rule;
  (void)with_name;
  return nullptr;
}

}  // namespace trovix::rules
