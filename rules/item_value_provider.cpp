#include "rules/item_value_provider.h"

#include "base/bits.h"
#include "base/utf.h"
#include "props/catalogue.h"
#include "props/fetcher.h"
#include "props/property_key.h"
#include "rules/compare_flags.h"

namespace trovix::rules {
namespace {

// A GPS coordinate is kept as degrees, minutes and seconds with its reference letter (N or S,
// E or W) in a property of its own. A range on it is written in signed decimal degrees (the
// picture map writes "40.4446 .. 40.9921" and "-74.5459 .. -73.5214"), so the parts are
// combined and a south or west reference makes the value negative before it is compared.
uint64_t CoordinateBits(props::ShellItem& item, const props::PropertyInfo& info, const props::PropValue& value) {
  const std::vector<double>& parts = value.doubles();
  double degrees = 0, unit = 1;
  for (size_t i = 0; i < parts.size() && i < 3; ++i, unit *= 60) degrees += parts[i] / unit;
  if (const props::PropertyInfo* ref = props::AllPropertiesCatalogue().FindProperty(info.name + "Ref")) {
    if (const props::CachedValue* cached = props::GetCachedValue(item, *ref)) {
      const std::string letter = RuleText(cached->value);
      if (!letter.empty() && (letter[0] == 'S' || letter[0] == 's' || letter[0] == 'W' || letter[0] == 'w'))
        degrees = -degrees;
    }
  }
  return base::DoubleAsBits(degrees);
}

}  // namespace

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
  } else if (kind == MatcherValue::kFloat && (matcher.rule().Flags() & cf::kCoordinate) && item_ && info &&
             value->tag() == (props::VT_VECTOR | props::VT_R8)) {
    matcher.SetNumber(CoordinateBits(*item_, *info, *value));
  } else {
    matcher.SetNumber(value->AsRuleBits(kind == MatcherValue::kFloat));
  }
}

}  // namespace trovix::rules
