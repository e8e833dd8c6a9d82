#include "rules/rule_set.h"

#include <algorithm>

#include "props/property_info.h"
#include "props/property_key.h"

namespace trovix::rules {

std::vector<int32_t> BuildProgram(const std::vector<RulePtr>& rules, const std::vector<int32_t>& indents) {
  std::vector<int32_t> program;
  program.reserve(5 * rules.size() + 1);
  int32_t depth = 0;
  int32_t open = 0;
  for (size_t i = 0; i < rules.size(); ++i) {
    const Rule& rule = *rules[i];
    const int32_t indent = indents[i];
    if (i > 0 && indent < depth) {
      // Never more closing brackets than open ones, even for a list whose indents jump.
      const int32_t closes = std::min(depth - indent, open);
      program.insert(program.end(), static_cast<size_t>(closes), kTokenClose);
      open -= closes;
      depth = indent;
    }
    // The first rule's AND/OR part means nothing: there is nothing before it to join.
    if (i > 0) program.push_back(IsOrContext(rule.Context()) ? kTokenOr : kTokenAnd);
    // A rule opens the group of the more deeply indented rules after it and belongs to it.
    if (i + 1 < rules.size() && indents[i + 1] > indent) {
      program.push_back(kTokenOpen);
      ++open;
    }
    if (IsNotContext(rule.Context())) program.push_back(kTokenNot);
    program.push_back(OperandToken(i));
    depth = indent;
  }
  program.insert(program.end(), static_cast<size_t>(open), kTokenClose);
  program.push_back(kTokenEnd);
  return program;
}

bool IsNameProperty(uint32_t key_hash) {
  switch (key_hash) {
    case props::hash::kItemNameDisplay:
    case props::hash::kItemPathDisplay:
    case props::hash::kItemFolderPathDisplay:
    case props::hash::kFileExtension:
      return true;
    default:
      return false;
  }
}

RuleCost CostOf(const Rule& rule, const RuleMatcher& matcher) {
  const MatcherValue kind = matcher.ValueKind();
  if (kind == MatcherValue::kNone) return RuleCost::kName;  // never true, asks nothing
  if (kind == MatcherValue::kItem || rule.IsContents() ||
      (rule.PropertyFlags() & props::kPropCostly))
    return RuleCost::kRead;
  return IsNameProperty(rule.KeyHash()) ? RuleCost::kName : RuleCost::kStatus;
}

namespace {

std::unique_ptr<RuleMatcher> MakeMatcher(const RulePtr& rule) {
  std::unique_ptr<RuleMatcher> matcher = rule->CreateMatcher(true);
  if (!matcher) matcher = std::make_unique<NullMatcher>(rule, true);
  matcher->Prepare();
  return matcher;
}

}  // namespace

bool RuleSet::Compile(const std::vector<RulePtr>& rules, bool allow_reorder) {
  rules_.clear();
  indents_.clear();
  program_.clear();
  matchers_.clear();
  costs_.clear();
  min_cost_ = max_cost_ = RuleCost::kName;
  contents_rule_ = -1;
  reordered_ = false;
  if (rules.empty()) return false;

  rules_ = rules;
  for (const RulePtr& rule : rules_) indents_.push_back(rule->Indent());
  if (allow_reorder) reordered_ = ReorderForSpeed(rules_, indents_);

  for (size_t i = 0; i < rules_.size(); ++i) {
    const RulePtr& rule = rules_[i];
    matchers_.push_back(MakeMatcher(rule));
    if (contents_rule_ < 0 && rule->IsContents() && IsTextKind(rule->Kind())) {
      contents_rule_ = static_cast<int>(i);
    }
  }
  program_ = BuildProgram(rules_, indents_);
  SetCosts();
  return true;
}

void RuleSet::SetCosts() {
  costs_.clear();
  for (size_t i = 0; i < matchers_.size(); ++i) costs_.push_back(CostOf(*rules_[i], *matchers_[i]));
  min_cost_ = costs_.empty() ? RuleCost::kName : *std::min_element(costs_.begin(), costs_.end());
  max_cost_ = costs_.empty() ? RuleCost::kName : *std::max_element(costs_.begin(), costs_.end());
}

std::unique_ptr<RuleSet> RuleSet::Copy() const {
  auto copy = std::make_unique<RuleSet>();
  copy->rules_ = rules_;
  copy->indents_ = indents_;
  copy->program_ = program_;
  copy->contents_rule_ = contents_rule_;
  copy->reordered_ = reordered_;
  for (const RulePtr& rule : rules_) copy->matchers_.push_back(MakeMatcher(rule));
  copy->SetCosts();
  return copy;
}

bool RuleSet::AllowsNameOnlyTest() const {
  return rules_.size() == 1 && matchers_.size() == 1 && rules_[0]->KeyHash() == props::hash::kItemNameDisplay &&
         rules_[0]->Kind() == kKindText && matchers_[0]->ValueKind() == MatcherValue::kText;
}

bool RuleSet::EvaluateName(std::string_view name) {
  for (auto& matcher : matchers_)
    if (matcher->ValueKind() == MatcherValue::kText) matcher->SetText(name);
  ValueProvider* provider = provider_;
  provider_ = nullptr;
  const bool result = Evaluate();
  provider_ = provider;
  return result;
}

bool RuleSet::Evaluate() {
  for (auto& matcher : matchers_) matcher->set_hit_state(kHitNotEvaluated);
  if (program_.empty()) return false;
  // The cheaper rounds first, each only where a rule of its cost exists; the last round is
  // the program as written, with what the earlier rounds learned.
  for (uint8_t stage = static_cast<uint8_t>(min_cost_); stage < static_cast<uint8_t>(max_cost_);
       ++stage) {
    const RuleCost limit = static_cast<RuleCost>(stage);
    if (std::find(costs_.begin(), costs_.end(), limit) == costs_.end()) continue;
    size_t pos = 0;
    const Tri result = EvaluateExpression(pos, limit);
    if (result != Tri::kUnknown) return result == Tri::kTrue;
  }
  size_t pos = 0;
  return EvaluateExpression(pos, max_cost_) == Tri::kTrue;
}

// An expression is a term followed by (operator, term) pairs, taken strictly left to right:
// A OR B AND C is (A OR B) AND C. Any other token ends it and is left for the caller. Rules
// costlier than `limit` are unknown; a term is skipped only where the result so far decides
// the operator (false AND, true OR), exactly as without unknowns.
RuleSet::Tri RuleSet::EvaluateExpression(size_t& pos, RuleCost limit) {
  Tri result = EvaluateTerm(pos, limit);
  while (pos < program_.size()) {
    const int32_t token = program_[pos];
    if (token == kTokenAnd) {
      ++pos;
      if (result == Tri::kFalse) {
        SkipTerm(pos);
        continue;
      }
      const Tri term = EvaluateTerm(pos, limit);
      // true AND t is t; unknown AND false is false, else unknown.
      result = result == Tri::kTrue ? term : term == Tri::kFalse ? Tri::kFalse : Tri::kUnknown;
    } else if (token == kTokenOr) {
      ++pos;
      if (result == Tri::kTrue) {
        SkipTerm(pos);
        continue;
      }
      const Tri term = EvaluateTerm(pos, limit);
      result = result == Tri::kFalse ? term : term == Tri::kTrue ? Tri::kTrue : Tri::kUnknown;
    } else if (token == kTokenXor) {
      ++pos;
      const Tri term = EvaluateTerm(pos, limit);
      result = (result == Tri::kUnknown || term == Tri::kUnknown)
                   ? Tri::kUnknown
                   : ((result == Tri::kTrue) != (term == Tri::kTrue) ? Tri::kTrue : Tri::kFalse);
    } else {
      break;
    }
  }
  return result;
}

RuleSet::Tri RuleSet::EvaluateTerm(size_t& pos, RuleCost limit) {
  bool negated = false;
  while (pos < program_.size() && program_[pos] == kTokenNot) {
    negated = !negated;
    ++pos;
  }
  if (pos >= program_.size()) return Tri::kFalse;
  const int32_t token = program_[pos];
  auto with_negation = [negated](Tri value) {
    if (value == Tri::kUnknown || !negated) return value;
    return value == Tri::kTrue ? Tri::kFalse : Tri::kTrue;
  };
  if (token == kTokenOpen) {
    ++pos;
    const Tri value = EvaluateExpression(pos, limit);
    if (pos < program_.size() && program_[pos] == kTokenClose) ++pos;
    return with_negation(value);
  }
  if (!IsOperandToken(token) || OperandIndex(token) >= matchers_.size()) return Tri::kFalse;
  ++pos;
  const size_t index = OperandIndex(token);
  RuleMatcher& matcher = *matchers_[index];
  // Each operand stands once in the program: a hit state already set is this item's answer
  // from an earlier round.
  if (matcher.hit_state() != kHitNotEvaluated)
    return with_negation((matcher.hit_state() & 1) ? Tri::kTrue : Tri::kFalse);
  if (costs_[index] > limit) return Tri::kUnknown;
  if (provider_ != nullptr) provider_->LoadValue(matcher, token, pos - 1);
  const bool result = matcher.Evaluate();
  matcher.set_hit_state(static_cast<uint16_t>((negated ? 2 : 0) | (result ? 1 : 0)));
  return with_negation(result ? Tri::kTrue : Tri::kFalse);
}

// Skips one term: to the next AND, OR, XOR, close bracket or end at this level, jumping over
// whole bracketed groups. Matchers inside keep their "not evaluated" hit state.
void RuleSet::SkipTerm(size_t& pos) const {
  int nesting = 0;
  while (pos < program_.size()) {
    const int32_t token = program_[pos];
    if (token == kTokenOpen) {
      ++nesting;
    } else if (token == kTokenClose) {
      if (nesting == 0) return;
      --nesting;
    } else if (token == kTokenEnd) {
      return;
    } else if (nesting == 0 && (token == kTokenAnd || token == kTokenOr || token == kTokenXor)) {
      return;
    }
    ++pos;
  }
}

std::string RuleSet::Print() const {
  static const char* const kTexts[] = {" AND ", " OR ", " XOR ", "==", "!=", ">=", "<=", "NOT ", "(", ")"};
  std::string out;
  for (int32_t token : program_) {
    if (IsOperandToken(token)) {
      const size_t index = OperandIndex(token);
      if (index >= matchers_.size()) continue;
      const RuleMatcher& matcher = *matchers_[index];
      std::string description;
      matcher.Describe(description, true);
      const std::string& name = matcher.rule().PropertyName();
      if (description.compare(0, name.size(), name) != 0) {
        out += name;
        out += ' ';
      }
      out += description;
    } else if (token >= kTokenAnd && token < kTokenEnd) {
      out += kTexts[token];
    }
  }
  return out;
}

}  // namespace trovix::rules
