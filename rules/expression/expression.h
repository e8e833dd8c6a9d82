// The expression language of the "Complex" rule: one line such as
//   $System.DateModified < $System.DateCreated + 2
// compiled once into a token program and evaluated once per item.
//
// Compile() strips blanks outside double quotes, lexes, checks the syntax, resolves every
// `$` reference through the property catalogue to its canonical name and runs a trial
// evaluation with made-up values; a failure leaves an error code and a position in the
// stripped text, and ErrorText() is what the rule box shows in its "syntax error" box.
// Evaluate() runs the program for one item. Values are fetched lazily through an
// ExpressionHost: a reference that a short-circuited "&" or "|" passes over costs nothing.
//
// Thread-safety and ownership: a compiled Expression is immutable; Evaluate() is const and
// may run on several threads at once, each with its own values vector and host. The
// expression keeps plain pointers to catalogue entries, which live as long as the catalogue
// (the process, for DefaultCatalogue()).
//
// ---------------------------------------------------------------------------------------
// How the language decides what is left open (the one place these choices are written):
//
// Value kinds: integer, date (UTC file time), float, text, and "no value".
//   - Constants: a bare or single-quoted constant is classified by the value syntax of rule
//     boxes: digits are an integer (too large for 64 bits: a float), a decimal or exponent
//     number is a float, digits with a size unit ("100KB") are an integer of bytes ("1TB" is 0,
//     as in a Number rule box), h:m:s is an integer count of 100 ns ticks (the unit in which
//     duration properties are kept), and a token beginning with a digit that the date syntax
//     accepts ("31/10/2010", '2010-10-31') is a date (its first instant, local midnight).
//     Anything else, and everything in double quotes, is text. Double-quoted text is verbatim.
//   - Property values: date and time stamps are dates, single and double precision numbers are
//     floats, texts are texts (a list of texts joined by "; "), booleans are -1 / 0, all other
//     numbers integers. An item without a value, or with empty text, has "no value".
//   - True is the integer -1 (the menu's "Boolean TRUE"), false 0: every comparison, "&", "|",
//     "^" and "!" yields one of them.
//
// Arithmetic (I integer, F float, D date, T text; any other pairing is "operand mismatch"):
//   - I op I is I with two's-complement wrap-around on overflow; "/" truncates toward zero.
//     I with F, and F with F, is F. "%" on floats is the remainder of truncated division
//     (fmod: the sign follows the left operand).
//   - D + n, n + D, D - n move the date by n whole days (n truncated toward zero); D - D is the
//     whole number of days between them (truncated toward zero). A date moved out of range
//     is a failure.
//   - T + T concatenates. Text never converts to a number implicitly; str() goes the other way.
//   - Division or remainder by zero (integer or float) is a failure: the item does not match.
//   - "no value" in arithmetic gives "no value".
//   - A unary "-" on an integer or float negates it; on text or a date, where that is
//     impossible, the value is logically negated instead; "no value" stays "no value".
//
// Comparison ("=", "!=", "~", ">" meaning at least, "<" meaning at most):
//   - I and F compare as numbers (both integers: exactly; else as doubles, NaN equals
//     nothing). D compares with D. T compares with T by the locale's case-sensitive collation.
//     Other pairings are "operand mismatch".
//   - "~" on numbers: within 5 percent of the right operand, as an approximate Number rule
//     (integers: |b| * 5 / 100 truncated, at least 1; floats: |b| * 0.05, or 1.0 for b = 0).
//     "~" on dates: the same local calendar day. "~" on texts: equal ignoring case (simple
//     Unicode case folding, as the text rules ignore case).
//   - A bare or single-quoted text constant holding "*" or "?" is a wildcard pattern when it
//     is an operand of "=", "!=" or "~" ("*" any run, "?" one character, matching the whole
//     text; case-sensitive for "=" and "!=", ignoring case for "~"). Double-quoted text, text
//     from properties and text computed by functions is always verbatim.
//   - "!=" is exactly the negation of "=". Any comparison with "no value" is false, as a Number
//     rule never matches an item without a value.
//
// Functions (positions count characters, not bytes, and start at 1):
//   - len(t): number of characters. mid(t, start, count): the characters at positions
//     start .. start + count - 1 that exist (so mid("abc", 0, 2) is "a"). trim(t): without
//     leading and trailing white space. find(t, s): position of the first occurrence of s in
//     t, case-sensitive, 0 when absent (so it reads as a truth value); an empty s is found at 1.
//     For these text arguments "no value" reads as empty text.
//   - dpart(d, part): a field of the local date and time; part is "year", "month", "day",
//     "hour", "minute", "second" or "weekday" (1 Monday .. 7 Sunday, as the period words count
//     weekdays), any case, singular or plural. An unknown part is "operand mismatch".
//   - min(a, b), max(a, b): ordered as "<" orders them (mismatched kinds are "operand
//     mismatch"); a "no value" argument gives the other one; on a tie the first.
//   - abs(n): integer or float. str(v): integers in decimal, floats as "%g" (as a Float rule box
//     shows them), dates as a rule box shows a date with its time, text unchanged, "no value"
//     empty.
//   - grep(t): asks the host; true (-1) when the item's contents hold the text, else false.
//
// Trial evaluation at compile time: every property gets a made-up value of its catalogue type
// (dates the current time, floats 1.2, texts "1.2", other numbers 1). Both sides of "&" and
// "|" are evaluated once so that a mismatch anywhere is error 5; then the program runs as it
// would for an item, and when it asked for no value at all (nor for grep), its outcome cannot
// depend on the item: error 6. Failures that depend on the values (division by zero) are not
// compile errors.
//
// Errors of names: a reference the catalogue does not know is error 1 ("unexpected token"); a
// reference to the file contents, to "Complex" itself, or to any free-text entry is refused
// with error 5 ("operand mismatch"); both at the `$` of the reference. Brackets (plain and
// function calls) nest at most kMaxNesting deep: the bracket that goes deeper is error 1. A
// comma inside a plain bracket is error 1. An empty text is error 6 at position 0. A program
// that ends after an operator is error 1 at that operator.
// ---------------------------------------------------------------------------------------
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/file_time.h"
#include "base/status.h"
#include "props/prop_value.h"

