#include "rules/value/value_format.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "base/file_time.h"
#include "rules/value/date_period.h"
#include "rules/value/date_text.h"
#include "rules/patterns/text_pattern.h"
#include "rules/rule.h"

namespace trovix::rules {
namespace {

std::string Integer(int64_t value) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%" PRId64, value);
  return buffer;
}

std::string TwoDigits(int64_t value) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%02" PRId64, value);
  return buffer;
}

std::string General(double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%g", value);
  return buffer;
}

// A date bound: the local date, and its time of day unless the rule covers whole days or the
// bound sits on the edge of its day (00:00 below, 23:59 above), where the date alone reads
// back to the same bound.
std::string DateBound(uint64_t bound, uint32_t flags, bool upper) {
  if (bound == kNoValue) return std::string();
  const base::FileTime utc = static_cast<base::FileTime>(bound);
  bool with_time = (flags & cf::kWholeDays) == 0;
  if (with_time) {
    const base::CivilTime local = base::CivilFromFileTime(base::UtcToLocal(utc));
    with_time =
        upper ? !(local.hour == 23 && local.minute == 59) : !(local.hour == 0 && local.minute == 0);
  }
  return FormatDate(utc, with_time);
}

std::string ValueText(uint64_t bits, uint32_t flags, bool upper) {
  switch (flags & cf::kKindMask) {
    case cf::kDateKind:
      return DateBound(bits, flags, upper);
    case cf::kFloatKind: {
      const double value = BitsAsDouble(bits);
      return (flags & cf::kCoordinate) ? FormatDegrees(value) : General(value);
    }
    default: {
      const int64_t value = static_cast<int64_t>(bits);
      if (flags & (cf::kShowUnit | cf::kDuration))
        return FormatNumber(value, (flags & cf::kDuration) != 0);
      return Integer(value);
    }
  }
}

std::string TextRuleValue(const Rule& rule) {
  const std::string& text = rule.Text();
  if (rule.IsComplex()) return text;
  // "=" stands for an exact match wherever typing it asks for one.
  const std::string exact =
      (rule.Flags() & cf::kExact) && !rule.IsContents() && rule.KeyHash() != props::hash::kFind
          ? "="
          : "";
  if (rule.Kind() == kKindKeywordList) {
    std::string all_of, any_of, none_of;
    if (!SplitKeywordList(text, &all_of, &any_of, &none_of)) return std::string();
    if (any_of.empty() && none_of.empty()) return exact + all_of;
    if (all_of.empty() && none_of.empty()) return exact + any_of;
    // Several parts have no one-line form; name them as the rule's dialog does.
    std::string out;
    auto part = [&out](std::string_view label, const std::string& keywords) {
      if (keywords.empty()) return;
      if (!out.empty()) out += "; ";
      out += label;
      out += ' ';
      out += keywords;
    };
    part("Contains all of", all_of);
    part("Contains any of", any_of);
    part("Contains none of", none_of);
    return out;
  }
  if (rule.Kind() != kKindText) return text;
  return exact + FormatKeyword(text);
}

}  // namespace

std::string FormatKeyword(std::string_view keyword) {
  // Only a phrase holds blanks, and a phrase never starts with a quotation mark (a doubled
  // one does not open a phrase), so blanks are the one reason to quote.
  if (keyword.find(' ') == std::string_view::npos && keyword.find('\t') == std::string_view::npos)
    return std::string(keyword);
  std::string out = "\"";
  for (char c : keyword) {
    out += c;
    if (c == '"') out += '"';
  }
  out += '"';
  return out;
}

std::string FormatNumber(int64_t value, bool as_duration) {
  if (as_duration) {
    const int64_t seconds = value / 10'000'000;
    if (seconds < 60) return "0:" + TwoDigits(seconds);
    const int64_t minutes = seconds / 60;
    if (minutes < 60) return Integer(minutes) + ":" + TwoDigits(seconds % 60);
    return Integer(minutes / 60) + ":" + TwoDigits(minutes % 60) + ":" + TwoDigits(seconds % 60);
  }
  static constexpr const char* kUnits[] = {"", "K", "M", "G", "T", "P", "E"};
  int step = 0;
  while (value >= 1024 && step < 6) {
    value /= 1024;
    ++step;
  }
  return Integer(value) + " " + kUnits[step] + "B";
}

