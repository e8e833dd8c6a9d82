// The SQLite back end of the SystemIndex dialect: a parsed query (sql_syntax.h) becomes one
// statement over the index database (index_schema.h) that returns the ids of the matching
// items, "SELECT items.id FROM items WHERE ...", or, when a name test with a trigram binds every
// row, "SELECT items.id FROM names CROSS JOIN items ON ... WHERE ...", which yields its first
// rows before the trigram's whole list is read. Every value of the query goes in as a bound
// parameter; only table and column names from the schema's fixed lists are written into the
// SQL. The statement calls the functions of sqlite_functions.h, so the connection needs
// RegisterIndexFunctions first.
//
// What the answers mean, so that they equal the folder walk's:
//   - text compares under the matchers' simple case folding; CONTAINS on a property is a
//     substring test per word or phrase (a prefix star adds nothing to a substring);
//   - a date literal stands for its whole second ("<= T" is "< T + 1 s");
//   - a missing value satisfies no comparison, and NOT over it is true (as the walk's NOT of a
//     rule whose value is missing);
//   - CONTAINS('...') without a column asks the contents table for the pieces of text that
//     hold every trigram of each word or phrase, and confirms the phrase itself on the kept
//     piece; the phrase's white space runs read as one blank, as the kept text's do, which is
//     how the walk reads a phrase. An index of words cannot answer it (the walk does).
// Queries the database cannot answer faithfully fail with a message; the caller then walks.
//
// Reentrant; the translation reads the property catalogue for the value types of properties
// without a column of their own.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <sqlite3.h>

#include "index/dialect/sql_syntax.h"
#include "index/sqlite/index_schema.h"

namespace trovix::engine::index {

using SqlParam = std::variant<int64_t, double, std::string>;

// A contents lookup of a query: the parameter that holds its FTS query of trigrams, and those
// trigrams, so that a connection can narrow it to the rare ones (contents_candidates.h).
struct ContentsLookup {
  size_t param = 0;  // index into SqliteQuery::params
  std::vector<std::string> trigrams;
};

struct SqliteQuery {
  std::string sql;
  std::vector<SqlParam> params;  // for ?1, ?2, ... in order
  std::vector<ContentsLookup> contents_lookups;
};

// The FTS5 query that asks for rows holding every one of `trigrams` (each quoted).
std::string TrigramMatch(const std::vector<std::string>& trigrams);

// How the contents table splits text (the meta key "contents_tokenizer").
enum class ContentsTokenizer { kTrigram, kWords };

// The tokenizer a meta value names; anything but a trigram tokenizer counts as words.
ContentsTokenizer TokenizerFromMeta(std::string_view value);

struct SqliteTranslateOptions {
  ContentsTokenizer contents = ContentsTokenizer::kTrigram;
  // This computer's name: a table prefix naming it (or "localhost") is the local index.
  std::string local_host;
};

// The value type an indexed property has, from the catalogue; kText for names the catalogue
// does not know, unless the literal (when given) says otherwise. Shared by every back end.
ColumnType IndexedPropertyType(const std::string& name, const SqlLiteral* literal);

// False with a message, naming the position in the query text where it can, for a query the
// database cannot answer (a remote machine, a date that is no date, CONTAINS on a number, a
// contents phrase too short for the trigram table ...).
bool TranslateToSqlite(const SqlStatement& statement, const SqliteTranslateOptions& options,
                       SqliteQuery* out, std::string* error);

// Binds the parameters of a translated query to a prepared statement. SQLITE_OK or the
// first error.
int BindSqliteParams(sqlite3_stmt* stmt, const std::vector<SqlParam>& params);

}  // namespace trovix::engine::index
