// RuleMatcher: the per-rule object that does the actual comparison while a RuleSet runs.
// A rule makes its matcher when a search compiles its rule list; the matcher copies the
// values it compares (so editing the rule during a search changes nothing), keeps a back
// reference to its rule, and holds the hit state of the last item tested.
//
// Before each comparison the rule set's value provider loads the current item's value into
// the matcher through SetNumber, SetText or SetItem, as ValueKind() asks.
//
// Ownership: a RuleSet owns its matchers; a matcher shares its rule.
// Thread-safety: a matcher belongs to one running search and is used by one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "props/contents_source.h"
#include "props/shell_item.h"
#include "rules/rule.h"

namespace trovix::rules {

// The value a matcher wants from the provider.
enum class MatcherValue {
  kNone,    // nothing (the null matcher)
  kNumber,  // the value as a signed 64-bit integer (file times for dates)
  kFloat,   // the value as the bits of an IEEE double
  kText,    // the value as UTF-8 text; vectors joined by "; "
  kItem,    // the item itself (expressions fetch what they name)
};

// Hit states: bit 0 is the rule's own result, bit 1 says that a NOT was applied.
inline constexpr uint16_t kHitNotEvaluated = 0xFFFF;
inline constexpr uint16_t kHitFalse = 0;
inline constexpr uint16_t kHitTrue = 1;
inline constexpr uint16_t kHitNegatedFalse = 2;
inline constexpr uint16_t kHitNegatedTrue = 3;

class RuleMatcher {
 public:
  RuleMatcher(std::shared_ptr<const Rule> rule, bool with_name);
  virtual ~RuleMatcher();
  RuleMatcher(const RuleMatcher&) = delete;
  RuleMatcher& operator=(const RuleMatcher&) = delete;

  // The verdict for the value loaded last.
  virtual bool Evaluate() = 0;
  // Appends a description: the comparison (for example "contains abc"), and with verbose
  // the property name before it.
  virtual void Describe(std::string& text, bool verbose) const;
  virtual MatcherValue ValueKind() const = 0;
  // Writes the matcher's state in the rule payload form; with a null buffer only returns the
  // size needed.
  virtual size_t Save(uint8_t* buffer) const;
  // Takes the state from a rule payload (Rule::Save form). False when it does not fit.
  virtual bool Load(const uint8_t* data, size_t size);
  // Called once when a search prepares its matchers, before the first item.
  virtual void Prepare() {}

  virtual void SetNumber(uint64_t bits);
  virtual void SetText(std::string_view text);
  virtual void SetItem(props::ShellItem* item);
  // Where matchers that read the item's text (contents rules, grep) get it; null: no text.
  virtual void SetContentsSource(props::ContentsSource*) {}

  const Rule& rule() const { return *rule_; }
  const std::shared_ptr<const Rule>& shared_rule() const { return rule_; }
  // The property name when the matcher was made with one, else empty.
  const std::string& name() const { return name_; }
  uint16_t hit_state() const { return hit_state_; }
  void set_hit_state(uint16_t state) { hit_state_ = state; }

 private:
  std::shared_ptr<const Rule> rule_;
  std::string name_;
  uint16_t hit_state_ = kHitNotEvaluated;
};

// The matcher of a rule that yields none: an empty rule, or an expression that does not
// compile. It is never true.
class NullMatcher final : public RuleMatcher {
 public:
  using RuleMatcher::RuleMatcher;
  bool Evaluate() override { return false; }
  MatcherValue ValueKind() const override { return MatcherValue::kNone; }
};

}  // namespace trovix::rules
