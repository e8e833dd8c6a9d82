#include "index/dialect/sql_lexer.h"

#include <charconv>

namespace trovix::engine::index {
namespace {

bool IsIdentStart(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || static_cast<unsigned char>(c) >= 0x80;
}
bool IsIdentPart(char c) { return IsIdentStart(c) || (c >= '0' && c <= '9') || c == '.' || c == '-'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

// A quoted run starting at text[i] (the mark), with a doubled mark standing for one. Returns
// the offset after the closing mark, or npos when there is none.
size_t Quoted(std::string_view text, size_t i, char mark, std::string* out) {
  for (size_t j = i + 1; j < text.size(); ++j) {
    if (text[j] != mark) {
      *out += text[j];
    } else if (j + 1 < text.size() && text[j + 1] == mark) {
      *out += mark;
      ++j;
    } else {
      return j + 1;
    }
  }
  return std::string_view::npos;
}

}  // namespace

size_t SqlPosition(std::string_view text, size_t offset) {
  size_t position = 1;
  for (size_t i = 0; i < offset && i < text.size(); ++i)
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) ++position;
  return position;
}

bool TokenizeSql(std::string_view text, std::vector<SqlToken>* tokens, std::string* error) {
  tokens->clear();
  size_t i = 0;
  while (true) {
    while (i < text.size() && IsBlank(text[i])) ++i;
    SqlToken token;
    token.offset = i;
    if (i >= text.size()) {
      tokens->push_back(std::move(token));
      return true;
    }
    const char c = text[i];
    if (IsIdentStart(c)) {
      size_t j = i;
      while (j < text.size() && IsIdentPart(text[j])) ++j;
      token.kind = SqlTokenKind::kIdentifier;
      token.text.assign(text.substr(i, j - i));
      i = j;
    } else if (c == '"' || c == '\'') {
      token.kind = c == '"' ? SqlTokenKind::kQuotedIdentifier : SqlTokenKind::kString;
      const size_t end = Quoted(text, i, c, &token.text);
      if (end == std::string_view::npos) {
        *error = std::string("unterminated ") + (c == '"' ? "name" : "string") + " starting at " +
                 std::to_string(SqlPosition(text, i));
        return false;
      }
      i = end;
    } else if (IsDigit(c) || (c == '.' && i + 1 < text.size() && IsDigit(text[i + 1]))) {
      size_t j = i;
      bool is_float = false;
      while (j < text.size() && IsDigit(text[j])) ++j;
      if (j < text.size() && text[j] == '.') {
        is_float = true;
        ++j;
        while (j < text.size() && IsDigit(text[j])) ++j;
      }
      if (j < text.size() && (text[j] == 'e' || text[j] == 'E')) {
        size_t k = j + 1;
        if (k < text.size() && (text[k] == '+' || text[k] == '-')) ++k;
        if (k < text.size() && IsDigit(text[k])) {
          is_float = true;
          j = k;
          while (j < text.size() && IsDigit(text[j])) ++j;
        }
      }
      token.text.assign(text.substr(i, j - i));
      const char* first = text.data() + i;
      const char* last = text.data() + j;
      if (!is_float && std::from_chars(first, last, token.integer).ec == std::errc()) {
        token.kind = SqlTokenKind::kInteger;
      } else {
        token.kind = SqlTokenKind::kFloat;
        const auto result = std::from_chars(first, last, token.real);
        if (result.ec == std::errc::result_out_of_range) {
          token.real = __builtin_huge_val();
        } else if (result.ec != std::errc()) {
          *error = "bad number at " + std::to_string(SqlPosition(text, i));
          return false;
        }
      }
      i = j;
    } else if (c == '<' || c == '>' || c == '=' || c == '!') {
      size_t n = 1;
      if (i + 1 < text.size() && (text[i + 1] == '=' || (c == '<' && text[i + 1] == '>'))) n = 2;
      if (c == '!' && n == 1) {
        *error = "unexpected '!' at " + std::to_string(SqlPosition(text, i));
        return false;
      }
      if (c == '=' && n == 2) n = 1;  // "==" is two tokens, and the parser rejects the second
      token.kind = SqlTokenKind::kOperator;
      token.text.assign(text.substr(i, n));
      i += n;
    } else {
      switch (c) {
        case '(': token.kind = SqlTokenKind::kOpen; break;
        case ')': token.kind = SqlTokenKind::kClose; break;
        case ',': token.kind = SqlTokenKind::kComma; break;
        case '*': token.kind = SqlTokenKind::kStar; break;
        case '-': token.kind = SqlTokenKind::kMinus; break;
        case ';': token.kind = SqlTokenKind::kSemicolon; break;
        default: {
          // Name the whole character, not one byte of it.
          size_t n = 1;
          while (i + n < text.size() && (static_cast<unsigned char>(text[i + n]) & 0xC0) == 0x80 && n < 4) ++n;
          *error = "unexpected '" + std::string(text.substr(i, n)) + "' at " + std::to_string(SqlPosition(text, i));
          return false;
        }
      }
      token.text.assign(1, c);
      ++i;
    }
    tokens->push_back(std::move(token));
  }
}

}  // namespace trovix::engine::index
