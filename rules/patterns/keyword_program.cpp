#include <algorithm>

#include <unicode/uchar.h>

#include "rules/patterns/folding.h"
#include "rules/patterns/text_pattern.h"

namespace trovix::rules {
namespace {

enum class Tri : uint8_t { kFalse = 0, kTrue = 1, kUnknown = 2 };

struct Node {
  enum Kind { kTerm, kAnd, kOr, kNot, kNothing } kind = kNothing;
  size_t term = 0;               // kTerm
  std::vector<size_t> children;  // kAnd, kOr (any number), kNot (one)
};

bool IsBlank(char32_t c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' ||
         (c >= 0x80 && c < detail::kIllFormedBase && u_isblank(static_cast<UChar32>(c)));
}

size_t CharLength(std::string_view text, size_t offset) {
  size_t i = offset + 1;
  while (i < text.size() && (static_cast<uint8_t>(text[i]) & 0xC0) == 0x80) ++i;
  return i - offset;
}

size_t SkipBlanks(std::string_view text, size_t i) {
  while (i < text.size() && IsBlank(detail::CodePointAt(text, i))) i += CharLength(text, i);
  return i;
}

// Where the run that starts at i ends: the next blank, or the end.
size_t WordEnd(std::string_view text, size_t i) {
  while (i < text.size() && !IsBlank(detail::CodePointAt(text, i))) i += CharLength(text, i);
  return i;
}

bool OpensPhrase(std::string_view text, size_t i) {
  return text[i] == '"' && !(i + 1 < text.size() && text[i + 1] == '"');
}

// The phrase whose opening mark is at i: its text (doubled marks still doubled; pattern
// preparation turns them into one) and the offset after its closing mark.
std::string_view Phrase(std::string_view text, size_t i, size_t* next) {
  const size_t start = i + 1;
  size_t j = start;
  while (j < text.size()) {
    if (text[j] == '"') {
      if (j + 1 < text.size() && text[j + 1] == '"') {
        j += 2;
        continue;
      }
      break;
    }
    ++j;
  }
  *next = j < text.size() ? j + 1 : j;
  return text.substr(start, j - start);
}


}  // namespace

std::vector<std::string> SplitKeywords(std::string_view text) {
  std::vector<std::string> keywords;
  size_t i = 0;
  for (;;) {
    i = SkipBlanks(text, i);
    if (i >= text.size()) break;
    std::string_view keyword;
    if (OpensPhrase(text, i)) {
      keyword = Phrase(text, i, &i);
    } else {
      const size_t end = WordEnd(text, i);
      keyword = text.substr(i, end - i);
      i = end;
    }
    if (keyword.empty()) break;  // an empty keyword ends the list
    keywords.emplace_back(keyword);
  }
  return keywords;
}

std::string BuildKeywordList(std::string_view all_of, std::string_view any_of,
                             std::string_view none_of) {
  std::string list;
  list.reserve(all_of.size() + any_of.size() + none_of.size() + 7);
  for (auto [digit, part] : {std::pair{'1', all_of}, {'2', any_of}, {'3', none_of}}) {
    list += digit;
    list += part;
    list += '\0';
  }
  list += '\0';
  return list;
}

bool SplitKeywordList(std::string_view list, std::string* all_of, std::string* any_of,
                      std::string* none_of) {
  std::string* parts[] = {all_of, any_of, none_of};
  size_t i = 0;
  for (int k = 0; k < 3; ++k) {
    if (i >= list.size() || list[i] != static_cast<char>('1' + k)) return false;
    const size_t end = list.find('\0', i + 1);
    if (end == std::string_view::npos) return false;
    if (parts[k] != nullptr) parts[k]->assign(list.substr(i + 1, end - i - 1));
    i = end + 1;
  }
  return i + 1 == list.size() && list[i] == '\0';
}

namespace {

// The compiled program: its terms and a tree of AND, OR and NOT over them.
struct KeywordTree {
  std::vector<std::unique_ptr<TextPattern>> terms;
  std::vector<bool> positive;  // the term counts for the program when found (not under a NOT)
  std::vector<Node> nodes;
  size_t root = 0;
  std::string description;

