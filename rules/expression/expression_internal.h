// Internals of the expression language shared by its lexer, syntax check, evaluator and
// functions. Not for use outside rules/expression*.cpp. Plain functions and data; the
// collation helpers keep one collator per thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/file_time.h"
#include "rules/expression/expression.h"

namespace trovix::rules::expr {

// Token codes of the compiled program.
enum Token : int32_t {
  kAnd = 0,
  kOr = 1,
  kXor = 2,
  kEq = 3,
  kNe = 4,
  kApprox = 5,
  kGt = 6,  // at least
  kLt = 7,  // at most
  kAdd = 8,
  kSub = 9,
  kMul = 10,
  kDiv = 11,
  kMod = 12,
  kComma = 13,
  kNeg = 14,
  kPos = 15,
  kNot = 16,
  kOpen = 17,
  kClose = 18,
  kLen = 19,
  kMid = 20,
  kTrim = 21,
  kFind = 22,
  kDpart = 23,
  kMin = 24,
  kMax = 25,
  kAbs = 26,
  kStr = 27,
  kGrep = 28,
  kEnd = 29,
};

inline constexpr int32_t kFirstConstant = -1001;
inline int32_t ReferenceCode(size_t k) { return -static_cast<int32_t>(k) - 1; }
inline int32_t ConstantCode(size_t k) { return kFirstConstant - static_cast<int32_t>(k); }
inline bool IsReference(int32_t code) { return code < 0 && code > kFirstConstant; }
inline bool IsConstant(int32_t code) { return code <= kFirstConstant; }
inline size_t ReferenceIndex(int32_t code) { return static_cast<size_t>(-code - 1); }
inline size_t ConstantIndex(int32_t code) { return static_cast<size_t>(kFirstConstant - code); }
inline bool IsFunction(int32_t code) { return code >= kLen && code <= kGrep; }
inline bool IsBinaryOperator(int32_t code) { return code >= kAnd && code <= kMod; }

// Dates stay within 1601 and the last file time less two days, so that a time-zone offset
// never overflows; arithmetic that leaves the range fails.
inline constexpr int64_t kMaxDateTicks = INT64_MAX - 2 * base::kTicksPerDay;
inline int64_t ClampDate(int64_t ticks) { return ticks < 0 ? 0 : (ticks > kMaxDateTicks ? kMaxDateTicks : ticks); }

// Argument type masks of the function signatures.
enum TypeMask : uint8_t { kMaskInteger = 1, kMaskDate = 2, kMaskFloat = 4, kMaskText = 8, kMaskAny = 15 };

struct FunctionInfo {
  const char* name;
  int arity;
  uint8_t masks[3];
};
// Indexed by code - kLen.
const FunctionInfo& FunctionOf(int32_t code);
// The function token for a bare word, or -1.
int32_t FunctionCodeOf(std::string_view word);
uint8_t MaskOf(ExprKind kind);

// ----- Lexing and the syntax check -----

struct LexToken {
  int32_t code;
  size_t pos;  // byte offset in the stripped text
};

struct LexOutput {
  std::vector<LexToken> tokens;
  std::vector<std::string> names;  // as typed, distinct ignoring ASCII case
  std::vector<size_t> name_positions;  // byte offset of each name's first `$`
  std::vector<ExprValue> constants;
  int32_t error = kExprNoError;
  size_t error_pos = 0;
};

// Removes blanks, tabs, CR and LF outside double quotes.
std::string StripBlanks(std::string_view text);
LexOutput Lex(const std::string& text);
// Checks the token list and turns signs in operand position into unary signs. Returns the
// error code (0 when fine) and sets *error_pos to the byte position. Appends kEnd on success.
int32_t CheckSyntax(std::vector<LexToken>& tokens, size_t text_size, size_t* error_pos);

// Classifies a constant's text: quote is 0 (bare), '\'' or '"'.
ExprValue ClassifyConstant(std::string_view text, char quote);
// The text of str(): the value as a rule box would show it.
std::string ValueToText(const ExprValue& v);

// ----- Evaluation -----

enum class OpStatus { kOk, kMismatch, kDomain };

OpStatus Arithmetic(int32_t op, const ExprValue& a, const ExprValue& b, ExprValue* out);
OpStatus Compare(int32_t op, const ExprValue& a, const ExprValue& b, ExprValue* out);
// Three-way order of two values as "<" orders them; false when the kinds cannot be ordered
// (or a float is NaN).
bool OrderValues(const ExprValue& a, const ExprValue& b, int* order);
// Unary run applied to a primary.
ExprValue ApplyUnary(const ExprValue& v, bool negative, bool negate);

// Calls function `code` on already evaluated arguments (grep excluded: the evaluator sends
// it to the host). On failure *bad_arg is the index of the offending argument.
OpStatus CallFunction(int32_t code, const std::vector<ExprValue>& args, ExprValue* out, size_t* bad_arg);

// Locale-aware, case-sensitive order of two texts: <0, 0, >0.
int CollateTexts(const std::string& a, const std::string& b);
// Whole-text wildcard match: "*" any run of characters, "?" one character.
bool WildcardMatch(std::string_view pattern, std::string_view text, bool ignore_case);
std::string FoldCase(std::string_view text);
// Characters as code points.
std::u32string ToCodePoints(std::string_view utf8);
std::string FromCodePoints(std::u32string_view cps);

struct EvalOptions {
  bool evaluate_all = false;   // trial: both sides of "&" and "|", value failures yield no value
};

struct EvalOutcome {
  bool ok = false;
  ExprValue value;
  OpStatus failure = OpStatus::kOk;
  size_t failed_token = 0;
  bool used_item = false;  // a value was fetched or grep was called
};

struct Program {
  const std::vector<int32_t>& tokens;
  const std::vector<ExprValue>& constants;
  const std::vector<std::string>& names;
};

EvalOutcome Run(const Program& program, std::vector<ExprValue>& values, ExpressionHost& host,
                const EvalOptions& options);

}  // namespace trovix::rules::expr
