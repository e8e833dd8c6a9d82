// ParseContainsQuery (sql_parser.h): the small language inside CONTAINS('...').
//   query   := and { OR and }
//   and     := not { [AND] not }
//   not     := NOT not | primary
//   primary := "(" query ")" | "phrase"[*] | word[*]
// A word runs to the next blank, bracket or quotation mark; stars at its end make it a prefix.
// Inside a phrase a doubled quotation mark stands for one.
#include <vector>

#include "index/dialect/sql_lexer.h"
#include "index/dialect/sql_parser.h"

namespace trovix::engine::index {
namespace {

struct QueryToken {
  enum class Kind { kEnd, kOpen, kClose, kWord, kPhrase } kind = Kind::kEnd;
  std::string text;
  bool prefix = false;
  size_t offset = 0;
};

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

bool IsOperator(const QueryToken& t, std::string_view word) {
  if (t.kind != QueryToken::Kind::kWord || t.prefix || t.text.size() != word.size()) return false;
  for (size_t i = 0; i < word.size(); ++i)
    if ((t.text[i] & ~0x20) != word[i]) return false;
  return true;
}

class QueryParser {
 public:
  QueryParser(std::string_view query, size_t position, std::string* error)
      : query_(query), position_(position), error_(error) {}

  bool Parse(std::unique_ptr<ContainsNode>* out) {
    if (!Tokenize()) return false;
    if (tokens_.front().kind == QueryToken::Kind::kEnd) return Fail("empty CONTAINS query", tokens_.front());
    if (!Or(out)) return false;
    if (Peek().kind != QueryToken::Kind::kEnd) return Fail("unexpected " + Describe(Peek()), Peek());
    return true;
  }

 private:
  bool Tokenize() {
    size_t i = 0;
    while (true) {
      while (i < query_.size() && IsBlank(query_[i])) ++i;
      QueryToken t;
      t.offset = i;
      if (i >= query_.size()) {
        tokens_.push_back(std::move(t));
        return true;
      }
      const char c = query_[i];
      if (c == '(' || c == ')') {
        t.kind = c == '(' ? QueryToken::Kind::kOpen : QueryToken::Kind::kClose;
        t.text.assign(1, c);
        ++i;
      } else if (c == '"') {
        t.kind = QueryToken::Kind::kPhrase;
        size_t j = i + 1;
        bool closed = false;
        for (; j < query_.size(); ++j) {
          if (query_[j] != '"') {
            t.text += query_[j];
          } else if (j + 1 < query_.size() && query_[j + 1] == '"') {
            t.text += '"';
            ++j;
          } else {
            closed = true;
            ++j;
            break;
          }
        }
        if (!closed) return Fail("unterminated phrase", t);
        i = j;
        while (!t.text.empty() && t.text.back() == '*') {
          t.text.pop_back();
          t.prefix = true;
        }
        while (i < query_.size() && query_[i] == '*') {
          ++i;
          t.prefix = true;
        }
      } else {
        t.kind = QueryToken::Kind::kWord;
        size_t j = i;
        while (j < query_.size() && !IsBlank(query_[j]) && query_[j] != '(' && query_[j] != ')' && query_[j] != '"') ++j;
        t.text.assign(query_.substr(i, j - i));
        i = j;
        while (!t.text.empty() && t.text.back() == '*') {
          t.text.pop_back();
          t.prefix = true;
        }
        if (t.text.empty()) return Fail("a star needs a word before it", t);
      }
      tokens_.push_back(std::move(t));
    }
  }

  const QueryToken& Peek() const { return tokens_[pos_ < tokens_.size() ? pos_ : tokens_.size() - 1]; }
  std::string Describe(const QueryToken& t) const {
    return t.kind == QueryToken::Kind::kEnd ? std::string("end of query") : "'" + t.text + "'";
  }
  bool Fail(const std::string& message, const QueryToken& at) {
    *error_ = message + " at " + std::to_string(position_ + SqlPosition(query_, at.offset) - 1);
    return false;
  }

