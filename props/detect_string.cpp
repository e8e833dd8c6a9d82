#include "props/detect_string.h"

#include <utility>

#include "base/ascii.h"

namespace trovix::props {

// Recursive descent over the text with one token of look-ahead. Every fault sets `error_` once
// (the first fault wins) and makes the parse functions return kNone up the stack.
class DetectParser {
 public:
  explicit DetectParser(std::string_view text) : text_(text) {}

  std::optional<DetectString> Parse(DetectError* error) {
    if (text_.size() > kMaxDetectLength) {
      Fail(kMaxDetectLength, "the detect string is longer than " + std::to_string(kMaxDetectLength) +
                                 " characters");
    } else {
      SkipSpaces();
      if (pos_ == text_.size()) {
        Fail(pos_, "the detect string is empty");
      } else {
        uint32_t root = ParseOr(0);
        SkipSpaces();
        if (!failed_ && pos_ != text_.size()) Fail(pos_, "expected \"&\", \"|\" or the end");
        out_.root_ = root;
      }
    }
    if (failed_) {
      if (error) *error = std::move(error_);
      return std::nullopt;
    }
    return std::move(out_);
  }

 private:
  using Kind = DetectString::Kind;
  using Op = DetectString::Op;
  static constexpr uint32_t kNone = UINT32_MAX;

  void Fail(size_t position, std::string message) {
    if (failed_) return;
    failed_ = true;
    error_.position = position;
    error_.message = std::move(message);
  }

  void SkipSpaces() {
    while (pos_ < text_.size() && (text_[pos_] == ' ' || text_[pos_] == '\t' || text_[pos_] == '\r' ||
                                   text_[pos_] == '\n'))
      ++pos_;
  }

  bool Peek(char c) {
    SkipSpaces();
    return pos_ < text_.size() && text_[pos_] == c;
  }

  bool Expect(char c) {
    if (Peek(c)) {
      ++pos_;
      return true;
    }
    Fail(pos_, std::string("expected \"") + c + "\"");
    return false;
  }

  uint32_t Add(DetectString::Node node) {
    out_.nodes_.push_back(std::move(node));
    return static_cast<uint32_t>(out_.nodes_.size() - 1);
  }

  // A chain of the same operator becomes one node with many children, so a long list of
  // alternatives ("EXT=... | EXT=... | ...") does not deepen the tree.
  uint32_t ParseChain(int depth, char op, Kind kind, uint32_t (DetectParser::*next)(int)) {
    uint32_t first = (this->*next)(depth);
    if (failed_ || !Peek(op)) return first;
    DetectString::Node chain;
    chain.kind = kind;
    chain.children.push_back(first);
    while (!failed_ && Peek(op)) {
      ++pos_;
      uint32_t more = (this->*next)(depth);
      if (failed_) return kNone;
      chain.children.push_back(more);
    }
    return Add(std::move(chain));
  }

  uint32_t ParseOr(int depth) { return ParseChain(depth, '|', Kind::kOr, &DetectParser::ParseAnd); }
  uint32_t ParseAnd(int depth) { return ParseChain(depth, '&', Kind::kAnd, &DetectParser::ParseUnary); }

  uint32_t ParseUnary(int depth) {
    SkipSpaces();
    if (++depth > kMaxDetectDepth) {
      Fail(pos_, "the detect string nests deeper than " + std::to_string(kMaxDetectDepth) + " levels");
      return kNone;
    }
    // "!=" after a word is a comparison; a "!" where an operand starts is a negation.
    if (Peek('!')) {
      ++pos_;
      uint32_t inner = ParseUnary(depth);
      if (failed_) return kNone;
      DetectString::Node node;
      node.kind = Kind::kNot;
      node.children.push_back(inner);
      return Add(std::move(node));
    }
    return ParsePrimary(depth);
  }

  uint32_t ParsePrimary(int depth) {
    SkipSpaces();
    size_t start = pos_;
    if (pos_ == text_.size()) {
      Fail(pos_, "expected a test at the end");
      return kNone;
    }
    char c = text_[pos_];
    if (c == '(') {
      ++pos_;
      uint32_t inner = ParseOr(depth);
      if (failed_) return kNone;
      if (!Peek(')')) {
        Fail(pos_, "expected \")\" to close the bracket at " + std::to_string(start));
        return kNone;
      }
      ++pos_;
      return inner;
    }
    if (c == '[') return ParseByteTest();
    std::string_view word = Word();
    if (word.empty()) {
      Fail(start, std::string("unexpected \"") + c + "\"");
      return kNone;
    }
    DetectString::Node node;
    if (AsciiEqualsNoCase(word, "FORCE") || AsciiEqualsNoCase(word, "MULTIMEDIA")) return Add(node);
    if (AsciiEqualsNoCase(word, "EXT")) {
      size_t op_pos = pos_;
      std::optional<Op> op = ParseOp();
      if (!op) return kNone;
      if (*op != Op::kEq && *op != Op::kNe) {
        Fail(op_pos, "EXT compares only with \"=\" or \"!=\"");
        return kNone;
      }
      std::optional<std::string> value = ParseString();
      if (!value) return kNone;
      node.kind = Kind::kExt;
      node.op = *op;
      node.text = AsciiUpper(*value);
      return Add(std::move(node));
    }
    if (AsciiEqualsNoCase(word, "SIZE")) {
      std::optional<Op> op = ParseOp();
      if (!op) return kNone;
      std::optional<uint64_t> value = ParseNumber();
      if (!value) return kNone;
      node.kind = Kind::kSize;
      node.op = *op;
      node.number = *value;
      return Add(std::move(node));
    }
    if (AsciiEqualsNoCase(word, "FIND") || AsciiEqualsNoCase(word, "FINDI")) {
      if (!Expect('(')) return kNone;
      if (!ParseString()) return kNone;
      while (Peek(',')) {
        ++pos_;
        if (!ParseString()) return kNone;
      }
      if (!Expect(')')) return kNone;
      return Add(node);  // a content test: counted as true (see the header)
    }
    Fail(start, "unknown word \"" + std::string(word) + "\"");
    return kNone;
  }

