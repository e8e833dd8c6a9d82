// Constants of the expression language and the text of str(): both follow the value syntax
// of the rule boxes, so that what a user types in an expression means what it means in a box.

#include <charconv>
#include <cstdio>

#include "rules/value/date_text.h"
#include "rules/expression/expression_internal.h"
#include "rules/value/value_syntax.h"

namespace trovix::rules::expr {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool AllDigits(std::string_view text) {
  if (text.empty()) return false;
  for (char c : text)
    if (!IsDigit(c)) return false;
  return true;
}

// Digits with a decimal point and/or an exponent, and nothing else.
bool ParseWholeFloat(std::string_view text, double* out) {
  const char* end = text.data() + text.size();
  auto [ptr, ec] = std::from_chars(text.data(), end, *out, std::chars_format::general);
  return ec == std::errc() && ptr == end;
}

char AsciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// h:m:s, m:s and longer runs of colon-separated digits.
bool IsDuration(std::string_view text) {
  bool colon = false;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == ':') {
      if (i == 0 || i + 1 == text.size() || text[i - 1] == ':') return false;
      colon = true;
    } else if (!IsDigit(text[i])) {
      return false;
    }
  }
  return colon;
}

// Digits and a size unit: "100KB", "2gb", "10b". Without the "b" a letter is no unit in a rule
// box either ("10 K" is 10 there), so such a token is not taken for a number.
bool IsSizeWithUnit(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && IsDigit(text[i])) ++i;
  if (i == 0 || i == text.size()) return false;
  std::string_view unit = text.substr(i);
  if (AsciiLower(unit.back()) != 'b') return false;
  if (unit.size() == 1) return true;
  return unit.size() == 2 && std::string_view("kmgt").find(AsciiLower(unit[0])) != std::string_view::npos;
}

}  // namespace

ExprValue ClassifyConstant(std::string_view text, char quote) {
  if (quote == '"') return ExprValue::Text(std::string(text), /*verbatim=*/true);
  if (!text.empty() && (IsDigit(text[0]) || text[0] == '.')) {
    if (AllDigits(text)) {
      int64_t value = 0;
      auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
      if (ec == std::errc() && ptr == text.data() + text.size()) return ExprValue::Integer(value);
    }
    double real = 0;
    if (ParseWholeFloat(text, &real)) return ExprValue::Float(real);
    if (IsDuration(text) || IsSizeWithUnit(text)) return ExprValue::Integer(ParseNumber(text).value);
    // A date stands for its first instant ('01/2014' for the first of January). A year alone
    // is an integer above: in arithmetic that is what a user means by 2014.
    if (IsDigit(text[0])) {
      if (std::optional<ParsedDate> date = ParseDate(text, /*want_end=*/false))
        return ExprValue::Date(ClampDate(date->start));
    }
  }
  return ExprValue::Text(std::string(text), /*verbatim=*/false);
}

std::string ValueToText(const ExprValue& v) {
  char buffer[64];
  switch (v.kind) {
    case ExprKind::kInteger:
      return std::to_string(v.integer);
    case ExprKind::kFloat:
      std::snprintf(buffer, sizeof buffer, "%g", v.real);
      return buffer;
    case ExprKind::kDate:
      return FormatDate(ClampDate(v.integer), /*with_time=*/true);
    case ExprKind::kText:
      return v.text;
    case ExprKind::kNone:
      break;
  }
  return std::string();
}

}  // namespace trovix::rules::expr
