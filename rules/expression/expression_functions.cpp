// The built-in functions of the expression language (grep excepted: the evaluator hands it to
// the host). Arguments arrive evaluated; each is checked against the function's signature.

#include <unicode/uchar.h>

#include <cmath>
#include <cstdio>
#include <iterator>

#include "base/file_time.h"
#include "rules/expression/expression_internal.h"

namespace trovix::rules::expr {
namespace {

using Int128 = __int128;

// Text arguments read "no value" as empty text.
const std::string& TextOf(const ExprValue& v) {
  static const std::string kEmpty;
  return v.kind == ExprKind::kText ? v.text : kEmpty;
}

ExprValue Mid(const ExprValue& text, const ExprValue& start, const ExprValue& count) {
  if (start.IsNone() || count.IsNone()) return ExprValue::None();
  std::u32string cps = ToCodePoints(TextOf(text));
  // The window start .. start + count - 1 (1-based), cut to the characters that exist.
  Int128 first = start.integer;
  Int128 last = first + count.integer - 1;
  if (first < 1) first = 1;
  if (last > static_cast<Int128>(cps.size())) last = static_cast<Int128>(cps.size());
  if (count.integer <= 0 || first > last) return ExprValue::Text("");
  return ExprValue::Text(FromCodePoints(std::u32string_view(cps).substr(
      static_cast<size_t>(first - 1), static_cast<size_t>(last - first + 1))));
}

ExprValue Trim(const ExprValue& text) {
  std::u32string cps = ToCodePoints(TextOf(text));
  size_t begin = 0, end = cps.size();
  while (begin < end && u_isUWhiteSpace(static_cast<UChar32>(cps[begin]))) ++begin;
  while (end > begin && u_isUWhiteSpace(static_cast<UChar32>(cps[end - 1]))) --end;
  return ExprValue::Text(FromCodePoints(std::u32string_view(cps).substr(begin, end - begin)));
}

ExprValue Find(const ExprValue& text, const ExprValue& sought) {
  const std::string& haystack = TextOf(text);
  size_t at = haystack.find(TextOf(sought));
  if (at == std::string::npos) return ExprValue::Integer(0);
  // Count characters before the byte offset.
  return ExprValue::Integer(static_cast<int64_t>(ToCodePoints(std::string_view(haystack).substr(0, at)).size()) + 1);
}

bool DatePart(const ExprValue& date, const ExprValue& part, ExprValue* out) {
  static constexpr const char* kParts[] = {"year", "month", "day", "hour", "minute", "second", "weekday"};
  std::string name = FoldCase(TextOf(part));
  if (name.size() > 1 && name.back() == 's') name.pop_back();  // plurals
  size_t which = 0;
  while (which < std::size(kParts) && name != kParts[which]) ++which;
  if (which == std::size(kParts)) return false;
  if (date.IsNone()) {
    *out = ExprValue::None();
    return true;
  }
  base::CivilTime c = base::CivilFromFileTime(base::UtcToLocal(ClampDate(date.integer)));
  const int values[] = {c.year, c.month, c.day, c.hour, c.minute, c.second,
                        c.day_of_week == 0 ? 7 : c.day_of_week};  // 1 Monday .. 7 Sunday
  *out = ExprValue::Integer(values[which]);
  return true;
}

OpStatus MinMax(bool want_max, const ExprValue& a, const ExprValue& b, ExprValue* out, size_t* bad_arg) {
  if (a.IsNone()) {
    *out = b;
    return OpStatus::kOk;
  }
  if (b.IsNone()) {
    *out = a;
    return OpStatus::kOk;
  }
  int order = 0;
  if (!OrderValues(a, b, &order)) {
    bool numbers = (a.kind == ExprKind::kInteger || a.kind == ExprKind::kFloat) &&
                   (b.kind == ExprKind::kInteger || b.kind == ExprKind::kFloat);
    if (!numbers) {
      *bad_arg = 1;
      return OpStatus::kMismatch;
    }
    order = 0;  // NaN: keep the first
  }
  *out = (want_max ? order < 0 : order > 0) ? b : a;
  return OpStatus::kOk;
}

}  // namespace

OpStatus CallFunction(int32_t code, const std::vector<ExprValue>& args, ExprValue* out, size_t* bad_arg) {
  const FunctionInfo& f = FunctionOf(code);
  if (static_cast<int>(args.size()) != f.arity) {
    *bad_arg = 0;
    return OpStatus::kMismatch;
  }
  for (size_t i = 0; i < args.size(); ++i) {
    if ((MaskOf(args[i].kind) & f.masks[i]) == 0) {
      *bad_arg = i;
      return OpStatus::kMismatch;
    }
  }
  switch (code) {
    case kLen:
      *out = ExprValue::Integer(static_cast<int64_t>(ToCodePoints(TextOf(args[0])).size()));
      return OpStatus::kOk;
    case kMid: *out = Mid(args[0], args[1], args[2]); return OpStatus::kOk;
    case kTrim: *out = Trim(args[0]); return OpStatus::kOk;
    case kFind: *out = Find(args[0], args[1]); return OpStatus::kOk;
    case kDpart:
      if (!DatePart(args[0], args[1], out)) {
        *bad_arg = 1;
        return OpStatus::kMismatch;
      }
      return OpStatus::kOk;
    case kMin:
    case kMax: return MinMax(code == kMax, args[0], args[1], out, bad_arg);
    case kAbs:
      if (args[0].kind == ExprKind::kInteger) {
        uint64_t bits = static_cast<uint64_t>(args[0].integer);
        *out = ExprValue::Integer(args[0].integer < 0 ? static_cast<int64_t>(0 - bits) : args[0].integer);
      } else if (args[0].kind == ExprKind::kFloat) {
        *out = ExprValue::Float(std::fabs(args[0].real));
      } else {
        *out = ExprValue::None();
      }
      return OpStatus::kOk;
    case kStr: *out = ExprValue::Text(ValueToText(args[0])); return OpStatus::kOk;
  }
  *bad_arg = 0;
  return OpStatus::kMismatch;
}

}  // namespace trovix::rules::expr
