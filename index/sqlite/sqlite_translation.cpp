#include "index/sqlite/sqlite_translation.h"

#include <algorithm>
#include <set>

#include "base/ascii.h"
#include "base/file_time.h"
#include "index/sqlite/index_schema.h"
#include "index/dialect/like_pattern.h"
#include "index/dialect/sql_parser.h"
#include "props/catalogue.h"
#include "rules/matchers/contents_scan.h"
#include "rules/patterns/folding.h"

namespace trovix::engine::index {
namespace {

using rules::detail::FoldText;

constexpr std::string_view kNameKey = "coalesce(items.name_key, items.name)";
constexpr std::string_view kContentsProperty = "System.Search.Contents";
// A folder's own row gives its path; any other item's path is its folder's and its name.
constexpr std::string_view kPathExpr =
    "coalesce((SELECT path FROM folders WHERE id = items.id), "
    "(SELECT CASE WHEN path = '/' THEN '/' ELSE path || '/' END FROM folders WHERE id = items.parent) "
    "|| items.name)";
constexpr std::string_view kFolderPathExpr = "(SELECT path FROM folders WHERE id = items.parent)";
// At most this many trigrams go into a candidate query: more only narrow what tx_like or
// tx_contains confirms anyway, and every one costs its doclist.
constexpr size_t kMaxTrigrams = 6;
// A contents phrase asks for up to this many trigrams, side by side as a name's are: the
// overlapping ones narrowed the candidates no further than the kept pieces' seams do, and
// each one costs its doclist; contents_candidates.h narrows them to the rare ones.
constexpr size_t kMaxContentsTrigrams = 32;


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

// A text as one FTS5 string: quoted, its quotation marks doubled.
std::string FtsString(std::string_view text) {
  std::string out = "\"";
  for (char c : text) {
    out += c;
    if (c == '"') out += '"';
  }
  return out + "\"";
}

}  // namespace

ColumnType IndexedPropertyType(const std::string& name, const SqlLiteral* literal) {
  const props::PropertyInfo* info = props::DefaultCatalogue().FindProperty(name);
  if (info == nullptr) info = props::AllPropertiesCatalogue().FindProperty(name);
  if (info == nullptr) {
    if (literal == nullptr) return ColumnType::kText;
    switch (literal->kind) {
      case SqlLiteral::Kind::kInteger: return ColumnType::kInteger;
      case SqlLiteral::Kind::kFloat: return ColumnType::kFloat;
      case SqlLiteral::Kind::kBool: return ColumnType::kBool;
      case SqlLiteral::Kind::kText: return ColumnType::kText;
    }
  }
  switch (info->base_type()) {
    case props::VT_FILETIME: return ColumnType::kDate;
    case props::VT_BOOL: return ColumnType::kBool;
    case props::VT_R4: case props::VT_R8: return ColumnType::kFloat;
    case props::VT_I1: case props::VT_I2: case props::VT_I4: case props::VT_I8: case props::VT_UI1:
    case props::VT_UI2: case props::VT_UI4: case props::VT_UI8: case props::VT_INT: case props::VT_UINT:
      return ColumnType::kInteger;
    default: return ColumnType::kText;
  }
}

namespace {

// Where a column's value comes from.
struct Column {
  enum class Source { kItems, kName, kPath, kFolderPath, kProps } source = Source::kItems;
  std::string expr;  // the raw value ("props.value" inside a props subquery)
  ColumnType type = ColumnType::kText;
  std::string property;  // kProps: the canonical name
};

class Translator {
 public:
  Translator(const SqliteTranslateOptions& options, SqliteQuery* out, std::string* error)
      : options_(options), out_(out), error_(error) {}

  bool Statement(const SqlStatement& s) {
    if (!s.machine.empty() && !AsciiEqualsNoCase(s.machine, "localhost") &&
        (options_.local_host.empty() || !AsciiEqualsNoCase(s.machine, options_.local_host)))
      return Fail("the index of '" + s.machine + "' cannot be asked: only this computer's index is", 0);
    out_->sql = "SELECT items.id FROM items";
    if (!s.where) return true;
    NoteDrivers(*s.where);
    std::string where;
    if (!Condition(*s.where, &where)) return false;
    // A name test that every row must pass drives the query: the names' trigram table yields
    // its rows one at a time, in id order, and each is looked up in items by its key. Asked
    // as "items.id IN (...)" SQLite would collect every candidate before the first row.
    if (driven_) out_->sql = "SELECT items.id FROM names CROSS JOIN items ON items.id = names.rowid";
    out_->sql += " WHERE " + where;
    return true;
  }

