#include "engine/search/detective.h"

#include <cstdio>

#include "base/string_table.h"
#include "props/fetcher.h"
#include "props/property_key.h"
#include "rules/expression/expression.h"
#include "rules/expression/expression_matcher.h"
#include "rules/item_value_provider.h"
#include "rules/matchers/text_matcher.h"

namespace trovix::engine {
namespace {

constexpr uint32_t kNotExtracted = 11185;

// The file contents are never printed: they are unbounded, and the hit state already says
// whether the text was found.
bool IsNeverPrinted(const props::PropertyInfo& property) {
  return property.hash == props::hash::kSearchContents;
}

std::string ValueText(props::ShellItem& item, const props::PropertyInfo* property) {
  if (!property) return std::string(base::LoadString(kNotExtracted));
  if (IsNeverPrinted(*property)) return "...";
  const props::PropValue& value = props::GetCachedValue(item, *property)->value;
  if (value.IsEmpty()) return std::string(base::LoadString(kNotExtracted));
  return value.ToDisplayText();
}

std::string Format(const char* format, const std::string& a, const std::string& b, int n) {
  int size = std::snprintf(nullptr, 0, format, a.c_str(), b.c_str(), n);
  std::string out(static_cast<size_t>(size), '\0');
  std::snprintf(out.data(), out.size() + 1, format, a.c_str(), b.c_str(), n);
  return out;
}

// Why a contents rule saw no text, when the reason is news to the user.
std::string UnreadReason(const rules::RuleSet& rule_set, size_t index) {
  if (index >= rule_set.matcher_count() || !rule_set.rules()[index]->IsContents()) return {};
  const auto* matcher = dynamic_cast<const rules::KeywordMatcher*>(&rule_set.matcher(index));
  if (!matcher || matcher->hit_state() == rules::kHitNotEvaluated) return {};
  const props::ContentsResult& result = matcher->contents_result();
  switch (result.status) {
    case props::ContentsStatus::kEncrypted:
    case props::ContentsStatus::kSkipped:
    case props::ContentsStatus::kNoReader:
    case props::ContentsStatus::kTooLarge:
    case props::ContentsStatus::kUnreadable:
    case props::ContentsStatus::kFailed:
      return result.message.empty() ? "the text could not be read" : result.message;
    default:
      return {};
  }
}

}  // namespace

DetectiveReport ExplainItem(rules::RuleSet& rule_set, const props::ShellItemPtr& item,
                            props::ContentsSource* contents) {
  rules::ItemValueProvider provider;
  provider.set_item(item);
  provider.set_contents_source(contents);
  rules::ValueProvider* previous = rule_set.value_provider();
  rule_set.set_value_provider(&provider);
  DetectiveReport report;
  report.found = rule_set.Evaluate();
  rule_set.set_value_provider(previous);

  report.text = Format("%sFOUND!\n%s\n\nFILE REPORT\n", report.found ? "" : "NOT ", rule_set.Print(), 0);
  const auto& rules = rule_set.rules();
  for (size_t i = 0; i < rules.size(); ++i) {
    const rules::Rule& rule = *rules[i];
    // The hit state is shown as the signed 16-bit number it is: -1 for a rule never tested.
    int hit = static_cast<int16_t>(i < rule_set.matcher_count() ? rule_set.matcher(i).hit_state()
                                                                 : rules::kHitNotEvaluated);
    report.text += Format("%s: %s (hit=%d)\n", rule.PropertyName(), ValueText(*item, rule.Descriptor()), hit);
    if (const std::string why = UnreadReason(rule_set, i); !why.empty()) report.text += "\t(" + why + ")\n";
    if (!rule.IsComplex() || i >= rule_set.matcher_count()) continue;
    const rules::Expression* expression = rules::ExpressionOf(rule_set.matcher(i));
    if (!expression) continue;
    const auto& used = expression->properties();
    for (auto it = used.rbegin(); it != used.rend(); ++it) {
      report.text += Format("\t%s = %s\n", (*it)->name, ValueText(*item, *it), 0);
    }
  }
  return report;
}

}  // namespace trovix::engine
