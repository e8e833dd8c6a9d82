// The evaluator: recursive descent over the checked token program, five levels from loosest
// to tightest (logical, comparison, additive, multiplicative, unary and primary). Recursion
// happens only through brackets, whose depth the syntax check bounds, so evaluation depth is
// bounded too; runs of operators and signs are loops.

#include "rules/expression/expression_internal.h"

namespace trovix::rules::expr {
namespace {

class Evaluator {
 public:
  Evaluator(const Program& program, std::vector<ExprValue>& values, ExpressionHost& host, const EvalOptions& options)
      : p_(program), values_(values), host_(host), options_(options), asked_(program.names.size(), false) {}

  EvalOutcome Run() {
    EvalOutcome outcome;
    size_t i = 0;
    ExprValue v;
    outcome.ok = Logical(i, &v) && At(i) == kEnd;
    if (!outcome.ok && failure_ == OpStatus::kOk) {
      failure_ = OpStatus::kMismatch;  // a malformed program: never expected after the check
      failed_token_ = i;
    }
    outcome.value = std::move(v);
    outcome.failure = failure_;
    outcome.failed_token = failed_token_;
    outcome.used_item = used_item_;
    return outcome;
  }

 private:
  int32_t At(size_t i) const { return i < p_.tokens.size() ? p_.tokens[i] : kEnd; }

  bool Fail(OpStatus status, size_t token) {
    failure_ = status;
    failed_token_ = token;
    return false;
  }

  // Applies an operator's status: in the trial, failures that depend on the values give
  // "no value" and the walk goes on, so that a mismatch further on is still found.
  bool Check(OpStatus status, size_t token, ExprValue* out) {
    if (status == OpStatus::kOk) return true;
    if (status == OpStatus::kDomain && options_.evaluate_all) {
      *out = ExprValue::None();
      return true;
    }
    return Fail(status, token);
  }

  // Passes over one operand of "&" or "|" without evaluating it.
  void Skip(size_t& i) const {
    int depth = 0;
    for (;; ++i) {
      int32_t t = At(i);
      if (t == kEnd) return;
      if (t == kOpen) {
        ++depth;
      } else if (t == kClose) {
        if (depth == 0) return;
        --depth;
      } else if (depth == 0 && (t == kAnd || t == kOr || t == kXor || t == kComma)) {
        return;
      }
    }
  }

  bool Logical(size_t& i, ExprValue* out) {
    if (!Comparison(i, out)) return false;
    for (;;) {
      const int32_t op = At(i);
      if (op != kAnd && op != kOr && op != kXor) return true;
      ++i;
      const bool left = out->Truth();
      const bool decided = (op == kAnd && !left) || (op == kOr && left);
      if (decided && !options_.evaluate_all) {
        Skip(i);
        *out = ExprValue::Bool(left);
        continue;
      }
      ExprValue right;
      if (!Comparison(i, &right)) return false;
      const bool r = right.Truth();
      *out = ExprValue::Bool(op == kAnd ? left && r : op == kOr ? left || r : left != r);
    }
  }

  bool Comparison(size_t& i, ExprValue* out) {
    if (!Additive(i, out)) return false;
    for (;;) {
      const int32_t op = At(i);
      if (op < kEq || op > kLt) return true;
      const size_t op_token = i++;
      ExprValue right;
      if (!Additive(i, &right)) return false;
      ExprValue result;
      if (!Check(Compare(op, *out, right, &result), op_token, &result)) return false;
      *out = std::move(result);
    }
  }

  bool Additive(size_t& i, ExprValue* out) {
    if (!Multiplicative(i, out)) return false;
    for (;;) {
      const int32_t op = At(i);
      if (op != kAdd && op != kSub) return true;
      const size_t op_token = i++;
      ExprValue right;
      if (!Multiplicative(i, &right)) return false;
      ExprValue result;
      if (!Check(Arithmetic(op, *out, right, &result), op_token, &result)) return false;
      *out = std::move(result);
    }
  }

