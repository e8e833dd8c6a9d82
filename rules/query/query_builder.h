// The index query builder: turns a compiled rule set into the WHERE part of a SystemIndex
// query (index/ parses and answers it), operand by operand.
//
// Not every rule has an index form (regular expressions, properties the index does not keep,
// expressions). Such an operand never fails the whole query, and never narrows it: it reads
// as "every item" where it counts for the item and as "no item" under NOT, so the index
// returns at least every item the rules match (the text is empty when that is every item).
// The caller learns it from all_translated and re-tests every row the index returns with the
// rule set itself.
//
// Thread-safety: pure functions of the rule set, the clock (relative dates) and the file-kind
// table in use.
#pragma once

#include <string>

#include "rules/rule_set.h"

namespace trovix::rules {

struct BuildResult {
  std::string text;             // "WHERE (...)", or empty when the index cannot narrow the items
  bool all_translated = false;  // every matcher gave a fragment
};

// Walks the set's token program once and joins the operands' fragments with the program's
// AND, OR, NOT and brackets, read left to right as the rule set reads them.
BuildResult BuildWhere(const RuleSet& set);

// The condition one matcher stands for, in the index dialect; empty when it has none.
std::string OperandFragment(const RuleMatcher& matcher);

}  // namespace trovix::rules
