#include "rules/expression/expression_matcher.h"

#include <vector>

#include "props/fetcher.h"
#include "props/property_info.h"
#include "rules/matchers/contents_scan.h"
#include "rules/expression/expression.h"
#include "rules/patterns/text_pattern.h"
#include "rules/rule.h"

namespace trovix::rules {
namespace {

// grep()'s pattern compiled as a contents rule's text would be (case-blind, wildcards and
// regular expressions detected), kept while the pattern stays the same, which it does for
// the usual constant argument.
struct GrepCache {
  std::string text;
  std::unique_ptr<KeywordProgram> program;
  bool fold_blanks = false;
};

// Fetches the current item's values through its value cache, so that a property that other
// rules or columns also need is computed once per item.
class ItemHost final : public ExpressionHost {
 public:
  ItemHost(const Expression& expression, props::ShellItem* item, props::ContentsSource* contents,
           GrepCache* grep)
      : expression_(expression), item_(item), contents_(contents), grep_(grep) {}

  void FetchValue(size_t index, const std::string&, ExprValue* value) override {
    const auto& properties = expression_.properties();
    if (!item_ || index >= properties.size() || !properties[index]) return;
    if (const props::CachedValue* cached = props::GetCachedValue(*item_, *properties[index]))
      *value = ExprValue::FromProp(cached->value);
  }

  // grep(t): whether the item's text holds t, read the way a contents rule reads it.
  void Grep(const ExprValue& pattern, ExprValue* result) override {
    *result = ExprValue::Bool(false);
    if (!item_ || !contents_ || pattern.kind != ExprKind::kText || pattern.text.empty()) return;
    if (!grep_->program || grep_->text != pattern.text) {
      grep_->text = pattern.text;
      grep_->fold_blanks = WantsBlankFolding(pattern.text);
      const std::string term = grep_->fold_blanks ? FoldBlanks(pattern.text) : pattern.text;
      grep_->program = KeywordProgram::Compile(term, kKindText, kPatternIgnoreCase);
      if (!grep_->program) return;
    }
    *result = ExprValue::Bool(MatchContents(*grep_->program, grep_->fold_blanks, *contents_, *item_));
  }

 private:
  const Expression& expression_;
  props::ShellItem* item_;
  props::ContentsSource* contents_;
  GrepCache* grep_;
};

class ExpressionMatcher final : public RuleMatcher {
 public:
  ExpressionMatcher(std::shared_ptr<const Rule> rule, bool with_name, Expression expression)
      : RuleMatcher(std::move(rule), with_name), expression_(std::move(expression)) {}

  bool Evaluate() override {
    ItemHost host(expression_, item_, contents_, &grep_);
    // Values belong to one item: start from none each time.
    values_.assign(expression_.names().size(), ExprValue());
    return expression_.Evaluate(values_, host).matched;
  }
  MatcherValue ValueKind() const override { return MatcherValue::kItem; }
  void SetItem(props::ShellItem* item) override { item_ = item; }
  void SetContentsSource(props::ContentsSource* source) override { contents_ = source; }

  const Expression& expression() const { return expression_; }

 private:
  Expression expression_;
  props::ShellItem* item_ = nullptr;
  props::ContentsSource* contents_ = nullptr;
  GrepCache grep_;
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
