#include "rules/rule_set.h"

#include <algorithm>

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
  return true;
}

std::unique_ptr<RuleSet> RuleSet::Copy() const {
  auto copy = std::make_unique<RuleSet>();
  copy->rules_ = rules_;
  copy->indents_ = indents_;
  copy->program_ = program_;
  copy->contents_rule_ = contents_rule_;
  copy->reordered_ = reordered_;
  for (const RulePtr& rule : rules_) copy->matchers_.push_back(MakeMatcher(rule));
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
  size_t pos = 0;
  return EvaluateExpression(pos);
}

// An expression is a term followed by (operator, term) pairs, taken strictly left to right:
// A OR B AND C is (A OR B) AND C. Any other token ends it and is left for the caller.
bool RuleSet::EvaluateExpression(size_t& pos) {
  bool result = EvaluateTerm(pos);
  while (pos < program_.size()) {
    const int32_t token = program_[pos];
    if (token == kTokenAnd) {
      ++pos;
      if (result) {
        result = EvaluateTerm(pos);
      } else {
        SkipTerm(pos);
      }
    } else if (token == kTokenOr) {
      ++pos;
      if (!result) {
        result = EvaluateTerm(pos);
      } else {
        SkipTerm(pos);
      }
    } else if (token == kTokenXor) {
      ++pos;
      result = EvaluateTerm(pos) != result;
    } else {
      break;
    }
  }
  return result;
}

bool RuleSet::EvaluateTerm(size_t& pos) {
  bool negated = false;
  while (pos < program_.size() && program_[pos] == kTokenNot) {
    negated = !negated;
    ++pos;
  }
  if (pos >= program_.size()) return false;
  const int32_t token = program_[pos];
  if (token == kTokenOpen) {
    ++pos;
    const bool value = EvaluateExpression(pos);
    if (pos < program_.size() && program_[pos] == kTokenClose) ++pos;
    return value != negated;
  }
  if (!IsOperandToken(token) || OperandIndex(token) >= matchers_.size()) return false;
  ++pos;
  RuleMatcher& matcher = *matchers_[OperandIndex(token)];
  if (provider_ != nullptr) provider_->LoadValue(matcher, token, pos - 1);
  const bool result = matcher.Evaluate();
  matcher.set_hit_state(static_cast<uint16_t>((negated ? 2 : 0) | (result ? 1 : 0)));
  return result != negated;
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