std::string DisplayValue(const props::PropertyInfo& property, const props::PropValue& value) {
  if ((property.flags() & props::kPropDuration) && !value.IsEmpty() && !value.IsText() && !value.IsVector())
    return FormatNumber(value.AsInt64(), true);
  // A position as degrees, minutes and seconds: "54° 59' 22.8"".
  if ((property.flags() & props::kPropMultiValued) && value.doubles().size() == 3) {
    const std::vector<double>& dms = value.doubles();
    return FormatDegrees(dms[0] + dms[1] / 60 + dms[2] / 3600);
  }
  return value.ToDisplayText();
}

std::string FormatDegrees(double value) {
  // Only a real position has whole degrees that fit an int; anything else (a damaged rule
  // list, a tag holding garbage) is shown as the plain number, which reads back the same.
  if (!(std::fabs(value) < 1e9)) return General(value);
  const char* sign = std::signbit(value) && value != 0 ? "-" : "";
  double rest = std::fabs(value);
  const int degrees = static_cast<int>(rest);
  rest = (rest - degrees) * 60;
  const int minutes = static_cast<int>(rest);
  double seconds = (rest - minutes) * 60;
  if (seconds < 0.001) seconds = 0;
  char buffer[96];
  std::snprintf(buffer, sizeof buffer, "%s%d\xC2\xB0 %d' %s\"", sign, degrees, minutes,
                General(seconds).c_str());
  return buffer;
}

std::string FormatRuleValue(const ValueBounds& value) {
  const uint32_t flags = value.flags;
  if ((flags & cf::kKindMask) == cf::kDateKind) {
    if (flags & cf::kFixedPeriod)
      return std::string(PeriodWord(static_cast<int>(flags >> cf::kHighShift)));
    if (const int unit = static_cast<int>((flags & cf::kPreviousUnitMask) >> 12); unit != 0) {
      // Set in the rule's dialog only; the box has no typed form for it.
      return "In the previous " + Integer(flags >> cf::kHighShift) + " " +
             std::string(PreviousUnitWord(unit));
    }
  }
  const bool both = (flags & cf::kBounds) == cf::kBounds && (flags & cf::kApproximate) == 0;
  if (both) return ValueText(value.min, flags, false) + " .. " + ValueText(value.max, flags, true);
  const bool upper_only = (flags & cf::kUpperBound) && !(flags & cf::kLowerBound);
  const std::string text =
      upper_only ? ValueText(value.max, flags, true) : ValueText(value.min, flags, false);
  const bool equal = flags & cf::kEqual, approximate = flags & cf::kApproximate;
  const char* op = equal && approximate      ? "~"
                   : equal || approximate    ? "="
                   : flags & cf::kNotEqual   ? "<>"
                   : flags & cf::kLowerBound ? ">="
                                             : "<=";
  return op + text;
}

std::string FormatRuleValue(const Rule& rule) {
  const int32_t kind = rule.Kind();
  if (kind == kKindNumber || kind == kKindDate || kind == kKindFloat) {
    if (rule.IsEmpty()) return std::string();
    ValueBounds value;
    value.kind = kind;
    value.min = rule.Min();
    value.max = rule.Max();
    value.flags = rule.Flags();
    return FormatRuleValue(value);
  }
  if (kind == kKindEnumNumber || kind == kKindEnumText) {
    const props::PropertyOption* option = rule.ChosenOption();
    return option ? option->label : std::string();
  }
  if (IsTextKind(kind)) return TextRuleValue(rule);
  return std::string();
}

std::string DescribeRuleValue(const Rule& rule) {
  const int32_t kind = rule.Kind();
  // An enumerated rule is described by its option, which Rule::Describe adds itself.
  if (kind == kKindEnumNumber || kind == kKindEnumText) return std::string();
  if (kind == kKindText && !rule.IsComplex() && !rule.IsContents()) {
    if (auto pattern = TextPattern::Compile(rule.Text(), rule.Flags())) return pattern->Describe();
  }
  return FormatRuleValue(rule);
}

}  // namespace trovix::rules