  size_t Add(Node node) {
    nodes.push_back(std::move(node));
    return nodes.size() - 1;
  }
  size_t AddGroup(Node::Kind kind, std::vector<size_t> children) {
    if (children.size() == 1 && kind != Node::kNot) return children[0];
    Node node;
    node.kind = kind;
    node.children = std::move(children);
    return Add(std::move(node));
  }
  bool AddTerm(std::string_view text, uint32_t flags, size_t* node, std::string* error) {
    std::string message;
    auto pattern = TextPattern::Compile(text, flags, kModeDetect, &message);
    if (pattern == nullptr) {
      if (error != nullptr) *error = "Keyword \"" + std::string(text) + "\": " + message;
      return false;
    }
    terms.push_back(std::move(pattern));
    Node n;
    n.kind = Node::kTerm;
    n.term = terms.size() - 1;
    *node = Add(std::move(n));
    return true;
  }

  // Kleene logic over the term states: unknown terms may still turn up in a later chunk.
  template <typename TermState>
  Tri Eval(size_t index, TermState& state) const {
    const Node& node = nodes[index];
    switch (node.kind) {
      case Node::kNothing:
        return Tri::kFalse;
      case Node::kTerm:
        return state(node.term);
      case Node::kNot: {
        const Tri t = Eval(node.children[0], state);
        return t == Tri::kUnknown ? t : t == Tri::kTrue ? Tri::kFalse : Tri::kTrue;
      }
      case Node::kAnd: {
        Tri result = Tri::kTrue;
        for (size_t child : node.children) {
          const Tri t = Eval(child, state);
          if (t == Tri::kFalse) return t;
          if (t == Tri::kUnknown) result = t;
        }
        return result;
      }
      case Node::kOr: {
        Tri result = Tri::kFalse;
        for (size_t child : node.children) {
          const Tri t = Eval(child, state);
          if (t == Tri::kTrue) return t;
          if (t == Tri::kUnknown) result = t;
        }
        return result;
      }
    }
    return Tri::kFalse;
  }

  void MarkPolarity(size_t index, bool positive_here) {
    const Node& node = nodes[index];
    if (node.kind == Node::kTerm) {
      if (positive_here) positive[node.term] = true;
      return;
    }
    for (size_t child : node.children)
      MarkPolarity(child, node.kind == Node::kNot ? !positive_here : positive_here);
  }

  void Finish(size_t root_node) {
    root = root_node;
    positive.assign(terms.size(), false);
    MarkPolarity(root, true);
  }
};

// Parser of the freeform grammar (see the header).
class FreeformParser {
 public:
  FreeformParser(std::string_view text, uint32_t flags, KeywordTree* impl, std::string* error)
      : text_(text), flags_(flags), impl_(impl), error_(error) {}

  bool Parse(size_t* root) {
    if (!Tokenise()) return false;
    if (tokens_.empty()) return Fail("Nothing to search for", 0);
    if (!Expression(root, 0)) return false;
    if (pos_ < tokens_.size()) {
      const Token& t = tokens_[pos_];
      return Fail(t.kind == kClose ? "Unexpected ')'" : "Unexpected text", t.offset);
    }
    return true;
  }

 private:
  enum Kind { kOpen, kClose, kAnd, kOr, kNot, kWord };
  struct Token {
    Kind kind;
    size_t offset;  // in bytes of the text
    std::string_view text;
  };
  static constexpr int kMaxDepth = 100;

  bool Fail(const std::string& message, size_t offset, const std::string& note = std::string()) {
    if (error_ != nullptr) {
      *error_ = message + " at position " + std::to_string(detail::CharPosition(text_, offset)) + note;
    }
    return false;
  }