  static std::unique_ptr<ContainsNode> Node(ContainsNode::Kind kind) {
    auto node = std::make_unique<ContainsNode>();
    node->kind = kind;
    return node;
  }

  bool StartsOperand(const QueryToken& t) const {
    return (t.kind == QueryToken::Kind::kWord && !IsOperator(t, "OR") && !IsOperator(t, "AND")) ||
           t.kind == QueryToken::Kind::kPhrase || t.kind == QueryToken::Kind::kOpen;
  }

  bool Or(std::unique_ptr<ContainsNode>* out) {
    std::unique_ptr<ContainsNode> first;
    if (!And(&first)) return false;
    if (!IsOperator(Peek(), "OR")) {
      *out = std::move(first);
      return true;
    }
    std::unique_ptr<ContainsNode> node = Node(ContainsNode::Kind::kOr);
    node->children.push_back(std::move(first));
    while (IsOperator(Peek(), "OR")) {
      ++pos_;
      node->children.emplace_back();
      if (!And(&node->children.back())) return false;
    }
    *out = std::move(node);
    return true;
  }

  bool And(std::unique_ptr<ContainsNode>* out) {
    std::unique_ptr<ContainsNode> first;
    if (!Not(&first)) return false;
    std::unique_ptr<ContainsNode> node;
    while (IsOperator(Peek(), "AND") || StartsOperand(Peek())) {
      if (IsOperator(Peek(), "AND")) ++pos_;
      if (!node) {
        node = Node(ContainsNode::Kind::kAnd);
        node->children.push_back(std::move(first));
      }
      node->children.emplace_back();
      if (!Not(&node->children.back())) return false;
    }
    *out = node ? std::move(node) : std::move(first);
    return true;
  }

  bool Not(std::unique_ptr<ContainsNode>* out) {
    if (!IsOperator(Peek(), "NOT")) return Primary(out);
    const QueryToken& t = Peek();
    ++pos_;
    if (++depth_ > kMaxSqlDepth) return Fail("query nested deeper than " + std::to_string(kMaxSqlDepth), t);
    std::unique_ptr<ContainsNode> node = Node(ContainsNode::Kind::kNot);
    node->children.emplace_back();
    if (!Not(&node->children.back())) return false;
    --depth_;
    *out = std::move(node);
    return true;
  }

  bool Primary(std::unique_ptr<ContainsNode>* out) {
    const QueryToken& t = Peek();
    switch (t.kind) {
      case QueryToken::Kind::kOpen:
        ++pos_;
        if (++depth_ > kMaxSqlDepth) return Fail("query nested deeper than " + std::to_string(kMaxSqlDepth), t);
        if (!Or(out)) return false;
        if (Peek().kind != QueryToken::Kind::kClose) return Fail("expected ')', found " + Describe(Peek()), Peek());
        ++pos_;
        --depth_;
        return true;
      case QueryToken::Kind::kWord:
      case QueryToken::Kind::kPhrase:
        if (IsOperator(t, "OR") || IsOperator(t, "AND")) break;
        *out = Node(ContainsNode::Kind::kTerm);
        (*out)->text = t.text;
        (*out)->phrase = t.kind == QueryToken::Kind::kPhrase;
        (*out)->prefix = t.prefix;
        ++pos_;
        return true;
      default:
        break;
    }
    return Fail("unexpected " + Describe(t), t);
  }

  std::string_view query_;
  size_t position_;
  std::string* error_;
  std::vector<QueryToken> tokens_;
  size_t pos_ = 0;
  int depth_ = 0;
};

}  // namespace

bool ParseContainsQuery(std::string_view query, size_t position, std::unique_ptr<ContainsNode>* out,
                        std::string* error) {
  QueryParser parser(query, position, error);
  return parser.Parse(out);
}

}  // namespace trovix::engine::index