  // "[offset]" compared with a number or a string: a content test, checked and counted as true.
  uint32_t ParseByteTest() {
    ++pos_;  // '['
    if (!ParseNumber() || !Expect(']') || !ParseOp()) return kNone;
    if (Peek('"')) {
      if (!ParseString()) return kNone;
    } else if (!ParseNumber()) {
      return kNone;
    }
    return Add(DetectString::Node{});
  }

  std::string_view Word() {
    size_t start = pos_;
    while (pos_ < text_.size() && ((text_[pos_] >= 'A' && text_[pos_] <= 'Z') ||
                                   (text_[pos_] >= 'a' && text_[pos_] <= 'z')))
      ++pos_;
    return text_.substr(start, pos_ - start);
  }

  std::optional<Op> ParseOp() {
    SkipSpaces();
    auto at = [&](size_t i) { return pos_ + i < text_.size() ? text_[pos_ + i] : '\0'; };
    char a = at(0), b = at(1);
    Op op;
    size_t length = 1;
    if (a == '=') {
      op = Op::kEq;
    } else if (a == '!' && b == '=') {
      op = Op::kNe, length = 2;
    } else if (a == '<') {
      op = b == '=' ? Op::kLe : Op::kLt;
      if (b == '=') length = 2;
    } else if (a == '>') {
      op = b == '=' ? Op::kGe : Op::kGt;
      if (b == '=') length = 2;
    } else {
      Fail(pos_, "expected a comparison (=, !=, <, >, <=, >=)");
      return std::nullopt;
    }
    pos_ += length;
    return op;
  }

  std::optional<std::string> ParseString() {
    SkipSpaces();
    if (pos_ >= text_.size() || text_[pos_] != '"') {
      Fail(pos_, "expected a text in double quotes");
      return std::nullopt;
    }
    size_t open = pos_;
    size_t close = text_.find('"', open + 1);
    if (close == std::string_view::npos) {
      Fail(open, "the text in double quotes is not closed");
      return std::nullopt;
    }
    pos_ = close + 1;
    return std::string(text_.substr(open + 1, close - open - 1));
  }

  std::optional<uint64_t> ParseNumber() {
    SkipSpaces();
    size_t start = pos_;
    uint64_t value = 0;
    while (pos_ < text_.size() && text_[pos_] >= '0' && text_[pos_] <= '9') {
      uint64_t digit = static_cast<uint64_t>(text_[pos_] - '0');
      if (value > (UINT64_MAX - digit) / 10) {
        Fail(start, "the number is too large");
        return std::nullopt;
      }
      value = value * 10 + digit;
      ++pos_;
    }
    if (pos_ == start) {
      Fail(start, "expected a number");
      return std::nullopt;
    }
    return value;
  }

  static std::string AsciiUpper(std::string_view text) {
    std::string out(text);
    for (char& ch : out)
      if (ch >= 'a' && ch <= 'z') ch = static_cast<char>(ch - 'a' + 'A');
    return out;
  }

  std::string_view text_;
  size_t pos_ = 0;
  bool failed_ = false;
  DetectError error_;
  DetectString out_;
};

std::optional<DetectString> DetectString::Compile(std::string_view text, DetectError* error) {
  return DetectParser(text).Parse(error);
}

bool DetectString::Matches(const DetectItem& item) const {
  return nodes_.empty() || Evaluate(root_, item);
}

bool DetectString::Evaluate(uint32_t index, const DetectItem& item) const {
  const Node& node = nodes_[index];
  switch (node.kind) {
    case Kind::kTrue:
      return true;
    case Kind::kExt:
      return (item.extension == node.text) == (node.op == Op::kEq);
    case Kind::kSize:
      switch (node.op) {
        case Op::kEq: return item.size == node.number;
        case Op::kNe: return item.size != node.number;
        case Op::kLt: return item.size < node.number;
        case Op::kGt: return item.size > node.number;
        case Op::kLe: return item.size <= node.number;
        case Op::kGe: return item.size >= node.number;
      }
      return false;
    case Kind::kNot:
      return !Evaluate(node.children[0], item);
    case Kind::kAnd:
      for (uint32_t child : node.children)
        if (!Evaluate(child, item)) return false;
      return true;
    case Kind::kOr:
      for (uint32_t child : node.children)
        if (Evaluate(child, item)) return true;
      return false;
  }
  return false;
}

}  // namespace trovix::props
