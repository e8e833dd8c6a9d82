// The text matchers: thin RuleMatchers over the text-pattern layer.
//   TextMatcher    - a "Simple (one expression)" rule on any property but the contents, and
//                    an enumerated rule with text options; one compiled TextPattern.
//   KeywordMatcher - "Keyword list" and "Freeform" rules, and a simple rule on the contents;
//                    one compiled KeywordProgram (the contents are searched for text, so the
//                    exact flag is dropped there).
// State form (both): flags (u32), kind (i32), text length in bytes (u32), the UTF-8 text.
//
// Ownership and threads: as every RuleMatcher. The compiled pattern is owned.
#pragma once

#include <memory>
#include <string>

#include "rules/patterns/text_pattern.h"
#include "rules/rule_matcher.h"

namespace trovix::rules {

// The state form shared by both text matchers.
struct TextMatcherState {
  uint32_t flags = 0;
  int32_t kind = kKindText;
  std::string text;

  std::string Encode() const;
  bool Decode(const uint8_t* data, size_t size);
};

class TextMatcher final : public RuleMatcher {
 public:
  using RuleMatcher::RuleMatcher;
  static std::string StateOf(const Rule& rule);

  bool Evaluate() override;
  void Describe(std::string& text, bool verbose) const override;
  MatcherValue ValueKind() const override { return MatcherValue::kText; }
  size_t Save(uint8_t* buffer) const override;
  // Compiles the pattern; false when it does not compile (a bad regular expression).
  bool Load(const uint8_t* data, size_t size) override;
  void SetText(std::string_view text) override { value_.assign(text); }

  const TextPattern* pattern() const { return pattern_.get(); }
  // The matched part of the last value that matched.
  std::string_view excerpt() const;

 private:
  TextMatcherState state_;
  std::unique_ptr<TextPattern> pattern_;
  std::string value_;
  MatchRange hit_;
  bool matched_ = false;
};

class KeywordMatcher final : public RuleMatcher {
 public:
  using RuleMatcher::RuleMatcher;
  static std::string StateOf(const Rule& rule);

  bool Evaluate() override;
  void Describe(std::string& text, bool verbose) const override;
  MatcherValue ValueKind() const override { return MatcherValue::kText; }
  size_t Save(uint8_t* buffer) const override;
  bool Load(const uint8_t* data, size_t size) override;
  void SetText(std::string_view text) override { value_.assign(text); }
  void SetItem(props::ShellItem* item) override { item_ = item; }

  const KeywordProgram* program() const { return program_.get(); }
  const std::string& text() const { return state_.text; }
  int32_t kind() const { return state_.kind; }
  uint32_t flags() const { return state_.flags; }
  // The item whose contents are searched, when the provider handed one over.
  props::ShellItem* item() const { return item_; }
  std::string_view excerpt() const;

 private:
  TextMatcherState state_;
  std::unique_ptr<KeywordProgram> program_;
  std::string value_;
  props::ShellItem* item_ = nullptr;
  MatchRange hit_;
  bool matched_ = false;
};

// Whether a text rule's value compiles the way its matcher will compile it. False with a
// message for the user (a regular expression that does not compile, a freeform text that does
// not parse); true for every other rule. The rule set itself never reports: a rule that does
// not compile simply gets a matcher that is never true.
bool CheckTextRule(const Rule& rule, std::string* error);

}  // namespace trovix::rules
