// The SQL functions the index's queries call (sqlite_translation.h writes them), registered
// per connection. They give the database the folder walk's notion of text:
//   tx_fold(text)                      simple case folding (rules::detail::FoldText)
//   tx_like(folded_value, folded_pattern)  LIKE with the dialect's bracket escapes, per code
//                                      point (like_pattern.h)
//   tx_contains(folded_value, folded_literal)  substring test
//   tx_text_contains(piece_blob, literal)  substring test on a kept text piece (texts.body,
//                                      text_pieces.h), the literal folded as the text is
// Each gives NULL for a NULL argument, so a missing value satisfies no test. They are
// deterministic and keep no state beyond the compiled pattern SQLite caches per statement.
#pragma once

#include <sqlite3.h>

namespace trovix::engine::index {

// SQLITE_OK, or the first error code SQLite gave.
int RegisterIndexFunctions(sqlite3* db);

}  // namespace trovix::engine::index
