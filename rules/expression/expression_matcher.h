// The matcher of a "Complex" rule (the free-form expression pseudo-property): the rule's text
// compiled as an expression, whose verdict for the current item is the rule's result. It asks
// the value provider for the item itself (MatcherValue::kItem) and fetches what it names.
//
// Ownership and threads: as every RuleMatcher.
#pragma once

#include <memory>

#include "rules/matchers/rule_matcher.h"

namespace trovix::rules {

class Expression;

// The compiled matcher for `rule`, or null when its text does not compile (the rule set then
// uses a matcher that is never true).
std::unique_ptr<RuleMatcher> MakeExpressionMatcher(std::shared_ptr<const Rule> rule, bool with_name);

// The compiled expression of an expression matcher (its names() are the properties the rule
// uses, in order), or null for any other matcher.
const Expression* ExpressionOf(const RuleMatcher& matcher);

}  // namespace trovix::rules
