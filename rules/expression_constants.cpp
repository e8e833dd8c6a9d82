// Constants of the expression language and the text of str(): both follow the value syntax
// of the rule boxes, so that what a user types in an expression means what it means in a box.

#include <charconv>
#include <cstdio>

#include "rules/expression_internal.h"

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
    case ExprKind::kDate: {
      base::CivilTime c = base::CivilFromFileTime(base::UtcToLocal(ClampDate(v.integer)));
      std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02d %02d:%02d:%02d", c.year, c.month, c.day, c.hour,
                    c.minute, c.second);
      return buffer;
    }
    case ExprKind::kText:
      return v.text;
    case ExprKind::kNone:
      break;
  }
  return std::string();
}

}  // namespace trovix::rules::expr
