#include "index/dialect/sql_parser.h"

#include <vector>

#include "base/ascii.h"
#include "index/dialect/sql_lexer.h"

namespace trovix::engine::index {
namespace {


bool EndsWithNoCase(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && AsciiEqualsNoCase(text.substr(text.size() - suffix.size()), suffix);
}

// Words that are never column names.
bool IsReserved(std::string_view word) {
  for (std::string_view w : {"AND", "OR", "NOT", "LIKE", "CONTAINS", "TRUE", "FALSE", "WHERE", "SELECT", "FROM"})
    if (AsciiEqualsNoCase(word, w)) return true;
  return false;
}

class Parser {
 public:
  Parser(std::string_view text, std::vector<SqlToken> tokens, std::string* error)
      : text_(text), tokens_(std::move(tokens)), error_(error) {}

  bool Statement(SqlStatement* out) {
    if (!ExpectKeyword("SELECT")) return false;
    do {
      const SqlToken& t = Peek();
      if (t.kind == SqlTokenKind::kStar) {
        out->columns.push_back("*");
      } else if (IsName(t)) {
        out->columns.push_back(t.text);
      } else {
        return Unexpected(t);
      }
      ++pos_;
    } while (Accept(SqlTokenKind::kComma));
    if (!ExpectKeyword("FROM")) return false;
    const SqlToken& table = Peek();
    if (table.kind != SqlTokenKind::kIdentifier || !EndsWithNoCase(table.text, "SystemIndex") ||
        (table.text.size() > 11 && table.text[table.text.size() - 12] != '.')) {
      if (table.kind == SqlTokenKind::kIdentifier) return Fail("unknown table '" + table.text + "'", table);
      return Unexpected(table);
    }
    if (table.text.size() > 11) out->machine = table.text.substr(0, table.text.size() - 12);
    ++pos_;
    // "WHERE", or "AND" where the builder's WHERE part was left empty before the scope.
    if (AcceptKeyword("WHERE") || AcceptKeyword("AND")) {
      if (!Condition(&out->where)) return false;
    }
    Accept(SqlTokenKind::kSemicolon);
    if (Peek().kind != SqlTokenKind::kEnd) return Unexpected(Peek());
    return true;
  }

 private:
  const SqlToken& Peek(size_t ahead = 0) const {
    const size_t i = pos_ + ahead;
    return i < tokens_.size() ? tokens_[i] : tokens_.back();
  }
  size_t Position(const SqlToken& t) const { return SqlPosition(text_, t.offset); }
  bool IsKeyword(const SqlToken& t, std::string_view word) const {
    return t.kind == SqlTokenKind::kIdentifier && AsciiEqualsNoCase(t.text, word);
  }
  bool IsName(const SqlToken& t) const {
    return t.kind == SqlTokenKind::kQuotedIdentifier || (t.kind == SqlTokenKind::kIdentifier && !IsReserved(t.text));
  }
  bool Accept(SqlTokenKind kind) {
    if (Peek().kind != kind) return false;
    ++pos_;
    return true;
  }
  bool AcceptKeyword(std::string_view word) {
    if (!IsKeyword(Peek(), word)) return false;
    ++pos_;
    return true;
  }
  bool ExpectKeyword(std::string_view word) {
    if (AcceptKeyword(word)) return true;
    return Fail("expected " + std::string(word) + ", found " + Describe(Peek()), Peek());
  }
  bool Expect(SqlTokenKind kind, std::string_view what) {
    if (Accept(kind)) return true;
    return Fail("expected " + std::string(what) + ", found " + Describe(Peek()), Peek());
  }
  std::string Describe(const SqlToken& t) const {
    switch (t.kind) {
      case SqlTokenKind::kEnd: return "the end of the text";
      case SqlTokenKind::kString: return "'" + t.text + "'";
      case SqlTokenKind::kQuotedIdentifier: return "\"" + t.text + "\"";
      default: return "'" + t.text + "'";
    }
  }
  bool Fail(const std::string& message, const SqlToken& at) {
    *error_ = message + " at " + std::to_string(Position(at));
    return false;
  }
  bool Unexpected(const SqlToken& t) {
    if (t.kind == SqlTokenKind::kEnd) return Fail("unexpected end of text", t);
    return Fail("unexpected " + Describe(t), t);
  }
  bool Deeper(const SqlToken& at) {
    if (++depth_ <= kMaxSqlDepth) return true;
    return Fail("conditions nested deeper than " + std::to_string(kMaxSqlDepth), at);
  }

