// Compiling an expression (pre-pass, lexing, syntax check, name resolution, trial
// evaluation), its error text, and evaluation for one item.

#include "rules/expression/expression.h"

#include <unicode/utf8.h>

#include <cmath>

#include "base/clock.h"
#include "props/catalogue.h"
#include "props/property_info.h"
#include "props/property_key.h"
#include "rules/expression/expression_internal.h"

namespace trovix::rules {
namespace {

constexpr const char* kMessages[] = {
    "",
    "unexpected token",
    "unbalanced bracket",
    "open quote",
    "wrong function argument",
    "operand mismatch",
    "expression is empty or invariable",
};

bool IsDateType(uint16_t base) { return base == props::VT_FILETIME || base == props::VT_DATE; }
bool IsFloatType(uint16_t base) { return base == props::VT_R8 || base == props::VT_R4; }
bool IsTextType(uint16_t base) {
  return base == props::VT_LPWSTR || base == props::VT_BSTR || base == props::VT_LPSTR;
}

// The made-up values of the trial: one of each property's type.
class TrialHost : public ExpressionHost {
 public:
  explicit TrialHost(const std::vector<const props::PropertyInfo*>& properties) : properties_(properties) {}

  void FetchValue(size_t index, const std::string&, ExprValue* value) override {
    const props::PropertyInfo* info = index < properties_.size() ? properties_[index] : nullptr;
    uint16_t type = info ? info->var_type() : static_cast<uint16_t>(props::VT_R8);
    uint16_t base = type & props::kVarTypeMask;
    if (IsDateType(base)) {
      *value = ExprValue::Date(base::NowUtc());
    } else if (IsTextType(base)) {
      *value = ExprValue::Text("1.2");
    } else if (IsFloatType(base) || (type & props::VT_VECTOR)) {
      *value = ExprValue::Float(1.2);
    } else {
      *value = ExprValue::Integer(1);
    }
  }

