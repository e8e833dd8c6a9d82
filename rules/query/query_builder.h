// The index query builder: turns a compiled rule set into the WHERE part of a SystemIndex
// query (index/ parses and answers it), operand by operand.
//
// Not every rule has an index form (regular expressions, properties the index does not keep,
// expressions). Such an operand is dropped from the text rather than failing the whole query:
// after AND that makes the query wider, after OR narrower. The caller learns it from
// all_translated and then re-tests every row the index returns with the rule set itself, or
// walks instead when the query may have missed items.
//
// Thread-safety: pure functions of the rule set, the clock (relative dates) and the file-kind
// table in use.
#pragma once

#include <string>

#include "rules/rule_set.h"

namespace trovix::rules {

struct BuildResult {
  std::string text;             // "WHERE (...)", or empty when no operand translated
  bool all_translated = false;  // every matcher gave a fragment
};

// Walks the set's token program once and joins the operands' fragments with the program's
// AND, OR, NOT and brackets. A group none of whose operands translates is left out whole.
BuildResult BuildWhere(const RuleSet& set);

// The condition one matcher stands for, in the index dialect; empty when it has none.
std::string OperandFragment(const RuleMatcher& matcher);

}  // namespace trovix::rules
