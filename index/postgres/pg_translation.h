// The PostgreSQL back end of the SystemIndex dialect: a parsed query (index/dialect/sql_syntax.h)
// becomes the condition of one statement over the shared index's items (pg_schema.h), with
// every value of the query as a bound parameter ($1, $2 ...) and only the schema's own table
// and column names written into the SQL.
//
// What the answers mean is what the local index's answers mean (sqlite_translation.h), so that
// both equal the folder walk's: text compares folded (the *_key columns and prop_keys hold
// folded text, and the values are folded here the same way); a date literal stands for its
// whole second; a missing value satisfies no comparison and NOT over it is true.
//
// Names and paths: LIKE on name_key / path_key, which pg_trgm's GIN indexes answer for a
// fragment anywhere; PostgreSQL re-checks every candidate itself, so the answer is exact.
//
// Contents, CONTAINS('...') without a column: each word or phrase is a substring of an item's
// text as the walk reads it (folded, white-space runs as one blank), confirmed on the kept
// piece with strpos. Candidates come from one of two GIN indexes:
//   - the tsvector of the piece ('simple' configuration: no stemming and no stop words, so
//     every word is kept as written and a word of the phrase is found as itself; a language's
//     configuration would drop "the" and fold "running" into "run", and then a phrase would
//     not be asked for what the walk looks for) when the phrase has words inside it, between
//     two blanks: those are whole words of the text, whatever stands around the phrase. The
//     first and last words may be pieces of longer words ("ello wor" is in "hello world"), so
//     they are not asked of the word index;
//   - otherwise the trigrams of the text (a fragment anywhere, as for names).
//
// Reentrant.
#pragma once

#include <string>
#include <vector>

#include "index/dialect/sql_syntax.h"
#include "index/postgres/pg_connection.h"

namespace trovix::engine::index {

struct PgQuery {
  std::string where;            // a condition over the table "items"; "true" for no WHERE part
  std::vector<PgParam> params;  // for $1, $2 ... in order
};

struct PgTranslateOptions {
  // The server's name from indexes.conf: a table prefix naming it is this index. A query with
  // no prefix is taken as meant for it too.
  std::string server;
};

// False with a message (with the position in the query text where it can) for a query this
// index cannot answer faithfully; the search then walks.
bool TranslateToPostgres(const SqlStatement& statement, const PgTranslateOptions& options, PgQuery* out,
                         std::string* error);

// A LIKE pattern of the dialect (index/dialect/like_pattern.h), already folded and in key
// text, as a PostgreSQL LIKE pattern with "\" as its escape character.
std::string PgLikePattern(std::string_view pattern);

}  // namespace trovix::engine::index
