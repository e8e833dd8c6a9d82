// Fuzzes the SystemIndex dialect: any text must parse or fail with a message whose position
// lies inside the text (or just past its end), and whatever parses must translate to SQLite or
// fail with a message, under both contents tokenizers. A translation must hold exactly one
// "?N" per parameter, since values are never written into the SQL.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "index/dialect/sql_lexer.h"
#include "index/dialect/sql_parser.h"
#include "index/sqlite/sqlite_translation.h"

namespace {

using namespace trovix::engine::index;

// The number after the last " at " of a message; 0 when there is none.
size_t PositionOf(const std::string& error) {
  const size_t at = error.rfind(" at ");
  if (at == std::string::npos) return 0;
  return static_cast<size_t>(std::strtoull(error.c_str() + at + 4, nullptr, 10));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  SqlStatement statement;
  std::string error;
  if (!ParseSql(text, &statement, &error)) {
    if (error.empty()) abort();
    const size_t position = PositionOf(error);
    if (position < 1 || position > SqlPosition(text, text.size()) + 1) abort();
    return 0;
  }
  for (ContentsTokenizer tokenizer : {ContentsTokenizer::kTrigram, ContentsTokenizer::kWords}) {
    SqliteTranslateOptions options;
    options.contents = tokenizer;
    SqliteQuery query;
    error.clear();
    if (!TranslateToSqlite(statement, options, &query, &error)) {
      if (error.empty()) abort();
      continue;
    }
    if (query.sql.rfind("SELECT items.id FROM items", 0) != 0) abort();
    for (size_t i = 1; i <= query.params.size(); ++i)
      if (query.sql.find("?" + std::to_string(i)) == std::string::npos) abort();
  }
  return 0;
}
