// The syntax tree of a SystemIndex query, as the parser (sql_parser.h) makes it from text such
// as the query builder writes (rules/query/query_builder.h) or a user edits:
//
//   SELECT col [, col]* FROM [machine.]SystemIndex [WHERE condition]
//
// The tree knows nothing of any database: a back end (sqlite_translation.h) turns it into its
// own SQL. Positions are 1-based character positions in the query text, for error messages.
//
// Depth: the parser limits nesting (brackets and NOT) to kMaxSqlDepth, and AND/OR chains are
// kept flat (one node with many children), so walking a tree recursively is always safe.
// Ownership: each node owns its children. Plain data, no thread concerns.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace trovix::engine::index {

inline constexpr int kMaxSqlDepth = 200;

struct SqlLiteral {
  enum class Kind { kInteger, kFloat, kText, kBool };
  Kind kind = Kind::kInteger;
  int64_t integer = 0;  // kInteger, and kBool as 1 or 0
  double real = 0;      // kFloat
  std::string text;     // kText, with '' already made one apostrophe
};

enum class SqlCompare { kEqual, kNotEqual, kLess, kLessEqual, kGreater, kGreaterEqual };

// The query inside CONTAINS(...): words, "quoted phrases", a star after either for a prefix,
// AND / OR / NOT (any case) and brackets; words side by side mean AND.
struct ContainsNode {
  enum class Kind { kTerm, kAnd, kOr, kNot };
  Kind kind = Kind::kTerm;
  std::string text;     // kTerm: the word or the phrase without its quotation marks
  bool phrase = false;  // kTerm: written in quotation marks
  bool prefix = false;  // kTerm: followed by "*" (a word) or ending in "*" (a phrase)
  std::vector<std::unique_ptr<ContainsNode>> children;
};

struct SqlCondition {
  enum class Kind {
    kAnd,        // children, at least two
    kOr,         // children, at least two
    kNot,        // one child
    kCompare,    // column op value
    kLike,       // column LIKE value.text
    kContains,   // CONTAINS([column,] 'query'); an empty column means the contents
    kScope,      // SCOPE='file:path': items anywhere below path
    kDirectory,  // DIRECTORY='file:path': items directly in path
  };
  Kind kind = Kind::kAnd;
  size_t position = 0;
  std::vector<std::unique_ptr<SqlCondition>> children;
  std::string column;          // kCompare, kLike, kContains
  SqlCompare op = SqlCompare::kEqual;
  SqlLiteral value;            // kCompare, kLike (the pattern), kContains (the query text)
  std::unique_ptr<ContainsNode> query;  // kContains
  std::string path;            // kScope, kDirectory: after "file:", "\" made "/"; "" = all
};

struct SqlStatement {
  std::vector<std::string> columns;  // as written ("*" for a star)
  std::string machine;               // empty when the table name had no prefix
  std::unique_ptr<SqlCondition> where;  // null without a WHERE part
};

}  // namespace trovix::engine::index
