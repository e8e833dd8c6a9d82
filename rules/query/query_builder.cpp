#include "rules/query/query_builder.h"

#include <vector>

namespace trovix::rules {

// The walk mirrors the text the index has always been given: each operand as
// "<prefix> (<fragment>)" where the prefix holds the operators that led to it, so a program
// "A AND NOT B" reads "WHERE ( (a) AND NOT (b))". Brackets open only for groups that keep at
// least one operand, so no "()" can appear.
BuildResult BuildWhere(const RuleSet& set) {
  const std::vector<int32_t>& program = set.program();
  // Every fragment once: the look-ahead of a group asks for the same operands again.
  std::vector<std::string> fragments(set.matcher_count());
  std::vector<bool> computed(set.matcher_count(), false);
  auto fragment_of = [&](int32_t token) -> const std::string& {
    const size_t k = OperandIndex(token);
    if (!computed[k]) {
      fragments[k] = OperandFragment(set.matcher(k));
      computed[k] = true;
    }
    return fragments[k];
  };
  auto valid_operand = [&](int32_t token) { return IsOperandToken(token) && OperandIndex(token) < set.matcher_count(); };

  BuildResult result;
  std::string body;
  std::string prefix;
  bool at_group_start = true;
  size_t translated = 0;

  for (size_t pos = 0; pos < program.size(); ++pos) {
    const int32_t token = program[pos];
    if (token == kTokenEnd) break;
    if (valid_operand(token)) {
      const std::string& fragment = fragment_of(token);
      if (fragment.empty()) {
        prefix.clear();
        continue;
      }
      ++translated;
      std::string formed = prefix + " (" + fragment + ")";
      prefix.clear();
      if (!body.empty() && formed.front() != ' ') body += ' ';
      body += formed;
      at_group_start = false;
      continue;
    }
    switch (token) {
      case kTokenAnd:
      case kTokenOr:
        if (!at_group_start) prefix += token == kTokenAnd ? " AND" : " OR";
        break;
      case kTokenNot:
        prefix += " NOT";
        break;
      case kTokenOpen: {
        // Find the matching close bracket and whether anything inside translates.
        int depth = 1;
        bool any = false;
        size_t end = pos + 1;
        for (; end < program.size() && program[end] != kTokenEnd; ++end) {
          const int32_t t = program[end];
          if (t == kTokenOpen) ++depth;
          if (t == kTokenClose && --depth == 0) break;
          if (!any && valid_operand(t) && !fragment_of(t).empty()) any = true;
        }
        if (any) {
          body += prefix;
          prefix.clear();
          body += " (";
          at_group_start = true;
        } else {
          prefix.clear();
          // Resume at the close bracket (or the end token when the program is unbalanced).
          pos = end < program.size() && program[end] == kTokenClose ? end : end - 1;
        }
        break;
      }
      case kTokenClose:
        body += ")";
        break;
      default:
        break;  // XOR and the reserved comparisons never reach the index
    }
  }

  if (!body.empty()) result.text = "WHERE (" + body + ")";
  result.all_translated = translated == set.matcher_count();
  return result;
}

}  // namespace trovix::rules
