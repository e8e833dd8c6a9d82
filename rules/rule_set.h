// RuleSet: a rule list compiled for one search. Compile reorders the rules for speed where
// that cannot change the result, makes one matcher per rule and writes a small boolean token
// program; Evaluate runs the program for the current item, strictly left to right with
// short-circuiting, asking the value provider for each value right before it is compared.
//
// Costs: each rule costs an item something to test (RuleCost: its name only, its status, or a
// read of the file or a helper's answer). When a set mixes costs, Evaluate first runs the
// program with only the cheapest rules known and the others unknown (three-valued: false AND
// unknown is false, true OR unknown is true); only when that leaves the result undecided does
// it go on to the next cost, and last runs the program as written. So a size or contents rule
// is never asked about an item that a name rule already decided, wherever the rules stand in
// the list, and the result is always the one strict left-to-right evaluation gives. A rule
// evaluated in an earlier round is not asked again; its hit state tells that it was evaluated
// even where strict evaluation would have skipped it. The costliest rules of a set are asked
// only where strict evaluation asks them too; a cheaper one may be asked where strict
// evaluation would have gone to a costlier rule first (a stat instead of a document's text).
//
// Token program: 0 AND, 1 OR, 2 XOR, 3-6 reserved comparisons, 7 NOT, 8 open bracket,
// 9 close bracket, 10 end; operand k (a rule and its matcher) is written -(k+1).
//
// Ownership: the set shares its rules with the rule list it was compiled from (the rules
// themselves are never changed by it) and owns its matchers. The value provider is not owned.
// Thread-safety: a compiled set is used by one search thread; Evaluate changes hit states.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "rules/rule.h"
#include "rules/matchers/rule_matcher.h"

namespace trovix::rules {

enum Token : int32_t {
  kTokenAnd = 0,
  kTokenOr = 1,
  kTokenXor = 2,
  kTokenEqual = 3,     // reserved
  kTokenNotEqual = 4,  // reserved
  kTokenAtLeast = 5,   // reserved
  kTokenAtMost = 6,    // reserved
  kTokenNot = 7,
  kTokenOpen = 8,
  kTokenClose = 9,
  kTokenEnd = 10,
};

// What testing a rule costs an item, cheapest first.
enum class RuleCost : uint8_t {
  kName = 0,    // its name or path: nothing to ask the file system
  kStatus = 1,  // its status (size, dates, attributes ...): one stat
  kRead = 2,    // a pass over its data, or a helper's answer (contents, documents' own
                // properties, costly stock properties, expressions that may ask anything)
};
// Whether a property's value is a function of the item's path alone.
bool IsNameProperty(uint32_t key_hash);
RuleCost CostOf(const Rule& rule, const RuleMatcher& matcher);

inline constexpr int32_t OperandToken(size_t index) { return -static_cast<int32_t>(index) - 1; }
inline constexpr bool IsOperandToken(int32_t token) { return token < 0; }
inline constexpr size_t OperandIndex(int32_t token) { return static_cast<size_t>(-(token + 1)); }

// Loads the current item's value for one matcher's property into the matcher. Called right
// before each matcher is evaluated, with the matcher, its operand token and the program
// position; operands skipped by short-circuiting are never asked for.
class ValueProvider {
 public:
  virtual ~ValueProvider() = default;
  virtual void LoadValue(RuleMatcher& matcher, int32_t operand, size_t position) = 0;
};

class RuleSet {
 public:
  RuleSet() = default;
  RuleSet(const RuleSet&) = delete;
  RuleSet& operator=(const RuleSet&) = delete;

  // Reorders (unless told not to), makes the matchers and the token program. False for an
  // empty list, which leaves the set empty.
  bool Compile(const std::vector<RulePtr>& rules, bool allow_reorder = true);

  // Resets every hit state and runs the program for the current item.
  bool Evaluate();

  // Whether the set can be answered from a bare file name, with no item: exactly one rule, a
  // simple text rule (kind 3) on System.ItemNameDisplay. Any other rule needs something a
  // table of names does not hold (a size, a date, the contents, a keyword rule's word list
  // on other properties), so such sets are left to the index and the walk.
  bool AllowsNameOnlyTest() const;
  // Evaluates the set against a bare name: every matcher that takes text gets `name` as its
  // value; the value provider is not asked. Meaningful only when AllowsNameOnlyTest().
  bool EvaluateName(std::string_view name);

  // A set that evaluates exactly as this one (same rules, order and program) with matchers
  // of its own, for another thread. No value provider is set.
  std::unique_ptr<RuleSet> Copy() const;

  // The program as text: operators as " AND ", " OR ", " XOR ", "NOT ", "(", ")", operands by
  // their matchers' verbose descriptions, each led by its property name.
  std::string Print() const;

  void set_value_provider(ValueProvider* provider) { provider_ = provider; }
  ValueProvider* value_provider() const { return provider_; }

  // The rules in program order (after any reordering).
  const std::vector<RulePtr>& rules() const { return rules_; }
  // The indent each rule was compiled with (a moved group is lifted to the top level).
  const std::vector<int32_t>& indents() const { return indents_; }
  const std::vector<int32_t>& program() const { return program_; }
  size_t matcher_count() const { return matchers_.size(); }
  RuleMatcher& matcher(size_t index) const { return *matchers_[index]; }
  // The position of the contents rule, -1 when there is none.
  int contents_rule() const { return contents_rule_; }
  bool reordered() const { return reordered_; }
  RuleCost cost(size_t index) const { return costs_[index]; }
  // The costliest rule of the set.
  RuleCost max_cost() const { return max_cost_; }

 private:
  enum class Tri : uint8_t { kFalse, kTrue, kUnknown };
  void SetCosts();
  Tri EvaluateExpression(size_t& pos, RuleCost limit);
  Tri EvaluateTerm(size_t& pos, RuleCost limit);
  void SkipTerm(size_t& pos) const;

  std::vector<RulePtr> rules_;
  std::vector<int32_t> indents_;
  std::vector<int32_t> program_;
  std::vector<std::unique_ptr<RuleMatcher>> matchers_;
  int contents_rule_ = -1;
  bool reordered_ = false;
  std::vector<RuleCost> costs_;  // one per matcher
  RuleCost min_cost_ = RuleCost::kName;
  RuleCost max_cost_ = RuleCost::kName;
  ValueProvider* provider_ = nullptr;
};

// Writes the token program of rules at the given indents (one per rule). At most 5 tokens per
// rule plus the end token.
std::vector<int32_t> BuildProgram(const std::vector<RulePtr>& rules, const std::vector<int32_t>& indents);

// Reorders rules for speed where the result cannot change: properties with the cheap flag
// first, one with the costly flag last. `indents` runs parallel to `rules` and is changed with
// them. Returns true when the order changed.
bool ReorderForSpeed(std::vector<RulePtr>& rules, std::vector<int32_t>& indents);

}  // namespace trovix::rules
