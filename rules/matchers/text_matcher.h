// The text matchers: thin RuleMatchers over the text-pattern layer.
//   TextMatcher    - a "Simple (one expression)" rule on any property but the contents, and
//                    an enumerated rule with text options; one compiled TextPattern.
//   KeywordMatcher - "Keyword list" and "Freeform" rules, and a simple rule on the contents;
//                    one compiled KeywordProgram (the contents are searched for text, so the
//                    exact flag is dropped there). On the contents it asks for the item and
//                    streams the item's text through the contents source (rules/matchers/contents_scan.h),
//                    stopping at the first decision.
// State form (both): flags (u32), kind (i32), text length in bytes (u32), the UTF-8 text.
//
// Ownership and threads: as every RuleMatcher. The compiled pattern is owned.
#pragma once

#include <memory>
#include <string>

#include "rules/patterns/text_pattern.h"
#include "rules/matchers/rule_matcher.h"

namespace trovix::rules {

// The state form shared by both text matchers.
struct TextMatcherState {
  uint32_t flags = 0;
  int32_t kind = kKindText;
  std::string text;

  std::string Encode() const;
  bool Decode(const uint8_t* data, size_t size);
  // Writes Encode() into `buffer` (when given) and returns its size.
  size_t Save(uint8_t* buffer) const;
};

// What both text matchers share: the state, the value to test, the last hit. `Compiled` is
// TextPattern or KeywordProgram; both offer Match(value, &hit) and Describe().
template <typename Compiled>
class CompiledTextMatcher : public RuleMatcher {
 public:
  using RuleMatcher::RuleMatcher;

  bool Evaluate() override {
    hit_ = {};
    value_holds_hit_ = true;
    matched_ = compiled_ && compiled_->Match(value_, &hit_);
    return matched_;
  }
  void Describe(std::string& text, bool verbose) const override {
    if (verbose) {
      text += rule().PropertyName();
      text += ' ';
    }
    if (compiled_) text += compiled_->Describe();
  }
  MatcherValue ValueKind() const override { return MatcherValue::kText; }
  size_t Save(uint8_t* buffer) const override { return state_.Save(buffer); }
  void SetText(std::string_view text) override { value_.assign(text); }

  // The matched part of the last value that matched.
  std::string_view excerpt() const {
    if (!value_holds_hit_) return extra_excerpt_;
    if (!matched_ || hit_.offset > value_.size()) return {};
    return std::string_view(value_).substr(hit_.offset, hit_.length);
  }

 protected:
  // Takes a decoded state and what it compiled to; false (nothing kept) when it did not.
  bool Adopt(TextMatcherState state, std::unique_ptr<Compiled> compiled) {
    if (!compiled) return false;
    state_ = std::move(state);
    compiled_ = std::move(compiled);
    return true;
  }

  // For matchers that do not compare a value (the contents): the excerpt to show instead.
  void SetExcerpt(std::string excerpt) {
    value_holds_hit_ = false;
    extra_excerpt_ = std::move(excerpt);
  }

  TextMatcherState state_;
  std::unique_ptr<Compiled> compiled_;

 private:
  bool value_holds_hit_ = true;
  std::string extra_excerpt_;
  std::string value_;
  MatchRange hit_;
  bool matched_ = false;
};

class TextMatcher final : public CompiledTextMatcher<TextPattern> {
 public:
  using CompiledTextMatcher::CompiledTextMatcher;
  static TextMatcherState StateOf(const Rule& rule);
  // Detection unless "Auto wildcards" is off. Null, with a message, for a bad expression.
  static std::unique_ptr<TextPattern> Compile(const TextMatcherState& state, std::string* error);

  // Compiles the pattern; false when it does not compile (a bad regular expression).
  bool Load(const uint8_t* data, size_t size) override;
  const TextPattern* pattern() const { return compiled_.get(); }
};

class KeywordMatcher final : public CompiledTextMatcher<KeywordProgram> {
 public:
  using CompiledTextMatcher::CompiledTextMatcher;
  // The contents are searched for text: the exact flag is dropped there.
  static TextMatcherState StateOf(const Rule& rule);
  static std::unique_ptr<KeywordProgram> Compile(const TextMatcherState& state, std::string* error);

  bool Load(const uint8_t* data, size_t size) override;
  void SetItem(props::ShellItem* item) override { item_ = item; }
  void SetContentsSource(props::ContentsSource* source) override { source_ = source; }
  // On the contents: streams the item's text; elsewhere: matches the loaded value.
  bool Evaluate() override;
  MatcherValue ValueKind() const override {
    return contents_ ? MatcherValue::kItem : CompiledTextMatcher::ValueKind();
  }
  // Why the last item had no text (contents rules only).
  const props::ContentsResult& contents_result() const { return contents_result_; }

  const KeywordProgram* program() const { return compiled_.get(); }
  const std::string& text() const { return state_.text; }
  int32_t kind() const { return state_.kind; }
  uint32_t flags() const { return state_.flags; }
  // The item whose contents are searched, when the provider handed one over.
  props::ShellItem* item() const { return item_; }

 private:
  props::ShellItem* item_ = nullptr;
  props::ContentsSource* source_ = nullptr;
  bool contents_ = false;
  bool fold_blanks_ = false;
  props::ContentsResult contents_result_;
};

// Whether a text rule is matched by a keyword program (keyword lists, freeform, and a simple
// rule on the contents) rather than by one text pattern.
bool UsesKeywordMatcher(const Rule& rule);

// Whether a text rule's value compiles the way its matcher will compile it. False with a
// message for the user (a regular expression that does not compile, a freeform text that does
// not parse); true for every other rule. The rule set itself never reports: a rule that does
// not compile simply gets a matcher that is never true.
bool CheckTextRule(const Rule& rule, std::string* error);

}  // namespace trovix::rules