  bool Tokenise() {
    size_t i = 0;
    for (;;) {
      i = SkipBlanks(text_, i);
      if (i >= text_.size()) return true;
      if (text_[i] == '(' || text_[i] == ')') {
        tokens_.push_back({text_[i] == '(' ? kOpen : kClose, i, text_.substr(i, 1)});
        ++i;
        continue;
      }
      if (OpensPhrase(text_, i)) {
        const size_t start = i;
        std::string_view phrase = Phrase(text_, i, &i);
        if (phrase.empty()) return Fail("Empty quoted phrase", start);
        tokens_.push_back({kWord, start, phrase});
        continue;
      }
      const size_t end = WordEnd(text_, i);
      std::string_view word = text_.substr(i, end - i);
      // Closing brackets at the end that the word itself does not open belong to the expression.
      const auto opens = std::count(word.begin(), word.end(), '(');
      auto closes = std::count(word.begin(), word.end(), ')');
      size_t trailing = 0;
      while (closes > opens && trailing < word.size() && word[word.size() - 1 - trailing] == ')') {
        ++trailing;
        --closes;
      }
      word.remove_suffix(trailing);
      if (word == "AND") {
        tokens_.push_back({kAnd, i, word});
      } else if (word == "OR") {
        tokens_.push_back({kOr, i, word});
      } else if (word == "NOT") {
        tokens_.push_back({kNot, i, word});
      } else if (!word.empty()) {
        tokens_.push_back({kWord, i, word});
      }
      for (size_t k = 0; k < trailing; ++k) tokens_.push_back({kClose, end - trailing + k, ")"});
      i = end;
    }
  }

  bool AtEnd() const { return pos_ >= tokens_.size(); }
  size_t EndOffset() const { return text_.size(); }
  size_t Offset() const { return AtEnd() ? EndOffset() : tokens_[pos_].offset; }

  bool Expression(size_t* node, int depth) {
    std::vector<size_t> alternatives(1);
    if (!AndTerm(&alternatives[0], depth)) return false;
    while (!AtEnd() && tokens_[pos_].kind == kOr) {
      ++pos_;
      alternatives.emplace_back();
      if (!AndTerm(&alternatives.back(), depth)) return false;
    }
    *node = impl_->AddGroup(Node::kOr, std::move(alternatives));
    return true;
  }

  bool AndTerm(size_t* node, int depth) {
    std::vector<size_t> parts(1);
    if (!NotTerm(&parts[0], depth)) return false;
    for (;;) {
      if (AtEnd()) break;
      const Kind kind = tokens_[pos_].kind;
      if (kind == kAnd) {
        ++pos_;
      } else if (kind != kWord && kind != kNot && kind != kOpen) {
        break;  // OR or ")": not ours
      }
      parts.emplace_back();
      if (!NotTerm(&parts.back(), depth)) return false;
    }
    *node = impl_->AddGroup(Node::kAnd, std::move(parts));
    return true;
  }

  bool NotTerm(size_t* node, int depth) {
    bool negate = false;
    while (!AtEnd() && tokens_[pos_].kind == kNot) {
      negate = !negate;
      ++pos_;
    }
    size_t inner;
    if (!Primary(&inner, depth)) return false;
    *node = negate ? impl_->AddGroup(Node::kNot, {inner}) : inner;
    return true;
  }

