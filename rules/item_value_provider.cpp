#include "rules/item_value_provider.h"

#include "props/fetcher.h"

namespace trovix::rules {

std::string RuleText(const props::PropValue& value) {
  if (value.IsEmpty()) return {};
  if (value.IsText()) return value.text();
  if (value.tag() == (props::VT_VECTOR | props::VT_LPWSTR)) {
    std::string joined;
    for (const std::string& part : value.texts()) {
      if (!joined.empty()) joined += "; ";
      joined += part;
    }
    return joined;
  }
  return value.ToDisplayText();
}

void ItemValueProvider::LoadValue(RuleMatcher& matcher, int32_t, size_t) {
  const MatcherValue kind = matcher.ValueKind();
  if (kind == MatcherValue::kNone) return;
  matcher.SetItem(item_.get());
  if (kind == MatcherValue::kItem) {
    matcher.SetContentsSource(contents_);
    return;
  }

  const props::PropValue* value = nullptr;
  const props::PropertyInfo* info = matcher.rule().Descriptor();
  if (item_ && info != nullptr) {
    if (const props::CachedValue* cached = props::GetCachedValue(*item_, *info)) value = &cached->value;
  }
  if (kind == MatcherValue::kText) {
    // Plain text (every name, for one) goes to the matcher without a copy of its own.
    if (value && value->IsText()) {
      matcher.SetText(value->text());
    } else {
      matcher.SetText(value ? RuleText(*value) : std::string());
    }
  } else if (value == nullptr || value->IsEmpty()) {
    matcher.SetNumber(kNoValue);
  } else {
    matcher.SetNumber(value->AsRuleBits(kind == MatcherValue::kFloat));
  }
}

}  // namespace trovix::rules