 private:
  bool Fail(const std::string& message, size_t position) {
    *error_ = position > 0 ? message + " at " + std::to_string(position) : message;
    return false;
  }

  std::string Param(SqlParam value) {
    out_->params.push_back(std::move(value));
    return "?" + std::to_string(out_->params.size());
  }

  // A chain of one operator as a balanced tree of bracketed halves: SQLite builds a binary
  // tree from "a OR b OR c ...", one level per operand, and refuses expressions deeper than
  // 1000 levels; halves keep a chain of any length about log2(n) deep.
  template <typename Node, typename Each>
  bool Balanced(const std::vector<std::unique_ptr<Node>>& children, size_t lo, size_t hi, const char* op,
                std::string* sql, const Each& each) {
    if (lo >= hi) return Fail("an empty condition", 0);
    if (hi - lo == 1) return each(*children[lo], sql);
    const size_t mid = lo + (hi - lo) / 2;
    *sql += "(";
    if (!Balanced(children, lo, mid, op, sql, each)) return false;
    *sql += op;
    if (!Balanced(children, mid, hi, op, sql, each)) return false;
    *sql += ")";
    return true;
  }

  // Recursion follows the tree, whose depth the parser limits.
  bool Condition(const SqlCondition& c, std::string* sql) {
    switch (c.kind) {
      case SqlCondition::Kind::kAnd:
      case SqlCondition::Kind::kOr:
        return Balanced(c.children, 0, c.children.size(), c.kind == SqlCondition::Kind::kAnd ? " AND " : " OR ",
                        sql, [&](const SqlCondition& child, std::string* s) { return Condition(child, s); });
      case SqlCondition::Kind::kNot:
        // A missing value makes the inner test NULL; the walk's NOT of it is true.
        *sql += "NOT coalesce(";
        if (!Condition(*c.children[0], sql)) return false;
        *sql += ", 0)";
        return true;
      case SqlCondition::Kind::kCompare: return Compare(c, sql);
      case SqlCondition::Kind::kLike: return Like(c, sql);
      case SqlCondition::Kind::kContains: return Contains(c, sql);
      case SqlCondition::Kind::kScope:
        if (c.path.empty()) {
          *sql += "1";
        } else {
          // The item's folder is the path or lies below it.
          // Asked of each row the other tests leave, by the folder's key: a list of every
          // folder in scope would be made anew for each query, whatever it finds.
          const auto [lo, hi] = FolderPathsBelow(c.path);
          *sql += "EXISTS (SELECT 1 FROM folders f WHERE f.id = items.parent AND (f.path = " + Param(c.path) +
                  " OR (f.path >= " + Param(lo) + " AND f.path < " + Param(hi) + ")))";
        }
        return true;
      case SqlCondition::Kind::kDirectory:
        if (c.path.empty()) *sql += "1";
        else *sql += "items.parent = (SELECT id FROM folders WHERE path = " + Param(c.path) + ")";
        return true;
    }
    return Fail("unknown condition", c.position);
  }

  bool Resolve(const SqlCondition& c, const SqlLiteral* literal, Column* col) {
    const std::string& name = c.column;
    if (name == "System.ItemNameDisplay") {
      col->source = Column::Source::kName;
      col->expr = "items.name";
    } else if (name == "System.ItemPathDisplay" || AsciiEqualsNoCase(name, "Path")) {
      col->source = Column::Source::kPath;
      col->expr = kPathExpr;
    } else if (name == "System.ItemFolderPathDisplay") {
      col->source = Column::Source::kFolderPath;
      col->expr = kFolderPathExpr;
    } else if (const ItemColumn* item = FindItemColumn(name)) {
      col->source = Column::Source::kItems;
      col->expr = "items." + std::string(item->column);
      col->type = item->type;
      return true;
    } else if (name == kContentsProperty) {
      return Fail("the contents can only be asked with CONTAINS", c.position);
    } else {
      col->source = Column::Source::kProps;
      col->expr = "props.value";
      col->property = name;
      col->type = IndexedPropertyType(name, literal);
      return true;
    }
    col->type = ColumnType::kText;
    return true;
  }

  // The folded value of a text column.
  static std::string Folded(const Column& col) {
    return col.source == Column::Source::kName ? std::string(kNameKey) : "tx_fold(" + col.expr + ")";
  }

