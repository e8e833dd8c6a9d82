#include "index/sqlite/index_translation.h"

#include <unistd.h>

#include "index/dialect/sql_parser.h"

namespace trovix::engine::index {

bool TranslateIndexSql(const std::string& text, ContentsTokenizer tokenizer, SqliteQuery* out, std::string* error) {
  SqlStatement statement;
  if (!ParseSql(text, &statement, error)) return false;
  SqliteTranslateOptions options;
  options.contents = tokenizer;
  char host[256] = {};
  if (::gethostname(host, sizeof host - 1) == 0) options.local_host = host;
  return TranslateToSqlite(statement, options, out, error);
}

}  // namespace trovix::engine::index