 private:
  const std::vector<const props::PropertyInfo*>& properties_;
};

int32_t CharacterIndex(const std::string& text, size_t byte_offset) {
  if (byte_offset > text.size()) byte_offset = text.size();
  int32_t count = 0;
  int32_t i = 0;
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  while (static_cast<size_t>(i) < byte_offset) {
    UChar32 c;
    U8_NEXT(bytes, i, static_cast<int32_t>(text.size()), c);
    (void)c;
    ++count;
  }
  return count;
}

}  // namespace

ExprValue ExprValue::Integer(int64_t v) {
  ExprValue e;
  e.kind = ExprKind::kInteger;
  e.integer = v;
  return e;
}

ExprValue ExprValue::Date(base::FileTime v) {
  ExprValue e;
  e.kind = ExprKind::kDate;
  e.integer = v;
  return e;
}

ExprValue ExprValue::Float(double v) {
  ExprValue e;
  e.kind = ExprKind::kFloat;
  e.real = v;
  e.integer = 0;
  return e;
}

ExprValue ExprValue::Text(std::string v, bool verbatim) {
  ExprValue e;
  e.kind = ExprKind::kText;
  e.text = std::move(v);
  e.verbatim = verbatim;
  e.integer = 0;
  return e;
}

ExprValue ExprValue::FromProp(const props::PropValue& value) {
  const uint16_t tag = value.tag();
  const uint16_t base = tag & props::kVarTypeMask;
  if (value.IsEmpty() || tag == props::VT_NULL) return None();
  if (tag & props::VT_VECTOR) {
    // Lists of texts read as one text; numeric lists (GPS positions) as their number.
    if (IsTextType(base)) {
      std::string joined = value.ToDisplayText();
      return joined.empty() ? None() : Text(std::move(joined));
    }
    return Float(value.AsDouble());
  }
  if (IsTextType(base)) return value.text().empty() ? None() : Text(value.text());
  if (IsDateType(base)) return Date(expr::ClampDate(value.AsInt64()));
  if (IsFloatType(base)) return Float(value.AsDouble());
  return Integer(value.AsInt64());
}

bool ExprValue::Truth() const {
  switch (kind) {
    case ExprKind::kNone: return false;
    case ExprKind::kText: return !text.empty();
    case ExprKind::kFloat: return real != 0.0;  // NaN is true
    case ExprKind::kInteger:
    case ExprKind::kDate: return integer != 0;
  }
  return false;
}

void ExpressionHost::Grep(const ExprValue&, ExprValue* result) { *result = ExprValue::Bool(false); }

void Expression::Reset() {
  text_.clear();
  names_.clear();
  properties_.clear();
  tokens_.clear();
  positions_.clear();
  constants_.clear();
  error_code_ = kExprNoError;
  error_position_ = 0;
  compiled_ = false;
}

void Expression::Fail(int32_t code, size_t byte_position) {
  error_code_ = code;
  error_position_ = CharacterIndex(text_, byte_position);
  compiled_ = false;
}

bool Expression::Compile(std::string_view text) { return Compile(text, props::DefaultCatalogue()); }

bool Expression::Compile(std::string_view text, const props::Catalogue& catalogue) {
  Reset();
  text_ = expr::StripBlanks(text);
  if (text_.empty()) {
    Fail(kExprEmptyOrInvariable, 0);
    return false;
  }

  expr::LexOutput lexed = expr::Lex(text_);
  if (lexed.error != kExprNoError) {
    Fail(lexed.error, lexed.error_pos);
    return false;
  }
  size_t error_pos = 0;
  int32_t error = expr::CheckSyntax(lexed.tokens, text_.size(), &error_pos);
  if (error != kExprNoError) {
    Fail(error, error_pos);
    return false;
  }
  if (lexed.names.empty()) {
    Fail(kExprEmptyOrInvariable, 0);
    return false;
  }

  tokens_.reserve(lexed.tokens.size());
  positions_.reserve(lexed.tokens.size());
  for (const expr::LexToken& t : lexed.tokens) {
    tokens_.push_back(t.code);
    positions_.push_back(t.pos);
  }
  names_ = std::move(lexed.names);
  constants_ = std::move(lexed.constants);

  if (!ResolveNames(catalogue, lexed.name_positions)) return false;
  if (!TrialEvaluate()) return false;
  compiled_ = true;
  return true;
}

bool Expression::ResolveNames(const props::Catalogue& catalogue, const std::vector<size_t>& name_positions) {
  std::vector<std::string> canonical;
  std::vector<size_t> remap(names_.size());
  for (size_t k = 0; k < names_.size(); ++k) {
    const props::PropertyInfo* info = names_[k].empty() ? nullptr : catalogue.Resolve(names_[k]);
    if (!info) {
      Fail(kExprUnexpectedToken, name_positions[k]);
      return false;
    }
    // The contents go through contents rules and grep(); an expression inside an expression,
    // or the free-text entry, has no value to compare.
    if (info->hash == props::hash::kSearchContents || info->hash == props::hash::kComplex ||
        info->has_flag(props::kPropFreeText)) {
      Fail(kExprOperandMismatch, name_positions[k]);
      return false;
    }
    // Two spellings of one property ("Size", "System.Size") become one reference.
    size_t j = 0;
    while (j < properties_.size() && properties_[j] != info) ++j;
    if (j == properties_.size()) {
      properties_.push_back(info);
      canonical.push_back(info->name);
    }
    remap[k] = j;
  }
  if (canonical.size() != names_.size()) {
    for (int32_t& code : tokens_)
      if (expr::IsReference(code)) code = expr::ReferenceCode(remap[expr::ReferenceIndex(code)]);
  }
  names_ = std::move(canonical);
  return true;
}

bool Expression::TrialEvaluate() {
  expr::Program program{tokens_, constants_, names_};
  TrialHost host(properties_);

  // Every branch once, so that a mismatch behind a short circuit is found too.
  std::vector<ExprValue> values;
  expr::EvalOptions all;
  all.evaluate_all = true;
  expr::EvalOutcome outcome = expr::Run(program, values, host, all);
  if (!outcome.ok) {
    size_t at = outcome.failed_token < positions_.size() ? positions_[outcome.failed_token] : text_.size();
    Fail(kExprOperandMismatch, at);
    return false;
  }

  // As for an item: an outcome decided before any value is asked for is invariable.
  values.clear();
  outcome = expr::Run(program, values, host, expr::EvalOptions());
  if (!outcome.used_item) {
    Fail(kExprEmptyOrInvariable, 0);
    return false;
  }
  return true;
}

std::string Expression::ErrorText() const {
  if (error_code_ == kExprNoError) return "NO ERROR!";
  std::string out = text_;
  out += "\r\n";
  out.append(static_cast<size_t>(error_position_), ' ');
  out += "^\r\n";
  out += kMessages[error_code_];
  out += "\r\n";
  return out;
}

ExprResult Expression::Evaluate(std::vector<ExprValue>& values, ExpressionHost& host) const {
  ExprResult result;
  if (!compiled_) {
    result.error = 1;
    return result;
  }
  expr::Program program{tokens_, constants_, names_};
  expr::EvalOutcome outcome = expr::Run(program, values, host, expr::EvalOptions());
  if (!outcome.ok) {
    result.error = static_cast<int32_t>(outcome.failed_token) + 1;
    return result;
  }
  result.matched = outcome.value.Truth();
  return result;
}

}  // namespace trovix::rules