  bool Primary(size_t* node, int depth) {
    if (AtEnd()) {
      const char* after = pos_ == 0                        ? nullptr
                          : tokens_[pos_ - 1].kind == kAnd ? "AND"
                          : tokens_[pos_ - 1].kind == kOr  ? "OR"
                          : tokens_[pos_ - 1].kind == kNot ? "NOT"
                                                           : nullptr;
      return Fail(after ? std::string("Keyword expected after ") + after : "Keyword expected",
                  EndOffset());
    }
    const Token& t = tokens_[pos_];
    switch (t.kind) {
      case kWord: {
        ++pos_;
        std::string message;
        if (!impl_->AddTerm(t.text, flags_, node, &message)) return Fail(message, t.offset);
        return true;
      }
      case kOpen: {
        if (depth >= kMaxDepth) return Fail("Too many nested brackets", t.offset);
        ++pos_;
        if (!AtEnd() && tokens_[pos_].kind == kClose) return Fail("Empty brackets", t.offset);
        if (!Expression(node, depth + 1)) return false;
        if (AtEnd() || tokens_[pos_].kind != kClose) {
          return Fail(
              "Missing ')'", Offset(),
              " (for the '(' at position " + std::to_string(detail::CharPosition(text_, t.offset)) + ")");
        }
        ++pos_;
        return true;
      }
      case kClose:
        return Fail("Unexpected ')'", t.offset);
      case kAnd:
      case kOr:
        return Fail(std::string("Keyword expected before ") + (t.kind == kAnd ? "AND" : "OR"),
                    t.offset);
      case kNot:
        break;  // handled by NotTerm
    }
    return Fail("Keyword expected", t.offset);
  }

