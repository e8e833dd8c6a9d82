#include "rules/file_count_rule.h"

#include "props/catalogue.h"
#include "rules/expression/expression.h"
#include "rules/item_value_provider.h"
#include "rules/rule_set.h"
#include "rules/matchers/text_matcher.h"
#include "rules/value/value_syntax.h"

namespace trovix::rules {
namespace {

// Each test runs a copy of the compiled set: matchers keep per-item state.
class RuleSetTest final : public props::ItemTest {
 public:
  explicit RuleSetTest(std::unique_ptr<RuleSet> set) : set_(std::move(set)) { set_->set_value_provider(&provider_); }
  bool Accepts(const props::ShellItemPtr& item) override {
    provider_.set_item(item);
    bool accepted = set_->Evaluate();
    provider_.set_item(nullptr);
    return accepted;
  }

 private:
  std::unique_ptr<RuleSet> set_;
  ItemValueProvider provider_;
};

class RuleSetFilter final : public props::FileCountFilter {
 public:
  explicit RuleSetFilter(std::unique_ptr<RuleSet> set) : set_(std::move(set)) {}
  std::unique_ptr<props::ItemTest> NewTest() const override { return std::make_unique<RuleSetTest>(set_->Copy()); }

 private:
  std::unique_ptr<RuleSet> set_;
};

std::string_view Trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

RulePtr MakeRule(std::string_view text, std::string* why) {
  const props::Catalogue& catalogue = props::DefaultCatalogue();
  if (text.find('$') != std::string_view::npos) {
    Expression expression;
    if (!expression.Compile(std::string(text))) {
      *why = expression.ErrorText();
      return nullptr;
    }
    RulePtr rule = Rule::CreateFor(*catalogue.FindProperty("Stock.Algorithmic"));
    if (!ParseRuleText(*rule, text)) return nullptr;
    return rule;
  }
  RulePtr rule = Rule::CreateFor(*catalogue.FindProperty("System.ItemNameDisplay"));
  RuleTextOptions options;
  options.to_any_part = true;
  if (!ParseRuleText(*rule, text, options) || !CheckTextRule(*rule, why)) return nullptr;
  return rule;
}

}  // namespace

props::FileCountSettings MakeFileCountSettings(std::string_view setting, bool include_hidden, std::string* error) {
  props::FileCountSettings settings;
  settings.include_hidden = include_hidden;
  const std::string_view text = Trim(setting);
  if (text.empty() || text == "*") return settings;
  std::string why;
  RulePtr rule = MakeRule(text, &why);
  auto set = std::make_unique<RuleSet>();
  if (!rule || !set->Compile({rule})) {
    settings.usable = false;
    if (error) *error = "the file-count rule \"" + std::string(text) + "\" cannot be used" + (why.empty() ? "" : ": " + why);
    return settings;
  }
  settings.filter = std::make_shared<RuleSetFilter>(std::move(set));
  return settings;
}

}  // namespace trovix::rules
