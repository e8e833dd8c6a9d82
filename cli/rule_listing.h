// The rule list as the engine will search it, for --show-rules and explain: one line per rule
// with its context, property (label and canonical name), condition and bounds in display form,
// the flags in words, and the brackets that the indent levels make.
#pragma once

#include <string>
#include <vector>

#include "rules/rule.h"

namespace trovix::cli {

std::string ListRules(const std::vector<rules::RulePtr>& rules);

}  // namespace trovix::cli
