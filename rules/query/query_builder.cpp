#include "rules/query/query_builder.h"

#include <vector>

namespace trovix::rules {
namespace {

// Reads the token program as the rule set evaluates it (operators strictly left to right,
// NOT binding to the term after it, brackets) and writes the same shape as index text: each
// operand "<operators> (<fragment>)", so "A AND NOT B" reads "WHERE ( (a) AND NOT (b))".
//
// A rule without an index form cannot simply be dropped: "A OR R" without R would miss the
// items only R matches. Every part is therefore built as a bound of what it stands for: an
// upper bound (it holds for at least the items the part matches) where the part counts for
// the item, a lower bound under an odd number of NOTs, so that NOT of it is an upper bound
// again. An operand without a form is "everything" as an upper bound and "nothing" as a lower
// one; AND and OR carry those through, so the whole WHERE holds for every item the rules could
// match and the rows are re-tested.
class WhereWriter {
 public:
  explicit WhereWriter(const RuleSet& set)
      : set_(set), program_(set.program()), fragments_(set.matcher_count()), computed_(set.matcher_count(), false) {}

  BuildResult Build() {
    size_t pos = 0;
    const Part whole = Expression(pos, /*upper=*/true);
    BuildResult result;
    if (!whole.bound) result.text = "WHERE (" + whole.text + ")";
    result.all_translated = exact_ && translated_ == set_.matcher_count();
    return result;
  }

 private:
  // A part's text, or a bound it reduces to: everything when built as an upper bound,
  // nothing when built as a lower one.
  struct Part {
    bool bound = false;
    std::string text;
  };

  bool AtEnd(size_t pos) const { return pos >= program_.size() || program_[pos] == kTokenEnd; }

  const std::string& FragmentOf(size_t k) {
    if (!computed_[k]) {
      fragments_[k] = OperandFragment(set_.matcher(k));
      computed_[k] = true;
      if (!fragments_[k].empty()) ++translated_;
    }
    return fragments_[k];
  }

  Part Expression(size_t& pos, bool upper) {
    Part result = Term(pos, upper);
    while (!AtEnd(pos)) {
      const int32_t token = program_[pos];
      if (token != kTokenAnd && token != kTokenOr && token != kTokenXor) break;
      ++pos;
      const Part term = Term(pos, upper);
      if (token == kTokenXor) {
        // Neither side bounds an exclusive or: the whole expression becomes its bound.
        exact_ = false;
        result = Part{true, {}};
        continue;
      }
      // The bound absorbs: everything OR x, nothing AND x. It vanishes: everything AND x,
      // nothing OR x.
      const bool absorbs = (token == kTokenOr) == upper;
      if (result.bound || term.bound) {
        if (absorbs) {
          result = Part{true, {}};
        } else if (result.bound) {
          result = term;
        }
        continue;
      }
      result.text += (token == kTokenAnd ? " AND" : " OR") + term.text;
    }
    return result;
  }

  Part Term(size_t& pos, bool upper) {
    std::string negations;
    while (!AtEnd(pos) && program_[pos] == kTokenNot) {
      negations += " NOT";
      ++pos;
    }
    const bool flips = (negations.size() / 4) % 2 == 1;
    Part inner = Primary(pos, flips ? !upper : upper);
    if (inner.bound) return inner;  // NOT of nothing is everything, and the other way round
    inner.text = negations + inner.text;
    return inner;
  }

  Part Primary(size_t& pos, bool upper) {
    if (AtEnd(pos)) return Part{true, {}};
    const int32_t token = program_[pos];
    if (token == kTokenOpen) {
      ++pos;
      Part inner = Expression(pos, upper);
      if (pos < program_.size() && program_[pos] == kTokenClose) ++pos;
      if (!inner.bound) inner.text = " (" + inner.text + ")";
      return inner;
    }
    if (!IsOperandToken(token) || OperandIndex(token) >= set_.matcher_count()) {
      exact_ = false;
      return Part{true, {}};
    }
    ++pos;
    const std::string& fragment = FragmentOf(OperandIndex(token));
    if (fragment.empty()) return Part{true, {}};
    return Part{false, " (" + fragment + ")"};
  }

  const RuleSet& set_;
  const std::vector<int32_t>& program_;
  // Every fragment once, as a matcher may be asked for again.
  std::vector<std::string> fragments_;
  std::vector<bool> computed_;
  size_t translated_ = 0;
  bool exact_ = true;  // no operator the index cannot say
};

}  // namespace

BuildResult BuildWhere(const RuleSet& set) { return WhereWriter(set).Build(); }

}  // namespace trovix::rules