  bool Compare(const SqlCondition& c, std::string* sql) {
    Column col;
    if (!Resolve(c, &c.value, &col)) return false;
    const std::string op = OpText(c.op);
    if (col.source != Column::Source::kProps) return ValueTest(c, col, op, sql);
    std::string test;
    if (!ValueTest(c, col, op, &test)) return false;
    *sql += PropsTest(Param(col.property), test);
    return true;
  }

  bool ValueTest(const SqlCondition& c, const Column& col, const std::string& op, std::string* sql) {
    const SqlLiteral& v = c.value;
    const bool numeric = v.kind == SqlLiteral::Kind::kInteger || v.kind == SqlLiteral::Kind::kFloat ||
                         v.kind == SqlLiteral::Kind::kBool;
    switch (col.type) {
      case ColumnType::kText:
        if (v.kind != SqlLiteral::Kind::kText) return Fail(c.column + " holds text: compare it with a quoted string", c.position);
        *sql += Folded(col) + " " + op + " " + Param(FoldText(v.text));
        return true;
      case ColumnType::kInteger:
      case ColumnType::kFloat:
        if (!numeric) return Fail(c.column + " holds numbers: compare it with a number", c.position);
        *sql += col.expr + " " + op + " " +
                (v.kind == SqlLiteral::Kind::kFloat ? Param(v.real) : Param(v.integer));
        return true;
      case ColumnType::kBool: {
        if (!numeric) return Fail(c.column + " is TRUE or FALSE", c.position);
        const int64_t truth = v.kind == SqlLiteral::Kind::kFloat ? v.real != 0 : v.integer != 0;
        // Booleans kept as properties may be any non-zero number for true.
        const std::string value = col.source == Column::Source::kProps ? "(" + col.expr + " <> 0)" : col.expr;
        *sql += value + " " + op + " " + Param(truth);
        return true;
      }
      case ColumnType::kDate: {
        base::FileTime t = 0;
        if (v.kind != SqlLiteral::Kind::kText || !ParseDateLiteral(v.text, &t))
          return Fail(c.column + " holds dates: compare it with 'YYYY/MM/DD hh:mm:ss'", c.position);
        // The literal stands for its whole second.
        const int64_t next = base::SaturatedFileTime(__int128{t} + base::kTicksPerSecond);
        const std::string& e = col.expr;
        switch (c.op) {
          case SqlCompare::kEqual: *sql += "(" + e + " >= " + Param(t) + " AND " + e + " < " + Param(next) + ")"; break;
          case SqlCompare::kNotEqual: *sql += "(" + e + " < " + Param(t) + " OR " + e + " >= " + Param(next) + ")"; break;
          case SqlCompare::kLess: *sql += e + " < " + Param(t); break;
          case SqlCompare::kLessEqual: *sql += e + " < " + Param(next); break;
          case SqlCompare::kGreater: *sql += e + " >= " + Param(next); break;
          case SqlCompare::kGreaterEqual: *sql += e + " >= " + Param(t); break;
        }
        return true;
      }
    }
    return Fail("unknown column type", c.position);
  }

  // The trigrams of every run (of at least three characters) for a table with no positions
  // (detail=none): such a table answers single trigrams only, and the rows it proposes are
  // confirmed by the caller. False when a run holds bytes that are not UTF-8 (the table would
  // not split them as we do); no trigram when no run is long enough.
  static bool Trigrams(const std::vector<std::string>& runs, size_t max_trigrams, std::vector<std::string>* out) {
    std::set<std::u32string> seen;
    for (const std::string& run : runs) {
      const std::u32string chars = rules::detail::DecodeChars(run, false);
      for (char32_t ch : chars)
        if (ch >= rules::detail::kIllFormedBase) return false;
      // Trigrams side by side, and the last one: together they cover every character of the
      // run, and each doclist read costs time, so the overlapping ones are left out.
      for (size_t i = 0; i + 3 <= chars.size() && seen.size() < max_trigrams;
           i = (i + 3 + 3 <= chars.size() || i + 3 == chars.size()) ? i + 3 : chars.size() - 3) {
        std::u32string trigram = chars.substr(i, 3);
        if (seen.insert(trigram).second) out->push_back(rules::detail::EncodeChars(trigram));
      }
    }
    return true;
  }

  static std::string TrigramQuery(const std::vector<std::string>& runs, size_t max_trigrams) {
    std::vector<std::string> trigrams;
    if (!Trigrams(runs, max_trigrams, &trigrams)) return {};
    return TrigramMatch(trigrams);
  }