  std::unique_ptr<SqlCondition> Node(SqlCondition::Kind kind, const SqlToken& at) const {
    auto node = std::make_unique<SqlCondition>();
    node->kind = kind;
    node->position = Position(at);
    return node;
  }

  // AND and OR bind alike and are read left to right, so "A OR B AND C" is "(A OR B) AND C":
  // the text is a rule list written out, and a rule list is evaluated that way. A run of one
  // operator stays one flat node; each change of operator adds a level, counted as nesting.
  bool Condition(std::unique_ptr<SqlCondition>* out) {
    const SqlToken& first = Peek();
    const int depth = depth_;
    std::unique_ptr<SqlCondition> left;
    if (!NotTerm(&left)) return false;
    bool chained = false;  // `left` is a chain this loop made, which a same operator extends
    while (IsKeyword(Peek(), "AND") || IsKeyword(Peek(), "OR")) {
      const SqlToken& op = Peek();
      const SqlCondition::Kind kind = IsKeyword(op, "AND") ? SqlCondition::Kind::kAnd : SqlCondition::Kind::kOr;
      ++pos_;
      std::unique_ptr<SqlCondition> right;
      if (!NotTerm(&right)) return false;
      if (chained && left->kind == kind) {
        left->children.push_back(std::move(right));
        continue;
      }
      if (!Deeper(op)) return false;
      std::unique_ptr<SqlCondition> node = Node(kind, first);
      node->children.push_back(std::move(left));
      node->children.push_back(std::move(right));
      left = std::move(node);
      chained = true;
    }
    depth_ = depth;
    *out = std::move(left);
    return true;
  }

  bool NotTerm(std::unique_ptr<SqlCondition>* out) {
    const SqlToken& t = Peek();
    if (!IsKeyword(t, "NOT")) return Primary(out);
    ++pos_;
    if (!Deeper(t)) return false;
    std::unique_ptr<SqlCondition> node = Node(SqlCondition::Kind::kNot, t);
    node->children.emplace_back();
    if (!NotTerm(&node->children.back())) return false;
    --depth_;
    *out = std::move(node);
    return true;
  }

  bool Primary(std::unique_ptr<SqlCondition>* out) {
    const SqlToken& t = Peek();
    if (t.kind == SqlTokenKind::kOpen) {
      ++pos_;
      if (!Deeper(t)) return false;
      if (!Condition(out) || !Expect(SqlTokenKind::kClose, "')'")) return false;
      --depth_;
      return true;
    }
    if (IsKeyword(t, "CONTAINS") && Peek(1).kind == SqlTokenKind::kOpen) return Contains(out);
    if ((IsKeyword(t, "SCOPE") || IsKeyword(t, "DIRECTORY")) && Peek(1).kind == SqlTokenKind::kOperator &&
        Peek(1).text == "=")
      return Scope(out);
    if (!IsName(t)) return Unexpected(t);
    ++pos_;
    const SqlToken& op = Peek();
    bool negated_like = false;
    if (IsKeyword(op, "NOT") && IsKeyword(Peek(1), "LIKE")) {
      negated_like = true;
      ++pos_;
    }
    if (AcceptKeyword("LIKE")) {
      const SqlToken& pattern = Peek();
      if (pattern.kind != SqlTokenKind::kString) return Fail("LIKE needs a quoted pattern, found " + Describe(pattern), pattern);
      ++pos_;
      std::unique_ptr<SqlCondition> node = Node(SqlCondition::Kind::kLike, t);
      node->column = t.text;
      node->value.kind = SqlLiteral::Kind::kText;
      node->value.text = pattern.text;
      if (negated_like) {
        std::unique_ptr<SqlCondition> negation = Node(SqlCondition::Kind::kNot, op);
        negation->children.push_back(std::move(node));
        node = std::move(negation);
      }
      *out = std::move(node);
      return true;
    }
    if (op.kind != SqlTokenKind::kOperator) return Unexpected(op);
    std::unique_ptr<SqlCondition> node = Node(SqlCondition::Kind::kCompare, t);
    node->column = t.text;
    const std::string& o = op.text;
    node->op = o == "=" ? SqlCompare::kEqual
               : (o == "<>" || o == "!=") ? SqlCompare::kNotEqual
               : o == "<" ? SqlCompare::kLess
               : o == "<=" ? SqlCompare::kLessEqual
               : o == ">" ? SqlCompare::kGreater
                          : SqlCompare::kGreaterEqual;
    ++pos_;
    if (!Literal(&node->value)) return false;
    *out = std::move(node);
    return true;
  }

