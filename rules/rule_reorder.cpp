// Reordering a rule list for speed before it is compiled: properties decided from the name
// and attributes alone are tested first, one whose value needs a pass over the item's data
// (the contents) last, so that short-circuiting spares the expensive fetch whenever a cheap
// rule already decides. Only orders whose result cannot differ are produced.
#include <algorithm>

#include "rules/rule_set.h"

namespace trovix::rules {
namespace {

bool HasFlag(const RulePtr& rule, uint16_t flag) { return (rule->PropertyFlags() & flag) != 0; }

// Moves [first, last) of both arrays to their ends.
void MoveToEnd(std::vector<RulePtr>& rules, std::vector<int32_t>& indents, size_t first, size_t last) {
  std::rotate(rules.begin() + static_cast<ptrdiff_t>(first), rules.begin() + static_cast<ptrdiff_t>(last),
              rules.end());
  std::rotate(indents.begin() + static_cast<ptrdiff_t>(first),
              indents.begin() + static_cast<ptrdiff_t>(last), indents.end());
}

}  // namespace

bool ReorderForSpeed(std::vector<RulePtr>& rules, std::vector<int32_t>& indents) {
  const size_t n = rules.size();
  if (n <= 1) return false;

  size_t last_costly = n;
  for (size_t i = 0; i < n; ++i) {
    if (HasFlag(rules[i], pf::kCostly)) last_costly = i;
  }
  const bool costly_needs_move = last_costly < n && last_costly != n - 1;

  bool flat_uniform = true;
  for (size_t i = 0; i < n; ++i) {
    if (rules[i]->Context() != rules[0]->Context() || indents[i] != 0) flat_uniform = false;
  }

  if (flat_uniform) {
    // All rules joined the same way at one level: any order gives the same result.
    const size_t cheap_count = static_cast<size_t>(
        std::count_if(rules.begin(), rules.end(), [](const RulePtr& r) { return HasFlag(r, pf::kCheap); }));
    const bool cheap_prefix = std::all_of(rules.begin(), rules.begin() + static_cast<ptrdiff_t>(cheap_count),
                                          [](const RulePtr& r) { return HasFlag(r, pf::kCheap); });
    if (cheap_prefix && !costly_needs_move) return false;
    const std::vector<RulePtr> before = rules;
    std::stable_partition(rules.begin(), rules.end(), [](const RulePtr& r) { return HasFlag(r, pf::kCheap); });
    for (size_t i = cheap_count; i < n; ++i) {
      if (HasFlag(rules[i], pf::kCostly)) {
        MoveToEnd(rules, indents, i, i + 1);
        break;
      }
    }
    return rules != before;
  }

  // Brackets or mixed contexts: with AND and AND NOT only, the program is a conjunction of
  // single rules (NOT binds to one rule, never to a group), so groups may trade places. Any OR
  // ties rules to their neighbours, and then the order is left alone.
  if (!costly_needs_move) return false;
  for (const RulePtr& rule : rules) {
    if (IsOrContext(rule->Context())) return false;
  }
  // The costly rule moves together with the group of more deeply indented rules it heads, and
  // the group is lifted so that its head stands at the top level at the end of the list. The
  // rules that stay keep their indents: the rule after the group is never deeper than the
  // group's head, so the brackets that remain still pair up.
  const int32_t head_indent = indents[last_costly];
  size_t end = last_costly + 1;
  while (end < n && indents[end] > head_indent) ++end;
  if (end == n) return false;
  for (size_t i = last_costly; i < end; ++i) indents[i] -= head_indent;
  MoveToEnd(rules, indents, last_costly, end);
  return true;
}

}  // namespace trovix::rules
