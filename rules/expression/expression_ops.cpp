// Operators of the expression language on pairs of values: arithmetic, comparison and the
// unary run. The result for each pairing of kinds is listed in rules/expression/expression.h.

#include <cmath>
#include <cstdlib>
#include <limits>

#include "base/file_time.h"
#include "rules/expression/expression_internal.h"

namespace trovix::rules::expr {
namespace {

using Int128 = __int128;

bool IsNumber(const ExprValue& v) { return v.kind == ExprKind::kInteger || v.kind == ExprKind::kFloat; }
double AsDouble(const ExprValue& v) {
  return v.kind == ExprKind::kFloat ? v.real : static_cast<double>(v.integer);
}
int64_t Wrap(uint64_t bits) { return static_cast<int64_t>(bits); }

// Whole days of a number, truncated toward zero; false when no date could move that far.
bool WholeDays(const ExprValue& n, int64_t* days) {
  if (n.kind == ExprKind::kInteger) {
    *days = n.integer;
    return true;
  }
  double d = std::trunc(n.real);
  // 2^63 ticks are about 10.7 million days; anything beyond moves every date out of range.
  if (!std::isfinite(d) || std::fabs(d) > 2e7) return false;
  *days = static_cast<int64_t>(d);
  return true;
}

OpStatus MoveDate(int64_t ticks, int64_t days, int sign, ExprValue* out) {
  Int128 moved = static_cast<Int128>(ticks) + sign * static_cast<Int128>(days) * base::kTicksPerDay;
  if (moved < 0 || moved > kMaxDateTicks) return OpStatus::kDomain;
  *out = ExprValue::Date(static_cast<int64_t>(moved));
  return OpStatus::kOk;
}

OpStatus IntegerArithmetic(int32_t op, int64_t a, int64_t b, ExprValue* out) {
  const uint64_t ua = static_cast<uint64_t>(a), ub = static_cast<uint64_t>(b);
  switch (op) {
    case kAdd: *out = ExprValue::Integer(Wrap(ua + ub)); return OpStatus::kOk;
    case kSub: *out = ExprValue::Integer(Wrap(ua - ub)); return OpStatus::kOk;
    case kMul: *out = ExprValue::Integer(Wrap(ua * ub)); return OpStatus::kOk;
    case kDiv:
    case kMod:
      if (b == 0) return OpStatus::kDomain;
      if (b == -1) {  // the one quotient that overflows wraps like the other operators
        *out = ExprValue::Integer(op == kDiv ? Wrap(0 - ua) : 0);
        return OpStatus::kOk;
      }
      *out = ExprValue::Integer(op == kDiv ? a / b : a % b);
      return OpStatus::kOk;
  }
  return OpStatus::kMismatch;
}

OpStatus FloatArithmetic(int32_t op, double a, double b, ExprValue* out) {
  switch (op) {
    case kAdd: *out = ExprValue::Float(a + b); return OpStatus::kOk;
    case kSub: *out = ExprValue::Float(a - b); return OpStatus::kOk;
    case kMul: *out = ExprValue::Float(a * b); return OpStatus::kOk;
    case kDiv:
      if (b == 0.0) return OpStatus::kDomain;
      *out = ExprValue::Float(a / b);
      return OpStatus::kOk;
    case kMod:
      if (b == 0.0) return OpStatus::kDomain;
      *out = ExprValue::Float(std::fmod(a, b));
      return OpStatus::kOk;
  }
  return OpStatus::kMismatch;
}

// Floor division, so that dates before 1601 would still fall on the right day.
int64_t LocalDay(int64_t utc) {
  int64_t local = base::UtcToLocal(ClampDate(utc));
  int64_t day = local / base::kTicksPerDay;
  return (local % base::kTicksPerDay < 0) ? day - 1 : day;
}

bool ApproxIntegers(int64_t a, int64_t b) {
  Int128 magnitude = b < 0 ? -static_cast<Int128>(b) : static_cast<Int128>(b);
  Int128 tolerance = magnitude * 5 / 100;
  if (tolerance == 0) tolerance = 1;
  Int128 diff = static_cast<Int128>(a) - b;
  if (diff < 0) diff = -diff;
  return diff <= tolerance;
}

bool ApproxFloats(double a, double b) {
  double tolerance = b == 0.0 ? 1.0 : std::fabs(b) * 5.0 / 100.0;
  return std::fabs(a - b) <= tolerance;
}

bool IsPattern(const ExprValue& v) {
  return v.kind == ExprKind::kText && !v.verbatim && v.text.find_first_of("*?") != std::string::npos;
}

bool SameKindFamily(const ExprValue& a, const ExprValue& b) {
  if (IsNumber(a) && IsNumber(b)) return true;
  return a.kind == b.kind;
}

}  // namespace

// Three-way order; false when the kinds cannot be ordered or a float is NaN.
bool OrderValues(const ExprValue& a, const ExprValue& b, int* order) {
  if (a.kind == ExprKind::kInteger && b.kind == ExprKind::kInteger) {
    *order = a.integer < b.integer ? -1 : (a.integer > b.integer ? 1 : 0);
    return true;
  }
  if (IsNumber(a) && IsNumber(b)) {
    double x = AsDouble(a), y = AsDouble(b);
    if (std::isnan(x) || std::isnan(y)) return false;
    *order = x < y ? -1 : (x > y ? 1 : 0);
    return true;
  }
  if (a.kind == ExprKind::kDate && b.kind == ExprKind::kDate) {
    *order = a.integer < b.integer ? -1 : (a.integer > b.integer ? 1 : 0);
    return true;
  }
  if (a.kind == ExprKind::kText && b.kind == ExprKind::kText) {
    *order = CollateTexts(a.text, b.text);
    return true;
  }
  return false;
}

OpStatus Arithmetic(int32_t op, const ExprValue& a, const ExprValue& b, ExprValue* out) {
  const ExprKind ka = a.kind, kb = b.kind;
  if (ka == ExprKind::kNone || kb == ExprKind::kNone) {
    *out = ExprValue::None();
    return OpStatus::kOk;
  }
  if (ka == ExprKind::kInteger && kb == ExprKind::kInteger) return IntegerArithmetic(op, a.integer, b.integer, out);
  if (IsNumber(a) && IsNumber(b)) return FloatArithmetic(op, AsDouble(a), AsDouble(b), out);

  int64_t days = 0;
  if (ka == ExprKind::kDate && IsNumber(b) && (op == kAdd || op == kSub)) {
    if (!WholeDays(b, &days)) return OpStatus::kDomain;
    return MoveDate(a.integer, days, op == kAdd ? 1 : -1, out);
  }
  if (IsNumber(a) && kb == ExprKind::kDate && op == kAdd) {
    if (!WholeDays(a, &days)) return OpStatus::kDomain;
    return MoveDate(b.integer, days, 1, out);
  }
  if (ka == ExprKind::kDate && kb == ExprKind::kDate && op == kSub) {
    Int128 diff = static_cast<Int128>(a.integer) - b.integer;
    *out = ExprValue::Integer(static_cast<int64_t>(diff / base::kTicksPerDay));
    return OpStatus::kOk;
  }
  if (ka == ExprKind::kText && kb == ExprKind::kText && op == kAdd) {
    *out = ExprValue::Text(a.text + b.text);
    return OpStatus::kOk;
  }
  return OpStatus::kMismatch;
}

OpStatus Compare(int32_t op, const ExprValue& a, const ExprValue& b, ExprValue* out) {
  if (a.IsNone() || b.IsNone()) {
    *out = ExprValue::Bool(false);
    return OpStatus::kOk;
  }
  if (!SameKindFamily(a, b)) return OpStatus::kMismatch;

  if (a.kind == ExprKind::kText && (op == kEq || op == kNe || op == kApprox)) {
    bool ignore_case = op == kApprox;
    bool equal;
    if (IsPattern(b)) {
      equal = WildcardMatch(b.text, a.text, ignore_case);
    } else if (IsPattern(a)) {
      equal = WildcardMatch(a.text, b.text, ignore_case);
    } else if (ignore_case) {
      equal = FoldCase(a.text) == FoldCase(b.text);
    } else {
      equal = CollateTexts(a.text, b.text) == 0;
    }
    *out = ExprValue::Bool(op == kNe ? !equal : equal);
    return OpStatus::kOk;
  }

  if (op == kApprox) {
    bool near;
    if (a.kind == ExprKind::kDate) {
      near = LocalDay(a.integer) == LocalDay(b.integer);
    } else if (a.kind == ExprKind::kInteger && b.kind == ExprKind::kInteger) {
      near = ApproxIntegers(a.integer, b.integer);
    } else {
      near = ApproxFloats(AsDouble(a), AsDouble(b));
    }
    *out = ExprValue::Bool(near);
    return OpStatus::kOk;
  }

  int order = 0;
  if (!OrderValues(a, b, &order)) {
    // Only NaN gets here: it equals nothing and is not ordered.
    *out = ExprValue::Bool(op == kNe);
    return OpStatus::kOk;
  }
  bool result = false;
  switch (op) {
    case kEq: result = order == 0; break;
    case kNe: result = order != 0; break;
    case kGt: result = order >= 0; break;
    case kLt: result = order <= 0; break;
    default: return OpStatus::kMismatch;
  }
  *out = ExprValue::Bool(result);
  return OpStatus::kOk;
}

ExprValue ApplyUnary(const ExprValue& v, bool negative, bool negate) {
  if (negate) return ExprValue::Bool(!v.Truth());
  if (!negative) return v;
  switch (v.kind) {
    case ExprKind::kInteger: return ExprValue::Integer(Wrap(0 - static_cast<uint64_t>(v.integer)));
    case ExprKind::kFloat: return ExprValue::Float(-v.real);
    case ExprKind::kNone: return v;
    case ExprKind::kText:
    case ExprKind::kDate: return ExprValue::Bool(!v.Truth());
  }
  return v;
}

}  // namespace trovix::rules::expr