  std::string_view text_;
  uint32_t flags_;
  KeywordTree* impl_;
  std::string* error_;
  std::vector<Token> tokens_;
  size_t pos_ = 0;
};

std::string JoinParts(const std::string& all_of, const std::string& any_of,
                      const std::string& none_of) {
  std::string out;
  auto add = [&out](const char* label, const std::string& part) {
    if (part.find_first_not_of(" \t") == std::string::npos) return;
    if (!out.empty()) out += "; ";
    out += label;
    out += part;
  };
  add("all of ", all_of);
  add("any of ", any_of);
  add("none of ", none_of);
  return out;
}

}  // namespace

struct KeywordProgram::Impl : KeywordTree {};

KeywordProgram::KeywordProgram() : impl_(std::make_unique<Impl>()) {}
KeywordProgram::~KeywordProgram() = default;

std::unique_ptr<KeywordProgram> KeywordProgram::Compile(std::string_view text, int kind,
                                                        uint32_t flags, std::string* error) {
  std::unique_ptr<KeywordProgram> program(new KeywordProgram);
  Impl& impl = *program->impl_;
  const char* verb = flags & kPatternExact ? "is " : "contains ";
  switch (kind) {
    case 3: {
      size_t node;
      if (!impl.AddTerm(text, flags, &node, error)) return nullptr;
      impl.Finish(node);
      impl.description = impl.terms[0]->Describe();
      return program;
    }
    case 4: {
      std::string parts[3];
      if (!SplitKeywordList(text, &parts[0], &parts[1], &parts[2])) {
        if (error != nullptr) *error = "The keyword list is damaged";
        return nullptr;
      }
      std::vector<size_t> groups[3];
      for (int k = 0; k < 3; ++k) {
        for (const std::string& keyword : SplitKeywords(parts[k])) {
          size_t node;
          if (!impl.AddTerm(keyword, flags, &node, error)) return nullptr;
          groups[k].push_back(node);
        }
      }
      std::vector<size_t> all = groups[0];
      if (!groups[1].empty()) all.push_back(impl.AddGroup(Node::kOr, groups[1]));
      if (!groups[2].empty())
        all.push_back(impl.AddGroup(Node::kNot, {impl.AddGroup(Node::kOr, groups[2])}));
      impl.Finish(all.empty() ? impl.Add(Node{}) : impl.AddGroup(Node::kAnd, std::move(all)));
      impl.description = verb + JoinParts(parts[0], parts[1], parts[2]);
      return program;
    }
    case 5: {
      size_t root;
      FreeformParser parser(text, flags, &impl, error);
      if (!parser.Parse(&root)) return nullptr;
      impl.Finish(root);
      impl.description = verb + std::string(text);
      return program;
    }
    default:
      if (error != nullptr) *error = "Not a keyword rule kind: " + std::to_string(kind);
      return nullptr;
  }
}

std::unique_ptr<KeywordProgram> KeywordProgram::CompileTerms(std::string_view list, char separator,
                                                             uint32_t flags, std::string* error) {
  std::unique_ptr<KeywordProgram> program(new KeywordProgram);
  Impl& impl = *program->impl_;
  std::vector<size_t> must, any, must_not;
  size_t start = 0;
  while (start <= list.size()) {
    size_t end = list.find(separator, start);
    if (end == std::string_view::npos) end = list.size();
    std::string_view piece = list.substr(start, end - start);
    start = end + 1;
    const size_t first = piece.find_first_not_of(" \t");
    if (first == std::string_view::npos) continue;
    piece = piece.substr(first, piece.find_last_not_of(" \t") - first + 1);
    std::vector<size_t>* group = &any;
    if (piece[0] == '+' || piece[0] == '-') {
      group = piece[0] == '+' ? &must : &must_not;
      piece.remove_prefix(1);
      if (piece.empty()) continue;
    }
    size_t node;
    if (!impl.AddTerm(piece, flags, &node, error)) return nullptr;
    group->push_back(node);
  }
  std::vector<size_t> all = must;
  if (!any.empty()) all.push_back(impl.AddGroup(Node::kOr, any));
  if (!must_not.empty())
    all.push_back(impl.AddGroup(Node::kNot, {impl.AddGroup(Node::kOr, must_not)}));
  impl.Finish(all.empty() ? impl.Add(Node{}) : impl.AddGroup(Node::kAnd, std::move(all)));
  impl.description = std::string(flags & kPatternExact ? "is " : "contains ") + std::string(list);
  return program;
}

bool KeywordProgram::Match(std::string_view value, MatchRange* hit) const {
  const Impl& impl = *impl_;
  thread_local std::vector<Tri> states;
  thread_local std::vector<MatchRange> ranges;
  states.assign(impl.terms.size(), Tri::kUnknown);
  ranges.resize(impl.terms.size());
  auto state = [&](size_t term) {
    if (states[term] == Tri::kUnknown) {
      states[term] = impl.terms[term]->Match(value, &ranges[term]) ? Tri::kTrue : Tri::kFalse;
    }
    return states[term];
  };
  if (impl.Eval(impl.root, state) != Tri::kTrue) return false;
  if (hit != nullptr) {
    *hit = {};
    for (size_t t = 0; t < impl.terms.size(); ++t) {
      if (impl.positive[t] && states[t] == Tri::kTrue) {
        *hit = ranges[t];
        break;
      }
    }
  }
  return true;
}

size_t KeywordProgram::TermCount() const { return impl_->terms.size(); }

const TextPattern& KeywordProgram::Term(size_t index) const { return *impl_->terms[index]; }

void KeywordProgram::ScanChunk(std::string_view chunk, std::vector<uint8_t>* hits) const {
  ScanChunk(chunk, hits, nullptr);
}

bool KeywordProgram::ScanChunk(std::string_view chunk, std::vector<uint8_t>* hits, MatchRange* first_found) const {
  const Impl& impl = *impl_;
  hits->resize(impl.terms.size(), 0);
  bool found = false;
  for (size_t t = 0; t < impl.terms.size(); ++t) {
    if ((*hits)[t]) continue;
    MatchRange range;
    if (!impl.terms[t]->Match(chunk, &range)) continue;
    (*hits)[t] = 1;
    if (!found && first_found != nullptr) *first_found = range;
    found = true;
  }
  return found;
}

bool KeywordProgram::Decide(const std::vector<uint8_t>& hits) const {
  auto state = [&](size_t term) {
    return term < hits.size() && hits[term] ? Tri::kTrue : Tri::kFalse;
  };
  return impl_->Eval(impl_->root, state) == Tri::kTrue;
}

bool KeywordProgram::Settled(const std::vector<uint8_t>& hits) const {
  auto state = [&](size_t term) {
    return term < hits.size() && hits[term] ? Tri::kTrue : Tri::kUnknown;
  };
  return impl_->Eval(impl_->root, state) != Tri::kUnknown;
}

std::string KeywordProgram::Describe() const { return impl_->description; }

}  // namespace trovix::rules
