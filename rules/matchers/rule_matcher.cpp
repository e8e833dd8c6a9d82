#include "rules/matchers/rule_matcher.h"

#include "rules/expression/expression_matcher.h"
#include "rules/matchers/number_matcher.h"
#include "rules/matchers/text_matcher.h"
#include "rules/value/value_format.h"

namespace trovix::rules {

RuleMatcher::RuleMatcher(std::shared_ptr<const Rule> rule, bool with_name) : rule_(std::move(rule)) {
  if (with_name && rule_) name_ = rule_->PropertyName();
}

RuleMatcher::~RuleMatcher() = default;

void RuleMatcher::Describe(std::string& text, bool verbose) const {
  if (verbose) {
    rule_->Describe(text, 0, false);
    return;
  }
  text += rule_->Summary().empty() ? DescribeRuleValue(*rule_) : rule_->Summary();
}

size_t RuleMatcher::Save(uint8_t*) const { return 0; }
bool RuleMatcher::Load(const uint8_t*, size_t) { return true; }
void RuleMatcher::SetNumber(uint64_t) {}
void RuleMatcher::SetText(std::string_view) {}
void RuleMatcher::SetItem(props::ShellItem*) {}

std::unique_ptr<RuleMatcher> Rule::CreateMatcher(bool with_name) const {
  if (IsEmpty()) return nullptr;
  std::shared_ptr<const Rule> self = shared_from_this();
  std::unique_ptr<RuleMatcher> matcher;
  if (IsComplex()) {
    matcher = MakeExpressionMatcher(self, with_name);
    // The expression compiler loads what it needs itself.
    return matcher;
  }
  std::string state;
  if (IsNumericKind(kind_)) {
    matcher = std::make_unique<NumberMatcher>(self, with_name);
    state = NumberMatcher::StateOf(*this);
  } else if (UsesKeywordMatcher(*this)) {
    matcher = std::make_unique<KeywordMatcher>(self, with_name);
    state = KeywordMatcher::StateOf(*this).Encode();
  } else if (kind_ == kKindText || kind_ == kKindEnumText) {
    matcher = std::make_unique<TextMatcher>(self, with_name);
    state = TextMatcher::StateOf(*this).Encode();
  } else {
    return nullptr;  // reserved text modes
  }
  // The matcher takes its own copy of the values, in its persisted form.
  if (!matcher->Load(reinterpret_cast<const uint8_t*>(state.data()), state.size())) return nullptr;
  return matcher;
}

}  // namespace trovix::rules
