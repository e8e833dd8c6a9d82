// The tokens of the SystemIndex dialect. Keywords are identifiers here (the parser compares
// them ignoring case); identifiers may hold periods ("System.Size", "host.SystemIndex").
// Reentrant; no state beyond one call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace trovix::engine::index {

enum class SqlTokenKind {
  kEnd,
  kIdentifier,        // letters, digits, "_", "." and "-", starting with a letter or "_"
  kQuotedIdentifier,  // "System.Size": text without the marks, "" made one mark
  kString,            // 'text': text without the marks, '' made one apostrophe
  kInteger,           // digits (a value past int64 becomes kFloat)
  kFloat,             // digits with a period or an exponent
  kOperator,          // = <> != < <= > >=
  kOpen,
  kClose,
  kComma,
  kStar,
  kMinus,
  kSemicolon,
};

struct SqlToken {
  SqlTokenKind kind = SqlTokenKind::kEnd;
  std::string text;  // identifiers, strings, operators; the source text of numbers
  int64_t integer = 0;
  double real = 0;
  size_t offset = 0;  // byte offset in the query text
};

// Splits `text` into tokens ending with one kEnd token. False with a message naming the
// character position for a character no token starts with or an unterminated quotation.
bool TokenizeSql(std::string_view text, std::vector<SqlToken>* tokens, std::string* error);

// The 1-based character position of a byte offset of `text`.
size_t SqlPosition(std::string_view text, size_t offset);

}  // namespace trovix::engine::index
