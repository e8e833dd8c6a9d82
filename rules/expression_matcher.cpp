#include "rules/expression_matcher.h"

#include <vector>

#include "props/fetcher.h"
#include "props/property_info.h"
#include "rules/expression.h"
#include "rules/rule.h"

namespace trovix::rules {
namespace {

// Fetches the current item's values through its value cache, so that a property that other
// rules or columns also need is computed once per item.
class ItemHost final : public ExpressionHost {
 public:
  ItemHost(const Expression& expression, props::ShellItem* item) : expression_(expression), item_(item) {}

  void FetchValue(size_t index, const std::string&, ExprValue* value) override {
    const auto& properties = expression_.properties();
    if (!item_ || index >= properties.size() || !properties[index]) return;
    if (const props::CachedValue* cached = props::GetCachedValue(*item_, *properties[index]))
      *value = ExprValue::FromProp(cached->value);
  }

  // grep() needs the item's text, which the contents extraction will supply; until it is
  // wired in here, grep finds nothing (the default of ExpressionHost).

 private:
  const Expression& expression_;
  props::ShellItem* item_;
};

class ExpressionMatcher final : public RuleMatcher {
 public:
  ExpressionMatcher(std::shared_ptr<const Rule> rule, bool with_name, Expression expression)
      : RuleMatcher(std::move(rule), with_name), expression_(std::move(expression)) {}

  bool Evaluate() override {
    ItemHost host(expression_, item_);
    // Values belong to one item: start from none each time.
    values_.assign(expression_.names().size(), ExprValue());
    return expression_.Evaluate(values_, host).matched;
  }
  MatcherValue ValueKind() const override { return MatcherValue::kItem; }
  void SetItem(props::ShellItem* item) override { item_ = item; }

  const Expression& expression() const { return expression_; }

 private:
  Expression expression_;
  props::ShellItem* item_ = nullptr;
  std::vector<ExprValue> values_;
};

}  // namespace

std::unique_ptr<RuleMatcher> MakeExpressionMatcher(std::shared_ptr<const Rule> rule, bool with_name) {
  if (!rule) return nullptr;
  Expression expression;
  if (!expression.Compile(rule->Text())) return nullptr;
  return std::make_unique<ExpressionMatcher>(std::move(rule), with_name, std::move(expression));
}

const Expression* ExpressionOf(const RuleMatcher& matcher) {
  const auto* expression_matcher = dynamic_cast<const ExpressionMatcher*>(&matcher);
  return expression_matcher ? &expression_matcher->expression() : nullptr;
}

}  // namespace trovix::rules
