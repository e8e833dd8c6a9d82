#include "rules/matchers/text_matcher.h"

#include <cstring>

#include "rules/byte_io.h"
#include "rules/matchers/contents_scan.h"

namespace trovix::rules {

std::string TextMatcherState::Encode() const {
  std::string out;
  bytes::Append32(out, flags);
  bytes::Append32(out, static_cast<uint32_t>(kind));
  bytes::Append32(out, static_cast<uint32_t>(text.size()));
  out += text;
  return out;
}

bool TextMatcherState::Decode(const uint8_t* data, size_t size) {
  if (data == nullptr || size < 12) return false;
  const uint32_t length = bytes::Get32(data + 8);
  if (length > size - 12) return false;
  flags = bytes::Get32(data);
  kind = static_cast<int32_t>(bytes::Get32(data + 4));
  text.assign(reinterpret_cast<const char*>(data + 12), length);
  return true;
}

size_t TextMatcherState::Save(uint8_t* buffer) const {
  const std::string encoded = Encode();
  if (buffer != nullptr) std::memcpy(buffer, encoded.data(), encoded.size());
  return encoded.size();
}

TextMatcherState TextMatcher::StateOf(const Rule& rule) {
  return TextMatcherState{rule.Flags(), rule.Kind(), rule.Text()};
}

std::unique_ptr<TextPattern> TextMatcher::Compile(const TextMatcherState& state, std::string* error) {
  // The pattern layer drops 0x020 from the flags it keeps.
  return TextPattern::Compile(state.text, state.flags, kModeDetect, error);
}

bool TextMatcher::Load(const uint8_t* data, size_t size) {
  TextMatcherState state;
  if (!state.Decode(data, size)) return false;
  auto pattern = Compile(state, nullptr);
  return Adopt(std::move(state), std::move(pattern));
}

TextMatcherState KeywordMatcher::StateOf(const Rule& rule) {
  uint32_t flags = rule.Flags();
  if (rule.IsContents()) flags &= ~cf::kExact;
  return TextMatcherState{flags, rule.Kind(), rule.Text()};
}

std::unique_ptr<KeywordProgram> KeywordMatcher::Compile(const TextMatcherState& state, std::string* error) {
  return KeywordProgram::Compile(state.text, state.kind, state.flags, error);
}

bool KeywordMatcher::Load(const uint8_t* data, size_t size) {
  TextMatcherState state;
  if (!state.Decode(data, size)) return false;
  contents_ = rule().IsContents();
  std::unique_ptr<KeywordProgram> program;
  if (contents_) {
    state.flags &= ~cf::kExact;
    // A phrase matches across line breaks: the text's white space is folded as it streams,
    // and the phrase's own the same way.
    fold_blanks_ = WantsBlankFolding(state.text);
    TextMatcherState folded = state;
    if (fold_blanks_) folded.text = FoldBlanks(state.text);
    program = Compile(folded, nullptr);
  } else {
    program = Compile(state, nullptr);
  }
  return Adopt(std::move(state), std::move(program));
}

bool KeywordMatcher::Evaluate() {
  if (!contents_) return CompiledTextMatcher::Evaluate();
  contents_result_ = {};
  std::string excerpt;
  bool matched = compiled_ && item_ && source_ &&
                 MatchContents(*compiled_, fold_blanks_, *source_, *item_, &excerpt, &contents_result_);
  SetExcerpt(std::move(excerpt));
  return matched;
}

bool UsesKeywordMatcher(const Rule& rule) {
  const int32_t kind = rule.Kind();
  return kind == kKindKeywordList || kind == kKindFreeform || (kind == kKindText && rule.IsContents());
}

bool CheckTextRule(const Rule& rule, std::string* error) {
  if (rule.IsComplex()) return true;  // expressions report through their own compiler
  if (UsesKeywordMatcher(rule)) return KeywordMatcher::Compile(KeywordMatcher::StateOf(rule), error) != nullptr;
  if (rule.Kind() == kKindText || rule.Kind() == kKindEnumText)
    return TextMatcher::Compile(TextMatcher::StateOf(rule), error) != nullptr;
  return true;
}

}  // namespace trovix::rules
