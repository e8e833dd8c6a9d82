// The SQL functions the index's queries call (sqlite_translation.h writes them), registered
// per connection. They give the database the folder walk's notion of text:
//   tx_fold(text)                      simple case folding (rules::detail::FoldText)
//   tx_like(folded_value, folded_pattern)  LIKE with the dialect's bracket escapes, per code
//                                      point (like_pattern.h)
//   tx_contains(folded_value, folded_literal)  substring test
//   tx_piece_holds(piece_id, seams, body, literal)  whether a kept text piece (texts, see
//                                      text_pieces.h) holds the literal, folded as the text is:
//                                      its seams first, then its text, inflated
// Each gives NULL for a NULL argument (tx_piece_holds: for a NULL body or literal), so a
// missing value satisfies no test. They keep no state beyond what SQLite caches per statement
// and per literal: a compiled pattern, and the item whose piece last held the literal (a
// statement asks for the pieces in ascending order, and another piece of an item already
// found needs no inflating: the item is in the answer whatever its other pieces hold).
#pragma once

#include <sqlite3.h>

namespace trovix::engine::index {

// SQLITE_OK, or the first error code SQLite gave.
int RegisterIndexFunctions(sqlite3* db);

}  // namespace trovix::engine::index
