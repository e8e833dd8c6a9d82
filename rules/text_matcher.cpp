#include "rules/text_matcher.h"

#include <cstring>

#include "rules/byte_io.h"

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

namespace {

size_t SaveState(const TextMatcherState& state, uint8_t* buffer) {
  const std::string encoded = state.Encode();
  if (buffer != nullptr) std::memcpy(buffer, encoded.data(), encoded.size());
  return encoded.size();
}

std::string_view Excerpt(const std::string& value, const MatchRange& hit, bool matched) {
  if (!matched || hit.offset > value.size()) return {};
  return std::string_view(value).substr(hit.offset, hit.length);
}

}  // namespace

std::string TextMatcher::StateOf(const Rule& rule) {
  return TextMatcherState{rule.Flags(), rule.Kind(), rule.Text()}.Encode();
}

size_t TextMatcher::Save(uint8_t* buffer) const { return SaveState(state_, buffer); }

bool TextMatcher::Load(const uint8_t* data, size_t size) {
  TextMatcherState state;
  if (!state.Decode(data, size)) return false;
  // Detection unless "Auto wildcards" is off; the pattern layer drops 0x020 from what it keeps.
  auto pattern = TextPattern::Compile(state.text, state.flags, kModeDetect);
  if (!pattern) return false;
  state_ = std::move(state);
  pattern_ = std::move(pattern);
  return true;
}

bool TextMatcher::Evaluate() {
  hit_ = {};
  matched_ = pattern_ && pattern_->Match(value_, &hit_);
  return matched_;
}

void TextMatcher::Describe(std::string& text, bool verbose) const {
  if (verbose) {
    text += rule().PropertyName();
    text += ' ';
  }
  if (pattern_) text += pattern_->Describe();
}

std::string_view TextMatcher::excerpt() const { return Excerpt(value_, hit_, matched_); }

std::string KeywordMatcher::StateOf(const Rule& rule) {
  uint32_t flags = rule.Flags();
  if (rule.IsContents()) flags &= ~cf::kExact;
  return TextMatcherState{flags, rule.Kind(), rule.Text()}.Encode();
}

size_t KeywordMatcher::Save(uint8_t* buffer) const { return SaveState(state_, buffer); }

bool KeywordMatcher::Load(const uint8_t* data, size_t size) {
  TextMatcherState state;
  if (!state.Decode(data, size)) return false;
  if (rule().IsContents()) state.flags &= ~cf::kExact;
  auto program = KeywordProgram::Compile(state.text, state.kind, state.flags);
  if (!program) return false;
  state_ = std::move(state);
  program_ = std::move(program);
  return true;
}

bool KeywordMatcher::Evaluate() {
  hit_ = {};
  matched_ = program_ && program_->Match(value_, &hit_);
  return matched_;
}

void KeywordMatcher::Describe(std::string& text, bool verbose) const {
  if (verbose) {
    text += rule().PropertyName();
    text += ' ';
  }
  if (program_) text += program_->Describe();
}

std::string_view KeywordMatcher::excerpt() const { return Excerpt(value_, hit_, matched_); }

bool CheckTextRule(const Rule& rule, std::string* error) {
  const int32_t kind = rule.Kind();
  const bool text_kind = kind >= kKindText && kind < kKindTextEnd;
  if (!text_kind && kind != kKindEnumText) return true;
  if (rule.IsComplex()) return true;  // expressions report through their own compiler
  if (rule.IsContents() || kind == kKindKeywordList || kind == kKindFreeform) {
    uint32_t flags = rule.IsContents() ? rule.Flags() & ~cf::kExact : rule.Flags();
    return KeywordProgram::Compile(rule.Text(), kind == kKindEnumText ? kKindText : kind, flags, error) != nullptr;
  }
  return TextPattern::Compile(rule.Text(), rule.Flags(), kModeDetect, error) != nullptr;
}

}  // namespace trovix::rules