  // The name tests every row must pass (the conditions joined by AND at the top): one of them
  // may drive the query. Not with DIRECTORY: the items of one folder come from their own index
  // faster than from a trigram's whole list.
  void NoteDrivers(const SqlCondition& where) {
    std::vector<const SqlCondition*> top;
    std::vector<const SqlCondition*> stack{&where};
    while (!stack.empty()) {
      const SqlCondition* c = stack.back();
      stack.pop_back();
      if (c->kind == SqlCondition::Kind::kAnd) {
        for (auto it = c->children.rbegin(); it != c->children.rend(); ++it) stack.push_back(it->get());
      } else {
        top.push_back(c);
      }
    }
    for (const SqlCondition* c : top)
      if (c->kind == SqlCondition::Kind::kDirectory) return;
    for (const SqlCondition* c : top) {
      const bool term = c->kind == SqlCondition::Kind::kContains && c->query &&
                        c->query->kind == ContainsNode::Kind::kTerm && !c->column.empty();
      if (term || c->kind == SqlCondition::Kind::kLike) drivers_.push_back(c);
    }
  }

  // Candidates from the names' trigram table: the query's driver when `c` is the first
  // driving test with a trigram, else a set of ids.
  std::string NameCandidates(const SqlCondition& c, const std::vector<std::string>& runs) {
    const std::string match = TrigramQuery(runs, kMaxTrigrams);
    if (match.empty()) return {};
    if (!driven_ && std::find(drivers_.begin(), drivers_.end(), &c) != drivers_.end()) {
      driven_ = true;
      return "names MATCH " + Param(match);
    }
    return "items.id IN (SELECT rowid FROM names WHERE names MATCH " + Param(match) + ")";
  }

  bool Like(const SqlCondition& c, std::string* sql) {
    Column col;
    if (!Resolve(c, nullptr, &col)) return false;
    if (col.type != ColumnType::kText) return Fail("LIKE needs a property that holds text", c.position);
    const std::string pattern = FoldText(c.value.text);
    if (col.source == Column::Source::kName) {
      const std::string candidates = NameCandidates(c, LikePattern(pattern).LiteralRuns());
      const std::string test = "tx_like(" + std::string(kNameKey) + ", " + Param(pattern) + ")";
      *sql += candidates.empty() ? test : "(" + candidates + " AND " + test + ")";
      return true;
    }
    const std::string prop = col.source == Column::Source::kProps ? Param(col.property) : std::string();
    const std::string test = "tx_like(" + Folded(col) + ", " + Param(pattern) + ")";
    *sql += col.source == Column::Source::kProps ? PropsTest(prop, test) : test;
    return true;
  }

  static std::string PropsTest(const std::string& prop_param, const std::string& test) {
    return "items.id IN (SELECT item FROM props WHERE prop = (SELECT id FROM prop_names WHERE name = " +
           prop_param + ") AND " + test + ")";
  }

  bool Contains(const SqlCondition& c, std::string* sql) {
    if (c.column.empty() || c.column == kContentsProperty) return ContentsQuery(c, *c.query, sql);
    Column col;
    if (!Resolve(c, nullptr, &col)) return false;
    if (col.type != ColumnType::kText) return Fail("CONTAINS needs a property that holds text", c.position);
    return PropertyQuery(c, col, *c.query, sql);
  }

  bool Join(const SqlCondition& c, const ContainsNode& n, std::string* sql,
            bool (Translator::*each)(const SqlCondition&, const Column&, const ContainsNode&, std::string*),
            const Column& col) {
    if (n.kind == ContainsNode::Kind::kNot) {
      *sql += "NOT coalesce(";
      if (!(this->*each)(c, col, *n.children[0], sql)) return false;
      *sql += ", 0)";
      return true;
    }
    return Balanced(n.children, 0, n.children.size(), n.kind == ContainsNode::Kind::kAnd ? " AND " : " OR ", sql,
                    [&](const ContainsNode& child, std::string* s) { return (this->*each)(c, col, child, s); });
  }

