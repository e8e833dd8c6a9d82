// A SystemIndex query as the index database answers it: the text parsed (sql_parser.h) and
// translated for SQLite (sqlite_translation.h) into a statement that returns item ids, with
// every literal bound as a parameter.
#pragma once

#include <string>

#include "index/sqlite/sqlite_translation.h"

namespace trovix::engine::index {

// False with a message for text the index cannot answer (malformed, or asking what the
// database does not keep); the search then walks.
bool TranslateIndexSql(const std::string& text, ContentsTokenizer tokenizer, SqliteQuery* out, std::string* error);

}  // namespace trovix::engine::index
