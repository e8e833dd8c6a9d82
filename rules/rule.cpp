#include "rules/rule.h"

#include <cstring>
#include <utility>

#include "base/bits.h"
#include "base/file_time.h"
#include "props/catalogue.h"
#include "rules/value/value_format.h"

namespace trovix::rules {
namespace {

using base::BitsAsDouble;
using base::DoubleAsBits;

}  // namespace

int32_t KindForValueType(uint16_t var_type) {
  switch (var_type & props::kVarTypeMask) {
    case props::VT_EMPTY:
      return kKindInvalid;
    case props::VT_FILETIME:
    case props::VT_DATE:
      return kKindDate;
    case props::VT_R8:
    case props::VT_R4:
      return kKindFloat;
    case props::VT_LPWSTR:
    case props::VT_BSTR:
    case props::VT_LPSTR:
      return kKindText;
    default:
      return kKindNumber;
  }
}

Rule::Rule(PassKey, const props::PropertyInfo* info, const props::PropertyKey& key)
    : info_(info), key_(key), key_hash_(key.Hash()) {
  if (info_ == nullptr) {
    name_ = key.ToString();
    return;
  }
  name_ = info_->label.empty() ? info_->name : info_->label;
  kind_ = KindForValueType(info_->var_type());
  if (kind_ == kKindInvalid) return;
  bool enumerated = info_->has_flag(pf::kEnumerated) || info_->base_type() == props::VT_BOOL;
  std::shared_ptr<const props::OptionList> options = props::OptionsOf(*info_);
  if (enumerated && options && !options->options.empty()) {
    options_ = std::move(options);
    kind_ = options_->IsText() ? kKindEnumText : kKindEnumNumber;
  }
  // Number, Date and Float flags start from the kind value; text rules ignore case unless told.
  if (kind_ == kKindDate) flags_ = cf::kDateKind;
  if (kind_ == kKindFloat) flags_ = cf::kFloatKind;
  if (IsTextKind(kind_)) flags_ = cf::kIgnoreCase;
}

RulePtr Rule::Create(const props::PropertyKey& key) {
  const props::PropertyInfo* info = props::DefaultCatalogue().FindProperty(key);
  if (info == nullptr) info = props::AllPropertiesCatalogue().FindProperty(key);
  return CreateFor(info, key);
}

RulePtr Rule::CreateFor(const props::PropertyInfo* info, const props::PropertyKey& key) {
  return std::make_shared<Rule>(PassKey{}, info, key);
}

RulePtr Rule::Clone() const {
  RulePtr copy = CreateFor(info_, key_);
  copy->kind_ = kind_;
  copy->context_ = context_;
  copy->indent_ = indent_;
  copy->summary_ = summary_;
  copy->flags_ = flags_;
  copy->text_ = text_;
  copy->min_ = min_;
  copy->max_ = max_;
  copy->option_condition_ = option_condition_;
  copy->option_index_ = option_index_;
  copy->extra_text_ = extra_text_;
  return copy;
}

bool Rule::IsContents() const { return key_hash_ == props::hash::kSearchContents; }
bool Rule::IsComplex() const { return key_hash_ == props::hash::kComplex; }

bool Rule::HasFloatBounds() const {
  if (kind_ == kKindFloat) return true;
  return kind_ == kKindEnumNumber && (flags_ & cf::kKindMask) == cf::kFloatKind;
}

const props::PropertyOption* Rule::ChosenOption() const {
  if (!options_ || option_index_ < 0 ||
      static_cast<size_t>(option_index_) >= options_->options.size()) {
    return nullptr;
  }
  return &options_->options[static_cast<size_t>(option_index_)];
}

bool Rule::SetOption(int32_t condition, int32_t index) {
  if (!options_ || index < 0 || static_cast<size_t>(index) >= options_->options.size()) return false;
  if (condition < kOptionEquals || condition > kOptionAtLeast) return false;
  option_condition_ = condition;
  option_index_ = index;
  summary_.clear();
  ComputeOptionBounds();
  Normalise();
  return true;
}

void Rule::ComputeOptionBounds() {
  const props::OptionList& list = *options_;
  const size_t index = static_cast<size_t>(option_index_);
  const props::PropertyOption& option = list.options[index];
  const bool is_float = list.is_float;
  auto value_bits = [is_float](const props::PropertyOption& o) {
    return is_float ? DoubleAsBits(o.real) : static_cast<uint64_t>(o.number);
  };
  const uint32_t float_bit = is_float ? cf::kFloatKind : 0;

  switch (list.kind) {
    case props::OptionList::Kind::kText:
      flags_ = cf::kTextOptions;
      text_ = option.text;
      min_ = max_ = kNoValue;
      break;
    case props::OptionList::Kind::kDiscrete:
      flags_ = cf::kEqual | float_bit;
      min_ = value_bits(option);
      max_ = kNoValue;
      break;
    case props::OptionList::Kind::kClasses: {
      min_ = value_bits(option);
      const bool last = index + 1 == list.options.size();
      if (last) {
        max_ = kNoValue;
      } else {
        const props::PropertyOption& next = list.options[index + 1];
        max_ = is_float ? DoubleAsBits(next.real - 0.01) : static_cast<uint64_t>(next.number - 1);
      }
      uint32_t bounds = option_condition_ == kOptionUpTo    ? cf::kUpperBound
                        : option_condition_ == kOptionAtLeast ? cf::kLowerBound
                                                              : cf::kBounds;
      // The last class has no upper boundary: "Equals" is then "at least" its lower one, and
      // "Up to" admits every value.
      if (last) bounds &= ~cf::kUpperBound;
      flags_ = bounds | float_bit;
      break;
    }
  }
}

bool Rule::IsEmpty() const {
  if (kind_ == kKindInvalid) return true;
  if (IsTextKind(kind_) || kind_ == kKindEnumText) return text_.empty();
  const bool no_bounds = min_ == kNoValue && max_ == kNoValue;
  if (kind_ == kKindDate) {
    if (no_bounds) return !(flags_ >= 0x10000 && (flags_ & cf::kRelativeMask) != 0);
    return (flags_ & (cf::kBounds | cf::kEqual | cf::kNotEqual)) == 0;
  }
  return no_bounds;
}

bool Rule::Equals(const Rule& other) const {
  if (key_hash_ != other.key_hash_ || context_ != other.context_ || indent_ != other.indent_ ||
      kind_ != other.kind_) {
    return false;
  }
  if (options_ && (option_condition_ != other.option_condition_ ||
                   option_index_ != other.option_index_)) {
    return false;
  }
  if (flags_ != other.flags_ || text_ != other.text_) return false;
  if (kind_ >= kKindNumber && kind_ <= kKindFloat) return min_ == other.min_ && max_ == other.max_;
  return true;
}

void Rule::Normalise() {
  if (IsNumericKind(kind_) && (flags_ & cf::kBounds) == cf::kBounds) {
    bool greater, equal;
    if (HasFloatBounds()) {
      greater = BitsAsDouble(min_) > BitsAsDouble(max_);
      equal = BitsAsDouble(min_) == BitsAsDouble(max_);
    } else {
      greater = static_cast<int64_t>(min_) > static_cast<int64_t>(max_);
      equal = min_ == max_;
    }
    if (greater) {
      std::swap(min_, max_);
    } else if (equal && kind_ != kKindDate) {
      flags_ = (flags_ & ~cf::kBounds) | cf::kEqual;
    }
  }
  if (kind_ >= kKindNumber && kind_ <= kKindFloat) {
    const uint16_t property = PropertyFlags();
    flags_ &= ~(cf::kDuration | cf::kCoordinate);
    if (property & pf::kDuration) {
      flags_ |= cf::kDuration;
    } else if (property & pf::kCoordinate) {
      flags_ |= cf::kCoordinate;
    }
  }
  if (kind_ == kKindDate) WidenDates();
  // The contents are searched for text, never compared whole.
  if (IsContents() && IsTextKind(kind_)) flags_ &= ~cf::kExact;
}

void Rule::WidenDates() {
  auto widen = [this](uint64_t bound, int hour, int minute, int second) {
    const base::FileTime local = base::UtcToLocal(static_cast<base::FileTime>(bound));
    base::CivilTime civil = base::CivilFromFileTime(local);
    if ((flags_ & cf::kWholeDays) == 0 && (civil.hour != 0 || civil.minute != 0)) return bound;
    civil.hour = hour;
    civil.minute = minute;
    civil.second = second;
    return static_cast<uint64_t>(base::LocalToUtc(base::FileTimeFromCivil(civil)));
  };
  if (flags_ & cf::kLowerBound) min_ = widen(min_, 0, 0, 0);
  if (flags_ & cf::kUpperBound) max_ = widen(max_, 23, 59, 59);
}

void Rule::Describe(std::string& out, int indent_unit, bool name_only) const {
  if (indent_ > 0 && indent_unit > 0) out.append(static_cast<size_t>(indent_) * indent_unit * 3, ' ');
  out += name_;
  if (name_only) return;
  // An empty summary is rebuilt on demand from the rule's values.
  const std::string summary = summary_.empty() ? DescribeRuleValue(*this) : summary_;
  out += ' ';
  out += summary;
  if (const props::PropertyOption* option = ChosenOption(); option && options_) {
    out += " (";
    out += option->label;
    out += ')';
  }
}

void Rule::ApplyValues() {
  summary_.clear();
  RememberDefaults(*this);
}

void Rule::ApplyDefaults() {
  context_ = DefaultContext();
  if (kind_ == kKindNumber || kind_ == kKindDate || kind_ == kKindFloat) {
    flags_ = DefaultFlags(kind_);
  } else if (kind_ == kKindText) {
    const uint32_t word = DefaultFlags(kKindText);
    const int32_t mode = static_cast<int32_t>(word >> cf::kHighShift);
    // The contents and the expression keep their own mode: only plain text rules take it.
    if (!IsComplex() && kKindText + mode < kKindTextEnd) kind_ = kKindText + mode;
    flags_ = word & 0xFFFF;
    if (IsContents()) flags_ &= ~cf::kExact;
  }
}

}  // namespace trovix::rules
