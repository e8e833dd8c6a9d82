#include "index/postgres/pg_translation.h"

#include "base/ascii.h"
#include "base/file_time.h"
#include "index/dialect/sql_parser.h"
#include "index/postgres/pg_schema.h"
#include "index/sqlite/index_schema.h"
#include "index/sqlite/sqlite_translation.h"
#include "rules/matchers/contents_scan.h"
#include "rules/patterns/folding.h"

namespace trovix::engine::index {
namespace {

using rules::detail::FoldText;

constexpr std::string_view kContentsProperty = "System.Search.Contents";
// Words longer than this are left to the trigrams: the text search parser drops very long
// words from a tsvector.
constexpr size_t kMaxIndexedWord = 200;

const char* OpText(SqlCompare op) {
  switch (op) {
    case SqlCompare::kEqual: return "=";
    case SqlCompare::kNotEqual: return "<>";
    case SqlCompare::kLess: return "<";
    case SqlCompare::kLessEqual: return "<=";
    case SqlCompare::kGreater: return ">";
    case SqlCompare::kGreaterEqual: return ">=";
  }
  return "=";
}

// The folded text of a value, as the key columns hold it.
std::string Key(std::string_view text) { return KeyText(FoldText(text)); }

// Characters LIKE reads, written as themselves.
void AppendLikeLiteral(std::string* out, char32_t c) {
  if (c == '%' || c == '_' || c == '\\') *out += '\\';
  *out += rules::detail::EncodeChars(std::u32string_view(&c, 1));
}

std::string Contained(std::string_view literal) {
  std::string out = "%";
  for (char32_t c : rules::detail::DecodeChars(literal, false)) AppendLikeLiteral(&out, c);
  return out + "%";
}

// A word the text search parser reads whole and as written: letters and digits only.
bool PlainWord(std::string_view word) {
  if (word.empty() || word.size() > kMaxIndexedWord) return false;
  for (char32_t c : rules::detail::DecodeChars(word, false))
    if (c >= 0x10FE00 || !rules::detail::IsWordChar(c)) return false;
  return true;
}

// Where a column's value comes from.
struct Column {
  enum class Source { kKey, kItems, kProps } source = Source::kItems;
  std::string expr;  // kKey, kItems: the SQL of the value
  ColumnType type = ColumnType::kText;
  std::string property;  // kProps, and text columns read from prop_keys
};

class Translator {
 public:
  Translator(const PgTranslateOptions& options, PgQuery* out, std::string* error)
      : options_(options), out_(out), error_(error) {}

  bool Statement(const SqlStatement& s) {
    if (!s.machine.empty() && !AsciiEqualsNoCase(s.machine, options_.server))
      return Fail("the index of '" + s.machine + "' is not kept by '" + options_.server + "'", 0);
    if (!s.where) {
      out_->where = "true";
      return true;
    }
    return Condition(*s.where, &out_->where);
  }

 private:
  bool Fail(const std::string& message, size_t position) {
    *error_ = position > 0 ? message + " at " + std::to_string(position) : message;
    return false;
  }

  std::string Param(PgParam value, const char* cast = "") {
    out_->params.push_back(std::move(value));
    return "$" + std::to_string(out_->params.size()) + cast;
  }

  // Recursion follows the tree, whose depth the parser limits. PostgreSQL keeps a chain of
  // one operator as one flat list, so no balancing is needed here.
  bool Condition(const SqlCondition& c, std::string* sql) {
    switch (c.kind) {
      case SqlCondition::Kind::kAnd:
      case SqlCondition::Kind::kOr: {
        *sql += "(";
        for (size_t i = 0; i < c.children.size(); ++i) {
          if (i > 0) *sql += c.kind == SqlCondition::Kind::kAnd ? " AND " : " OR ";
          if (!Condition(*c.children[i], sql)) return false;
        }
        *sql += ")";
        return true;
      }
      case SqlCondition::Kind::kNot:
        // A missing value makes the inner test NULL; the walk's NOT of it is true.
        *sql += "NOT coalesce(";
        if (!Condition(*c.children[0], sql)) return false;
        *sql += ", false)";
        return true;
      case SqlCondition::Kind::kCompare: return Compare(c, sql);
      case SqlCondition::Kind::kLike: return Like(c, sql);
      case SqlCondition::Kind::kContains: return Contains(c, sql);
      case SqlCondition::Kind::kScope:
        if (c.path.empty()) {
          *sql += "true";
        } else {
          const auto [lo, hi] = FolderPathsBelow(c.path);
          *sql += "(items.folder = " + Param(PgBytes(c.path), "::bytea") + " OR (items.folder >= " +
                  Param(PgBytes(lo), "::bytea") + " AND items.folder < " + Param(PgBytes(hi), "::bytea") + "))";
        }
        return true;
      case SqlCondition::Kind::kDirectory:
        *sql += c.path.empty() ? "true" : "items.folder = " + Param(PgBytes(c.path), "::bytea");
        return true;
    }
    return Fail("unknown condition", c.position);
  }

