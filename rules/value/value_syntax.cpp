#include "rules/value/value_syntax.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "rules/value/date_period.h"
#include "rules/value/date_text.h"
#include "rules/patterns/text_pattern.h"
#include "rules/rule.h"
#include "rules/value/value_format.h"

namespace trovix::rules {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsNumberStart(char c) { return c == '+' || c == '-' || IsDigit(c); }
bool IsBlank(char c) { return c == ' ' || c == '\t'; }

size_t FindNumberStart(std::string_view text, size_t from = 0) {
  for (size_t i = from; i < text.size(); ++i)
    if (IsNumberStart(text[i])) return i;
  return std::string_view::npos;
}

// Wraps around instead of overflowing, as the 64-bit arithmetic of the box always did.
int64_t WrappingMultiply(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

int64_t WrappingAdd(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

// Optional blanks, an optional sign, decimal digits; saturates instead of overflowing.
int64_t ReadInteger(std::string_view text, size_t* end = nullptr) {
  size_t i = 0;
  while (i < text.size() && IsBlank(text[i])) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  uint64_t magnitude = 0;
  bool saturated = false;
  for (; i < text.size() && IsDigit(text[i]); ++i) {
    const uint64_t digit = static_cast<uint64_t>(text[i] - '0');
    if (magnitude > (std::numeric_limits<uint64_t>::max() - digit) / 10) saturated = true;
    if (!saturated) magnitude = magnitude * 10 + digit;
  }
  if (end) *end = i;
  const uint64_t limit = negative ? uint64_t{1} << 63 : (uint64_t{1} << 63) - 1;
  if (saturated || magnitude > limit) magnitude = limit;
  return negative ? static_cast<int64_t>(0 - magnitude) : static_cast<int64_t>(magnitude);
}

char AsciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// The multiplier of size unit 1-4. It is built as a 32-bit integer shifted left by 10 per step
// and only then widened, so the terabyte unit overflows to 0 and "1 TB" means 0. That is how
// rules typed with a terabyte have always read, and saved rules and users' habits depend on
// the same text meaning the same value, so the overflow is kept on purpose.
int64_t UnitMultiplier(int unit_index) {
  uint32_t multiplier = 1;
  for (int i = 0; i < unit_index; ++i) multiplier <<= 10;
  return static_cast<int64_t>(static_cast<int32_t>(multiplier));
}

std::string_view SkipComparisonSigns(std::string_view text) {
  while (!text.empty() && (text.front() == '<' || text.front() == '>' || text.front() == '=' ||
                           IsBlank(text.front()))) {
    text.remove_prefix(1);
  }
  return text;
}

bool ParseTextRule(Rule& rule, std::string_view text, const RuleTextOptions& options) {
  const bool special = rule.IsContents() || rule.IsComplex();
  bool exact = false;
  if (!special && !text.empty() && text.front() == '=') {
    exact = true;
    text.remove_prefix(1);
  }
  int32_t kind = kKindText;
  std::string value;
  if (rule.IsComplex()) {
    value = std::string(text);
    bool blank_only = true;
    for (char c : value) blank_only = blank_only && IsBlank(c);
    if (blank_only) return false;
  } else {
    const std::vector<std::string> keywords = SplitKeywords(text);
    if (keywords.empty()) return false;
    if (keywords.size() == 1) {
      value = keywords.front();
    } else {
      std::string line;
      for (const std::string& keyword : keywords) {
        if (!line.empty()) line += ' ';
        line += FormatKeyword(keyword);
      }
      kind = kKindKeywordList;
      value = options.to_any_part ? BuildKeywordList("", line, "") : BuildKeywordList(line, "", "");
    }
  }
  if (kind == kKindText && value == "*") return false;

  uint32_t flags = options.disable_wildcards ? cf::kIgnoreCase | cf::kVerbatim : cf::kIgnoreCase;
  if (rule.KeyHash() == props::hash::kFind) {
    flags |= cf::kVerbatim;
  } else if (exact) {
    flags |= cf::kExact;
  }
  rule.SetKind(kind);
  rule.SetText(std::move(value));
  rule.SetFlags(flags);
  return true;
}

// Coordinates are shown as degrees, minutes and seconds (-33° 30' 0"); reading that form back
// gives the same angle, so a box filled from a coordinate rule can be applied unchanged.
double ReadDegreesTail(double degrees, std::string_view rest) {
  static constexpr std::string_view kDegreeSign = "\xC2\xB0";
  size_t i = 0;
  while (i < rest.size() && IsBlank(rest[i])) ++i;
  if (rest.substr(i, kDegreeSign.size()) != kDegreeSign) return degrees;
  rest.remove_prefix(i + kDegreeSign.size());
  double parts[2] = {0, 0};  // minutes, seconds
  const char marks[2] = {'\'', '"'};
  for (int k = 0; k < 2; ++k) {
    size_t j = 0;
    while (j < rest.size() && IsBlank(rest[j])) ++j;
    double part = 0;
    auto [end, ec] = std::from_chars(rest.data() + j, rest.data() + rest.size(), part);
    if (ec != std::errc() || end == rest.data() + rest.size() || *end != marks[k]) break;
    parts[k] = part;
    rest = std::string_view(end + 1, static_cast<size_t>(rest.data() + rest.size() - end - 1));
  }
  const double magnitude = std::fabs(degrees) + parts[0] / 60.0 + parts[1] / 3600.0;
  return std::signbit(degrees) ? -magnitude : magnitude;
}

}  // namespace

ParsedNumber ParseNumber(std::string_view text) {
  ParsedNumber result;
  if (text.empty()) return result;
  size_t end = 0;
  int64_t value = ReadInteger(text, &end);

  if (text.find(':') != std::string_view::npos) {
    for (size_t colon = text.find(':'); colon != std::string_view::npos;
         colon = text.find(':', colon + 1)) {
      value = WrappingAdd(WrappingMultiply(value, 60), ReadInteger(text.substr(colon + 1)));
    }
    result.value = WrappingMultiply(value, 10'000'000);
    result.unit_index = -1;
    return result;
  }
  if (value == 0) return result;

  std::string lowered(text);
  for (char& c : lowered) c = AsciiLower(c);
  result.value = value;
  if (lowered.find('b') == std::string::npos) return result;
  static constexpr std::string_view kUnits = "kmgt";
  for (size_t i = 0; i < kUnits.size(); ++i) {
    if (lowered.find(kUnits[i]) != std::string::npos) {
      result.unit_index = static_cast<int>(i) + 1;
      result.value = WrappingMultiply(value, UnitMultiplier(result.unit_index));
      break;
    }
  }
  return result;
}

double ParseFloat(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && IsBlank(text[i])) ++i;
  std::string number(text.substr(i));
  size_t start = 0;
  if (!number.empty() && number[0] == '+') start = 1;
  // A decimal comma: "3,5" reads as 3.5 when the digits before it were not already followed
  // by a point.
  size_t j = start + (start < number.size() && number[start] == '-' ? 1 : 0);
  while (j < number.size() && IsDigit(number[j])) ++j;
  if (j > start && j + 1 < number.size() && number[j] == ',' && IsDigit(number[j + 1]))
    number[j] = '.';
  double value = 0;
  const char* const last = number.data() + number.size();
  auto [ptr, ec] = std::from_chars(number.data() + start, last, value);
  if (ec == std::errc::result_out_of_range) return value;
  if (ec != std::errc()) return 0.0;
  return ReadDegreesTail(value, std::string_view(ptr, static_cast<size_t>(last - ptr)));
}

bool ParseValueText(std::string_view text, ValueBounds& value, bool* typed_unit) {
  const int32_t kind = value.kind;
  const bool is_date = kind == kKindDate;
  if (typed_unit) *typed_unit = false;

  const size_t first = FindNumberStart(text);
  if (first == std::string_view::npos) {
    if (!is_date) return false;
    const int period = PeriodFromText(text);
    if (period == 0) return false;
    value.flags = PeriodFlags(period);
    value.min = value.max = kNoValue;
    return true;
  }

  uint32_t flags = static_cast<uint32_t>(kind);
  std::string_view lower_text = text;
  std::string_view upper_text;
  bool has_upper = false;
  const size_t dots = text.find("..");
  if (dots != std::string_view::npos) {
    lower_text = text.substr(0, dots);
    const size_t upper_start = FindNumberStart(text, dots + 2);
    if (upper_start != std::string_view::npos) {
      upper_text = text.substr(upper_start);
      has_upper = true;
    }
  }
  const bool lower_has_number = first < lower_text.size();
  const std::string_view lower_number =
      lower_has_number ? lower_text.substr(first) : std::string_view();

  // The lower (or only) value.
  uint64_t min = 0;
  std::optional<base::FileTime> date_end;
  bool unit = false;
  switch (kind) {
    case kKindNumber: {
      const ParsedNumber n = ParseNumber(lower_number);
      min = static_cast<uint64_t>(n.value);
      unit = n.unit_index > 0;
      break;
    }
    case kKindFloat:
      min = DoubleAsBits(ParseFloat(lower_number));
      break;
    case kKindDate: {
      if (!lower_has_number) return false;
      const std::optional<ParsedDate> date = ParseDate(SkipComparisonSigns(lower_text), !has_upper);
      if (!date) return false;
      min = static_cast<uint64_t>(date->start);
      date_end = date->end;
      break;
    }
    default:
      return false;
  }

  uint64_t max = kNoValue;
  if (!has_upper) {
    const std::string_view before = text.substr(0, first);
    size_t sign = std::string_view::npos;
    for (size_t i = 0; i < before.size() && sign == std::string_view::npos; ++i) {
      const char c = before[i];
      if (c == '>' || c == '<' || (c == '~' && !is_date)) sign = i;
    }
    if (sign == std::string_view::npos) {
      if (!is_date) {
        flags |= cf::kEqual;
      } else if (date_end) {
        flags |= cf::kBounds;
        max = static_cast<uint64_t>(*date_end);
      } else {
        flags |= cf::kWholeDays | cf::kBounds;
        max = min;
      }
    } else if (before[sign] == '>') {
      flags |= cf::kLowerBound;  // ">" and ">=" both include the value
    } else if (before[sign] == '~') {
      flags |= cf::kApproximate | cf::kEqual;
    } else if (is_date || sign + 1 >= text.size() || text[sign + 1] != '>') {
      flags |= cf::kUpperBound;  // "<" and "<=" both include the value
      max = min;
      min = kNoValue;
    } else {
      flags |= cf::kNotEqual;
    }
  } else {
    flags |= cf::kBounds;
    switch (kind) {
      case kKindNumber: {
        const ParsedNumber n = ParseNumber(upper_text);
        max = static_cast<uint64_t>(n.value);
        unit = unit || n.unit_index > 0;
        break;
      }
      case kKindFloat:
        max = DoubleAsBits(ParseFloat(upper_text));
        break;
      default: {
        // An upper date that does not read leaves the range open upwards.
        const std::optional<ParsedDate> date = ParseDate(SkipComparisonSigns(upper_text), false);
        if (date) {
          max = static_cast<uint64_t>(date->start);
        } else {
          flags &= ~cf::kUpperBound;
        }
      }
    }
  }
  value.min = min;
  value.max = max;
  value.flags = flags;
  if (typed_unit) *typed_unit = unit;
  return true;
}

bool ParseRuleText(Rule& rule, std::string_view text, const RuleTextOptions& options) {
  const int32_t kind = rule.Kind();
  if (kind == kKindEnumNumber || kind == kKindEnumText) {
    if (!rule.SetOption(kOptionEquals, options.option_index)) return false;
  } else if (kind == kKindNumber || kind == kKindDate || kind == kKindFloat) {
    ValueBounds value;
    value.kind = kind;
    bool typed_unit = false;
    if (!ParseValueText(text, value, &typed_unit)) return false;
    rule.SetFlags(value.flags);
    rule.SetMin(value.min);
    rule.SetMax(value.max);
    rule.Normalise();
    // Shown in the unit it was typed in from now on.
    if (typed_unit) rule.SetFlags(rule.Flags() | cf::kShowUnit);
  } else if (IsTextKind(kind)) {
    if (!ParseTextRule(rule, text, options)) return false;
    rule.Normalise();
  } else {
    return false;
  }
  rule.SetContext(kContextAnd);
  rule.SetSummary(std::string());
  return true;
}

}  // namespace trovix::rules