  // CONTAINS on a property: every word or phrase is a substring of the folded value.
  bool PropertyQuery(const SqlCondition& c, const Column& col, const ContainsNode& n, std::string* sql) {
    if (n.kind != ContainsNode::Kind::kTerm) return Join(c, n, sql, &Translator::PropertyQuery, col);
    const std::string literal = FoldText(n.text);
    if (literal.empty()) return Fail("an empty phrase in CONTAINS", c.position);
    if (col.source == Column::Source::kName) {
      const std::string candidates = NameCandidates(c, {literal});
      const std::string test = "tx_contains(" + std::string(kNameKey) + ", " + Param(literal) + ")";
      *sql += candidates.empty() ? test : "(" + candidates + " AND " + test + ")";
      return true;
    }
    if (col.source == Column::Source::kProps) {
      const std::string prop = Param(col.property);
      *sql += PropsTest(prop, "tx_contains(" + Folded(col) + ", " + Param(literal) + ")");
      return true;
    }
    *sql += "tx_contains(" + Folded(col) + ", " + Param(literal) + ")";
    return true;
  }

  // CONTAINS on the contents: one FTS query per word or phrase, joined in SQL.
  bool ContentsQuery(const SqlCondition& c, const ContainsNode& n, std::string* sql) {
    return ContentsTerm(c, Column(), n, sql);
  }
  // A word or phrase is a substring of the item's text, read as the walk reads it: folded,
  // with every run of white space as one blank (so a phrase matches across line breaks). The
  // trigram table proposes the pieces that hold every trigram of it; the kept piece confirms.
  bool ContentsTerm(const SqlCondition& c, const Column& col, const ContainsNode& n, std::string* sql) {
    if (n.kind != ContainsNode::Kind::kTerm) return Join(c, n, sql, &Translator::ContentsTerm, col);
    if (options_.contents != ContentsTokenizer::kTrigram)
      return Fail("an index of words cannot find every fragment of text the walk finds", c.position);
    const std::string literal = rules::FoldBlanks(FoldText(n.text));
    // Trigrams find substrings: a prefix star adds nothing.
    if (rules::detail::DecodeChars(literal, false).size() < 3)
      return Fail("contents queries need at least 3 characters", c.position);
    if (literal.size() > kTextOverlapBytes)
      return Fail("a contents phrase longer than " + std::to_string(kTextOverlapBytes) + " bytes", c.position);
    std::vector<std::string> trigrams;
    if (!Trigrams({literal}, kMaxContentsTrigrams, &trigrams) || trigrams.empty())
      return Fail("contents queries need text that is UTF-8", c.position);
    const std::string match = Param(TrigramMatch(trigrams));
    out_->contents_lookups.push_back(ContentsLookup{out_->params.size() - 1, std::move(trigrams)});
    *sql += "items.id IN (SELECT t.id >> " + std::to_string(kTextPieceBits) +
            " FROM texts t WHERE t.id IN (SELECT rowid FROM contents WHERE contents MATCH " + match +
            ") AND tx_piece_holds(t.id, t.seams, t.body, " + Param(literal) + "))";
    return true;
  }

  const SqliteTranslateOptions& options_;
  SqliteQuery* out_;
  std::string* error_;
  std::vector<const SqlCondition*> drivers_;  // name tests every row must pass
  bool driven_ = false;                       // one of them drives the query
};

}  // namespace

std::string TrigramMatch(const std::vector<std::string>& trigrams) {
  std::string match;
  for (const std::string& trigram : trigrams) {
    if (!match.empty()) match += ' ';
    match += FtsString(trigram);
  }
  return match;
}

ContentsTokenizer TokenizerFromMeta(std::string_view value) {
  return value.substr(0, 7) == "trigram" ? ContentsTokenizer::kTrigram : ContentsTokenizer::kWords;
}

bool TranslateToSqlite(const SqlStatement& statement, const SqliteTranslateOptions& options,
                       SqliteQuery* out, std::string* error) {
  *out = SqliteQuery();
  Translator translator(options, out, error);
  return translator.Statement(statement);
}

int BindSqliteParams(sqlite3_stmt* stmt, const std::vector<SqlParam>& params) {
  for (size_t i = 0; i < params.size(); ++i) {
    const int index = static_cast<int>(i + 1);
    int rc;
    if (const auto* n = std::get_if<int64_t>(&params[i])) {
      rc = sqlite3_bind_int64(stmt, index, *n);
    } else if (const auto* d = std::get_if<double>(&params[i])) {
      rc = sqlite3_bind_double(stmt, index, *d);
    } else {
      const std::string& s = std::get<std::string>(params[i]);
      rc = sqlite3_bind_text(stmt, index, s.data(), static_cast<int>(s.size()), SQLITE_TRANSIENT);
    }
    if (rc != SQLITE_OK) return rc;
  }
  return SQLITE_OK;
}

}  // namespace trovix::engine::index