  bool Resolve(const SqlCondition& c, const SqlLiteral* literal, Column* col) {
    const std::string& name = c.column;
    col->type = ColumnType::kText;
    if (name == "System.ItemNameDisplay") {
      col->source = Column::Source::kKey;
      col->expr = "items.name_key";
    } else if (name == "System.ItemPathDisplay" || AsciiEqualsNoCase(name, "Path")) {
      col->source = Column::Source::kKey;
      col->expr = "items.path_key";
    } else if (name == "System.ItemFolderPathDisplay") {
      col->source = Column::Source::kKey;
      col->expr = "items.folder_key";
    } else if (const ItemColumn* item = FindItemColumn(name)) {
      col->type = item->type;
      if (item->type == ColumnType::kText) {
        // The typed column keeps the value as it is; its folded form is in prop_keys.
        col->source = Column::Source::kKey;
        col->expr = "(items.prop_keys->>" + Param(PgText(name)) + ")";
      } else {
        col->source = Column::Source::kItems;
        col->expr = "items." + std::string(item->column);
      }
    } else if (name == kContentsProperty) {
      return Fail("the contents can only be asked with CONTAINS", c.position);
    } else {
      col->type = IndexedPropertyType(name, literal);
      col->property = name;
      const std::string key = Param(PgText(name));
      if (col->type == ColumnType::kText) {
        col->source = Column::Source::kKey;
        col->expr = "(items.prop_keys->>" + key + ")";
      } else {
        // A value kept under another type than the catalogue's is no value of that type.
        col->source = Column::Source::kProps;
        const char* json_type = col->type == ColumnType::kBool ? "boolean" : "number";
        const char* cast = col->type == ColumnType::kBool ? "::boolean" : "::numeric";
        col->expr = std::string("(CASE WHEN jsonb_typeof(items.props->") + key + ") = '" + json_type +
                    "' THEN (items.props->>" + key + ")" + cast + " END)";
      }
    }
    return true;
  }

  bool Compare(const SqlCondition& c, std::string* sql) {
    Column col;
    if (!Resolve(c, &c.value, &col)) return false;
    const SqlLiteral& v = c.value;
    const std::string op = OpText(c.op);
    const bool numeric = v.kind == SqlLiteral::Kind::kInteger || v.kind == SqlLiteral::Kind::kFloat ||
                         v.kind == SqlLiteral::Kind::kBool;
    const bool json = col.source == Column::Source::kProps;
    switch (col.type) {
      case ColumnType::kText:
        if (v.kind != SqlLiteral::Kind::kText)
          return Fail(c.column + " holds text: compare it with a quoted string", c.position);
        // Byte order, as the local index compares.
        *sql += col.expr + " COLLATE \"C\" " + op + " " + Param(PgText(Key(v.text)));
        return true;
      case ColumnType::kInteger:
      case ColumnType::kFloat: {
        if (!numeric) return Fail(c.column + " holds numbers: compare it with a number", c.position);
        const std::string value = v.kind == SqlLiteral::Kind::kFloat ? Param(PgText(FloatText(v.real)), "::numeric")
                                                                     : Param(PgInt(v.integer), json ? "::numeric" : "::bigint");
        *sql += col.expr + " " + op + " " + value;
        return true;
      }
      case ColumnType::kBool: {
        if (!numeric) return Fail(c.column + " is TRUE or FALSE", c.position);
        const bool truth = v.kind == SqlLiteral::Kind::kFloat ? v.real != 0 : v.integer != 0;
        *sql += col.expr + " " + op + " " + Param(PgText(truth ? "true" : "false"), "::boolean");
        return true;
      }
      case ColumnType::kDate: {
        base::FileTime t = 0;
        if (v.kind != SqlLiteral::Kind::kText || !ParseDateLiteral(v.text, &t))
          return Fail(c.column + " holds dates: compare it with 'YYYY/MM/DD hh:mm:ss'", c.position);
        // The literal stands for its whole second.
        const int64_t next = base::SaturatedFileTime(__int128{t} + base::kTicksPerSecond);
        const char* cast = json ? "::numeric" : "::bigint";
        const std::string& e = col.expr;
        switch (c.op) {
          case SqlCompare::kEqual:
            *sql += "(" + e + " >= " + Param(PgInt(t), cast) + " AND " + e + " < " + Param(PgInt(next), cast) + ")";
            break;
          case SqlCompare::kNotEqual:
            *sql += "(" + e + " < " + Param(PgInt(t), cast) + " OR " + e + " >= " + Param(PgInt(next), cast) + ")";
            break;
          case SqlCompare::kLess: *sql += e + " < " + Param(PgInt(t), cast); break;
          case SqlCompare::kLessEqual: *sql += e + " < " + Param(PgInt(next), cast); break;
          case SqlCompare::kGreater: *sql += e + " >= " + Param(PgInt(next), cast); break;
          case SqlCompare::kGreaterEqual: *sql += e + " >= " + Param(PgInt(t), cast); break;
        }
        return true;
      }
    }
    return Fail("unknown column type", c.position);
  }