  bool Multiplicative(size_t& i, ExprValue* out) {
    if (!Unary(i, out)) return false;
    for (;;) {
      const int32_t op = At(i);
      if (op != kMul && op != kDiv && op != kMod) return true;
      const size_t op_token = i++;
      ExprValue right;
      if (!Unary(i, &right)) return false;
      ExprValue result;
      if (!Check(Arithmetic(op, *out, right, &result), op_token, &result)) return false;
      *out = std::move(result);
    }
  }

  bool Unary(size_t& i, ExprValue* out) {
    bool negative = false, negate = false;
    for (;; ++i) {
      const int32_t t = At(i);
      if (t == kNeg) {
        negative = !negative;
      } else if (t == kNot) {
        negate = !negate;
      } else if (t != kPos) {
        break;
      }
    }
    if (!Primary(i, out)) return false;
    if (negative || negate) *out = ApplyUnary(*out, negative, negate);
    return true;
  }

  bool Primary(size_t& i, ExprValue* out) {
    const size_t start = i;
    const int32_t t = At(i++);
    if (IsConstant(t)) {
      size_t k = ConstantIndex(t);
      if (k >= p_.constants.size()) return Fail(OpStatus::kMismatch, start);
      *out = p_.constants[k];
      return true;
    }
    if (IsReference(t)) {
      size_t k = ReferenceIndex(t);
      if (k >= p_.names.size()) return Fail(OpStatus::kMismatch, start);
      return Fetch(k, out);
    }
    if (t == kOpen) {
      if (!Logical(i, out)) return false;
      if (At(i) != kClose) return Fail(OpStatus::kMismatch, i);
      ++i;
      return true;
    }
    if (IsFunction(t)) return Call(t, start, i, out);
    return Fail(OpStatus::kMismatch, start);
  }

  bool Fetch(size_t k, ExprValue* out) {
    used_item_ = true;
    if (values_[k].IsNone() && !asked_[k]) {
      asked_[k] = true;
      host_.FetchValue(k, p_.names[k], &values_[k]);
    }
    *out = values_[k];
    return true;
  }

  bool Call(int32_t function, size_t function_token, size_t& i, ExprValue* out) {
    if (At(i) != kOpen) return Fail(OpStatus::kMismatch, i);
    ++i;
    std::vector<ExprValue> args;
    std::vector<size_t> arg_tokens;
    for (;;) {
      arg_tokens.push_back(i);
      ExprValue arg;
      if (!Logical(i, &arg)) return false;
      args.push_back(std::move(arg));
      if (At(i) == kComma) {
        ++i;
        continue;
      }
      if (At(i) != kClose) return Fail(OpStatus::kMismatch, i);
      ++i;
      break;
    }
    if (function == kGrep) {
      if (args.size() != 1 || (MaskOf(args[0].kind) & kMaskText) == 0)
        return Fail(OpStatus::kMismatch, arg_tokens[0]);
      used_item_ = true;
      *out = ExprValue::Bool(false);
      host_.Grep(args[0], out);
      return true;
    }
    size_t bad_arg = 0;
    OpStatus status = CallFunction(function, args, out, &bad_arg);
    size_t at = bad_arg < arg_tokens.size() ? arg_tokens[bad_arg] : function_token;
    return Check(status, at, out);
  }

  const Program& p_;
  std::vector<ExprValue>& values_;
  ExpressionHost& host_;
  const EvalOptions& options_;
  std::vector<bool> asked_;
  bool used_item_ = false;
  OpStatus failure_ = OpStatus::kOk;
  size_t failed_token_ = 0;
};

}  // namespace

EvalOutcome Run(const Program& program, std::vector<ExprValue>& values, ExpressionHost& host,
                const EvalOptions& options) {
  if (values.size() < program.names.size()) values.resize(program.names.size());
  return Evaluator(program, values, host, options).Run();
}

}  // namespace trovix::rules::expr
