// The parser of the SystemIndex dialect (the grammar is in sql_syntax.h). Recursive descent
// with the nesting limited to kMaxSqlDepth, so no input can exhaust the stack. Errors name what
// was found and where: "unexpected ')' at 34" (1-based character positions). Reentrant.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "base/file_time.h"
#include "index/dialect/sql_syntax.h"

namespace trovix::engine::index {

// Parses a whole query. False with a message (and *out left in an unspecified state) when
// `text` is not one.
bool ParseSql(std::string_view text, SqlStatement* out, std::string* error);

// Parses the query inside CONTAINS('...'). `position` is where the query starts in the whole
// text, so that errors point into it.
bool ParseContainsQuery(std::string_view query, size_t position, std::unique_ptr<ContainsNode>* out,
                        std::string* error);

// A date literal, 'YYYY/MM/DD hh:mm:ss' or 'YYYY-MM-DD hh:mm:ss' in UTC (the time, or its
// seconds, may be left out), as a file time. False for anything else.
bool ParseDateLiteral(std::string_view text, base::FileTime* out);

}  // namespace trovix::engine::index
