#include "rules/item_value_provider.h"

#include "base/utf.h"
#include "props/fetcher.h"
#include "props/property_key.h"

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

  const props::PropertyInfo* info = matcher.rule().Descriptor();
  // The walk asks every item's name: a name in valid UTF-8 is its own display text, handed
  // over without a copy or a cache node (the fetcher would give the same text).
  if (kind == MatcherValue::kText && item_ && info != nullptr && info->hash == props::hash::kItemNameDisplay &&
      base::IsValidUtf8(item_->name())) {
    matcher.SetText(item_->name());
    return;
  }
  const props::PropValue* value = nullptr;
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