  bool Literal(SqlLiteral* out) {
    const SqlToken& t = Peek();
    const bool negative = t.kind == SqlTokenKind::kMinus;
    const SqlToken& v = negative ? Peek(1) : t;
    if (v.kind == SqlTokenKind::kInteger) {
      out->kind = SqlLiteral::Kind::kInteger;
      out->integer = negative ? -v.integer : v.integer;  // from_chars gave at most INT64_MAX
    } else if (v.kind == SqlTokenKind::kFloat) {
      out->kind = SqlLiteral::Kind::kFloat;
      out->real = negative ? -v.real : v.real;
    } else if (negative) {
      return Fail("expected a number after '-', found " + Describe(v), v);
    } else if (t.kind == SqlTokenKind::kString) {
      out->kind = SqlLiteral::Kind::kText;
      out->text = t.text;
    } else if (IsKeyword(t, "TRUE") || IsKeyword(t, "FALSE")) {
      out->kind = SqlLiteral::Kind::kBool;
      out->integer = IsKeyword(t, "TRUE") ? 1 : 0;
    } else {
      return Fail("expected a value, found " + Describe(t), t);
    }
    pos_ += negative ? 2 : 1;
    return true;
  }

  bool Contains(std::unique_ptr<SqlCondition>* out) {
    const SqlToken& t = Peek();
    pos_ += 2;
    std::unique_ptr<SqlCondition> node = Node(SqlCondition::Kind::kContains, t);
    if (IsName(Peek()) && Peek(1).kind == SqlTokenKind::kComma) {
      node->column = Peek().text;
      pos_ += 2;
    }
    const SqlToken& query = Peek();
    if (query.kind != SqlTokenKind::kString) return Fail("CONTAINS needs a quoted query, found " + Describe(query), query);
    ++pos_;
    node->value.kind = SqlLiteral::Kind::kText;
    node->value.text = query.text;
    if (!ParseContainsQuery(query.text, Position(query) + 1, &node->query, error_)) return false;
    if (!Expect(SqlTokenKind::kClose, "')'")) return false;
    *out = std::move(node);
    return true;
  }

  bool Scope(std::unique_ptr<SqlCondition>* out) {
    const SqlToken& t = Peek();
    pos_ += 2;
    const SqlToken& value = Peek();
    if (value.kind != SqlTokenKind::kString || value.text.size() < 5 ||
        !AsciiEqualsNoCase(std::string_view(value.text).substr(0, 5), "file:"))
      return Fail(t.text + " needs 'file:<path>', found " + Describe(value), value);
    ++pos_;
    std::unique_ptr<SqlCondition> node =
        Node(IsKeyword(t, "SCOPE") ? SqlCondition::Kind::kScope : SqlCondition::Kind::kDirectory, t);
    std::string path = value.text.substr(5);
    for (char& c : path)
      if (c == '\\') c = '/';
    while (!path.empty() && path.back() == '/') path.pop_back();  // "/" alone: everything too
    if (!path.empty() && path.front() != '/') return Fail("a scope needs an absolute path", value);
    node->path = std::move(path);
    *out = std::move(node);
    return true;
  }

  std::string_view text_;
  std::vector<SqlToken> tokens_;
  std::string* error_;
  size_t pos_ = 0;
  int depth_ = 0;
};

}  // namespace

bool ParseSql(std::string_view text, SqlStatement* out, std::string* error) {
  std::vector<SqlToken> tokens;
  if (!TokenizeSql(text, &tokens, error)) return false;
  *out = SqlStatement();
  Parser parser(text, std::move(tokens), error);
  return parser.Statement(out);
}

}  // namespace trovix::engine::index