namespace trovix::props {
class Catalogue;
struct PropertyInfo;
}  // namespace trovix::props

namespace trovix::rules {

enum class ExprKind : uint8_t { kNone, kInteger, kDate, kFloat, kText };

// One value of the expression language. "No value" keeps the sentinel pair in its payload.
struct ExprValue {
  ExprKind kind = ExprKind::kNone;
  // Text taken literally, never as a wildcard pattern. Only bare and single-quoted constants
  // clear it.
  bool verbatim = true;
  int64_t integer = static_cast<int64_t>(kNoValue);  // integer, or a date's ticks
  double real = 0;
  std::string text;

  static ExprValue None() { return ExprValue(); }
  static ExprValue Integer(int64_t v);
  static ExprValue Date(base::FileTime v);
  static ExprValue Float(double v);
  static ExprValue Text(std::string v, bool verbatim = true);
  static ExprValue Bool(bool v) { return Integer(v ? -1 : 0); }
  // The value of a property as the language sees it (see the block above).
  static ExprValue FromProp(const props::PropValue& value);

  bool IsNone() const { return kind == ExprKind::kNone; }
  // Text: not empty; no value: false; float: not 0.0 (NaN is true); integer, date: not 0.
  bool Truth() const;

  friend bool operator==(const ExprValue&, const ExprValue&) = default;
};

enum ExprErrorCode : int32_t {
  kExprNoError = 0,
  kExprUnexpectedToken = 1,
  kExprUnbalancedBracket = 2,
  kExprOpenQuote = 3,
  kExprWrongArgument = 4,
  kExprOperandMismatch = 5,
  kExprEmptyOrInvariable = 6,
};

// The owner's side of an evaluation: the current item's values and its contents.
class ExpressionHost {
 public:
  virtual ~ExpressionHost() = default;
  // Slot 0: the current item's value of names()[index] (a canonical name). Leave `value` as
  // no value when the item has none. Called only when the value is needed and not supplied.
  virtual void FetchValue(size_t index, const std::string& name, ExprValue* value) = 0;
  // Slot 1: grep on the current item for `pattern` (a text); the result is a truth value.
  // By default there are no contents to look in, so nothing is found.
  virtual void Grep(const ExprValue& pattern, ExprValue* result);
};

struct ExprResult {
  bool matched = false;
  // 0, or one more than the index of the token at which evaluation failed.
  int32_t error = 0;
};

class Expression {
 public:
  // Deeper brackets (plain or of a function call) are a syntax error.
  static constexpr int kMaxNesting = 64;
  // `$` references use the operand codes -1 .. -1000.
  static constexpr size_t kMaxNames = 1000;

  // Compiles against the default catalogue. False with error_code() and error_position() set.
  bool Compile(std::string_view text);
  bool Compile(std::string_view text, const props::Catalogue& catalogue);

  // The stripped text, the caret under the error position and the message, lines ended by
  // "\r\n"; "NO ERROR!" when there is no error.
  std::string ErrorText() const;
  int32_t error_code() const { return error_code_; }
  // Character index (not byte) in text().
  int32_t error_position() const { return error_position_; }
  bool compiled() const { return compiled_; }

  // The source without blanks (those inside double quotes are kept).
  const std::string& text() const { return text_; }
  // Canonical names of the properties referenced, distinct, in order of first appearance.
  const std::vector<std::string>& names() const { return names_; }
  // Catalogue entries of names(), same order.
  const std::vector<const props::PropertyInfo*>& properties() const { return properties_; }
  // The program: operator and function codes 0..28, references -1 - k, constants -1001 - k,
  // ended by 29.
  const std::vector<int32_t>& tokens() const { return tokens_; }
  const std::vector<ExprValue>& constants() const { return constants_; }

  // Evaluates for one item. `values` holds the item's values for names() (it is resized to
  // names().size()); an entry that is no value when needed is fetched from `host` and kept.
  // Not compiled: no match, error 1.
  ExprResult Evaluate(std::vector<ExprValue>& values, ExpressionHost& host) const;

 private:
  void Reset();
  void Fail(int32_t code, size_t byte_position);
  bool ResolveNames(const props::Catalogue& catalogue, const std::vector<size_t>& name_positions);
  bool TrialEvaluate();

  std::string text_;
  std::vector<std::string> names_;
  std::vector<const props::PropertyInfo*> properties_;
  std::vector<int32_t> tokens_;
  std::vector<size_t> positions_;  // byte offset in text_ of each token
  std::vector<ExprValue> constants_;
  int32_t error_code_ = kExprNoError;
  int32_t error_position_ = 0;
  bool compiled_ = false;
};

}  // namespace trovix::rules
