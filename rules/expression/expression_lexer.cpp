// Lexing of expressions: the blank-stripping pre-pass and the token scanner.

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <cctype>
#include <cstring>

#include "rules/expression/expression_internal.h"

namespace trovix::rules::expr {
namespace {

constexpr FunctionInfo kFunctions[] = {
    {"len", 1, {kMaskText, 0, 0}},
    {"mid", 3, {kMaskText, kMaskInteger, kMaskInteger}},
    {"trim", 1, {kMaskText, 0, 0}},
    {"find", 2, {kMaskText, kMaskText, 0}},
    {"dpart", 2, {kMaskDate, kMaskText, 0}},
    {"min", 2, {kMaskAny, kMaskAny, 0}},
    {"max", 2, {kMaskAny, kMaskAny, 0}},
    {"abs", 1, {kMaskInteger | kMaskFloat, 0, 0}},
    {"str", 1, {kMaskAny, 0, 0}},
    {"grep", 1, {kMaskText, 0, 0}},
};

bool IsOperatorChar(char c) { return c != '\0' && std::strchr("&|^=!~><+-*/%,()", c) != nullptr; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// A letter starts an unbraced property name; non-ASCII letters count too.
bool StartsWithLetter(const std::string& text, size_t i) {
  if (i >= text.size()) return false;
  int32_t offset = static_cast<int32_t>(i);
  UChar32 c;
  U8_NEXT(reinterpret_cast<const uint8_t*>(text.data()), offset, static_cast<int32_t>(text.size()), c);
  return c >= 0 && u_isalpha(c);
}

bool EqualsIgnoreAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
      return false;
  return true;
}

// Operator at text[i]; sets *length to the characters it takes.
int32_t OperatorAt(const std::string& text, size_t i, size_t* length) {
  char next = i + 1 < text.size() ? text[i + 1] : '\0';
  *length = 1;
  switch (text[i]) {
    case '&': return kAnd;
    case '|': return kOr;
    case '^': return kXor;
    case '=': return kEq;
    case '~': return kApprox;
    case '+': return kAdd;
    case '-': return kSub;
    case '*': return kMul;
    case '/': return kDiv;
    case '%': return kMod;
    case ',': return kComma;
    case '(': return kOpen;
    case ')': return kClose;
    case '!':
      if (next == '=') { *length = 2; return kNe; }
      return kNot;
    case '>':
      // ">=" is the same operator as ">": both include equality.
      if (next == '=') *length = 2;
      return kGt;
    case '<':
      if (next == '=') { *length = 2; return kLt; }
      if (next == '>') { *length = 2; return kNe; }
      return kLt;
  }
  return -1;
}

// End of a bare constant starting at `start`.
size_t ScanBare(const std::string& text, size_t start) {
  const size_t n = text.size();
  const bool digit_start = IsDigit(text[start]);
  size_t j = start + 1;
  while (j < n) {
    char c = text[j];
    if (digit_start && c == '-' && (text[j - 1] == 'e' || text[j - 1] == 'E')) {
      ++j;  // exponent sign
      continue;
    }
    if (digit_start && c == '/' && j - start <= 2 && j + 1 < n && IsDigit(text[j + 1])) {
      // A date such as 31/10/2010 (and its time) stays one token when it has two slashes.
      size_t k = j;
      int slashes = 0;
      while (k < n && (IsDigit(text[k]) || text[k] == '/' || text[k] == ':')) {
        if (text[k] == '/') ++slashes;
        ++k;
      }
      if (slashes == 2) {
        j = k;
        continue;
      }
      break;
    }
    if (!digit_start && c == '*') {
      ++j;  // wildcard patterns such as *.txt
      continue;
    }
    if (IsOperatorChar(c) || c == '\'' || c == '"' || c == '$') break;
    ++j;
  }
  return j;
}

}  // namespace

const FunctionInfo& FunctionOf(int32_t code) { return kFunctions[code - kLen]; }

int32_t FunctionCodeOf(std::string_view word) {
  for (int32_t code = kLen; code <= kGrep; ++code)
    if (word == FunctionOf(code).name) return code;
  return -1;
}

uint8_t MaskOf(ExprKind kind) {
  switch (kind) {
    case ExprKind::kInteger: return kMaskInteger;
    case ExprKind::kDate: return kMaskDate;
    case ExprKind::kFloat: return kMaskFloat;
    case ExprKind::kText: return kMaskText;
    case ExprKind::kNone: return kMaskAny;
  }
  return 0;
}

std::string StripBlanks(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  bool in_double_quotes = false;
  for (char c : text) {
    if (c == '"') in_double_quotes = !in_double_quotes;
    // Only double quotes protect blanks: 'a b' becomes 'ab' on purpose.
    if (!in_double_quotes && IsBlank(c)) continue;
    out.push_back(c);
  }
  return out;
}

LexOutput Lex(const std::string& text) {
  LexOutput out;
  const size_t n = text.size();
  auto fail = [&out](int32_t code, size_t pos) {
    out.error = code;
    out.error_pos = pos;
    return out;
  };
  auto operand_expected = [&out] {
    if (out.tokens.empty()) return true;
    int32_t last = out.tokens.back().code;
    return last >= 0 && last != kClose;
  };

  size_t i = 0;
  while (i < n) {
    const char c = text[i];
    if (c == '$') {
      std::string name;
      size_t end;
      if (i + 1 < n && text[i + 1] == '{') {
        size_t close = text.find('}', i + 2);
        if (close == std::string::npos) return fail(kExprOpenQuote, i + 1);
        name = text.substr(i + 2, close - i - 2);
        end = close + 1;
      } else if (StartsWithLetter(text, i + 1)) {
        end = i + 1;
        while (end < n && !IsOperatorChar(text[end]) && text[end] != '\'' && text[end] != '"' &&
               text[end] != '$')
          ++end;
        name = text.substr(i + 1, end - i - 1);
      } else {
        return fail(kExprUnexpectedToken, i + 1);
      }
      size_t k = 0;
      while (k < out.names.size() && !EqualsIgnoreAsciiCase(out.names[k], name)) ++k;
      if (k == out.names.size()) {
        if (out.names.size() >= Expression::kMaxNames) return fail(kExprUnexpectedToken, i);
        out.names.push_back(name);
        out.name_positions.push_back(i);
      }
      out.tokens.push_back({ReferenceCode(k), i});
      i = end;
      continue;
    }
    if (c == '\'' || c == '"') {
      size_t close = text.find(c, i + 1);
      if (close == std::string::npos) return fail(kExprOpenQuote, i);
      out.tokens.push_back({ConstantCode(out.constants.size()), i});
      out.constants.push_back(ClassifyConstant(std::string_view(text).substr(i + 1, close - i - 1), c));
      i = close + 1;
      continue;
    }
    size_t length;
    int32_t op = OperatorAt(text, i, &length);
    // Where an operand is due, "*" begins a pattern such as *.txt rather than a product.
    if (op >= 0 && !(c == '*' && operand_expected())) {
      out.tokens.push_back({op, i});
      i += length;
      continue;
    }
    size_t end = ScanBare(text, i);
    std::string_view word = std::string_view(text).substr(i, end - i);
    int32_t function = FunctionCodeOf(word);
    if (function >= 0) {
      out.tokens.push_back({function, i});
    } else {
      out.tokens.push_back({ConstantCode(out.constants.size()), i});
      out.constants.push_back(ClassifyConstant(word, 0));
    }
    i = end;
  }
  return out;
}

}  // namespace trovix::rules::expr