  // The shortest text that reads back as the same double.
  static std::string FloatText(double value) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.17g", value);
    return buffer;
  }

  bool Like(const SqlCondition& c, std::string* sql) {
    Column col;
    if (!Resolve(c, nullptr, &col)) return false;
    if (col.type != ColumnType::kText) return Fail("LIKE needs a property that holds text", c.position);
    *sql += col.expr + " LIKE " + Param(PgText(PgLikePattern(Key(c.value.text))));
    return true;
  }

  bool Contains(const SqlCondition& c, std::string* sql) {
    if (c.column.empty() || c.column == kContentsProperty) return Terms(c, *c.query, nullptr, sql);
    Column col;
    if (!Resolve(c, nullptr, &col)) return false;
    if (col.type != ColumnType::kText) return Fail("CONTAINS needs a property that holds text", c.position);
    return Terms(c, *c.query, &col, sql);
  }

  // A CONTAINS query: on a property (`col`) every word or phrase is a substring of its folded
  // value; without one, of the item's text.
  bool Terms(const SqlCondition& c, const ContainsNode& n, const Column* col, std::string* sql) {
    if (n.kind == ContainsNode::Kind::kNot) {
      *sql += "NOT coalesce(";
      if (!Terms(c, *n.children[0], col, sql)) return false;
      *sql += ", false)";
      return true;
    }
    if (n.kind != ContainsNode::Kind::kTerm) {
      *sql += "(";
      for (size_t i = 0; i < n.children.size(); ++i) {
        if (i > 0) *sql += n.kind == ContainsNode::Kind::kAnd ? " AND " : " OR ";
        if (!Terms(c, *n.children[i], col, sql)) return false;
      }
      *sql += ")";
      return true;
    }
    if (col != nullptr) {
      const std::string literal = Key(n.text);
      if (literal.empty()) return Fail("an empty phrase in CONTAINS", c.position);
      // A prefix star adds nothing to a substring.
      *sql += col->expr + " LIKE " + Param(PgText(Contained(literal)));
      return true;
    }
    return ContentsTerm(c, n, sql);
  }

  bool ContentsTerm(const SqlCondition& c, const ContainsNode& n, std::string* sql) {
    const std::string literal = KeyText(rules::FoldBlanks(FoldText(n.text)));
    if (literal.empty()) return Fail("an empty phrase in CONTAINS", c.position);
    if (literal.size() > kTextOverlapBytes)
      return Fail("a contents phrase longer than " + std::to_string(kTextOverlapBytes) + " bytes", c.position);
    // The words between two blanks of the phrase.
    std::string words;
    size_t start = literal.find(' ');
    while (start != std::string::npos) {
      const size_t end = literal.find(' ', start + 1);
      if (end == std::string::npos) break;
      const std::string_view word = std::string_view(literal).substr(start + 1, end - start - 1);
      if (PlainWord(word)) {
        if (!words.empty()) words += " & ";
        words += "'" + std::string(word) + "'";
      }
      start = end;
    }
    const std::string candidates = words.empty()
                                       ? "t.body LIKE " + Param(PgText(Contained(literal)))
                                       : "t.words @@ to_tsquery('simple', " + Param(PgText(words)) + ")";
    *sql += "items.id IN (SELECT t.item FROM texts t WHERE " + candidates + " AND strpos(t.body, " +
            Param(PgText(literal)) + ") > 0)";
    return true;
  }

  const PgTranslateOptions& options_;
  PgQuery* out_;
  std::string* error_;
};

}  // namespace

std::string PgLikePattern(std::string_view pattern) {
  const std::u32string chars = rules::detail::DecodeChars(pattern, false);
  std::string out;
  for (size_t i = 0; i < chars.size(); ++i) {
    const char32_t c = chars[i];
    if (c == '"' && i + 1 < chars.size() && chars[i + 1] == '"') {
      out += '"';
      ++i;
    } else if (c == '[' && i + 2 < chars.size() && chars[i + 2] == ']') {
      AppendLikeLiteral(&out, chars[i + 1]);
      i += 2;
    } else if (c == '%' || c == '_') {
      out += static_cast<char>(c);
    } else {
      AppendLikeLiteral(&out, c);
    }
  }
  return out;
}

bool TranslateToPostgres(const SqlStatement& statement, const PgTranslateOptions& options, PgQuery* out,
                         std::string* error) {
  *out = PgQuery();
  Translator translator(options, out, error);
  return translator.Statement(statement);
}

}  // namespace trovix::engine::index
