// Rule: one condition of a search, on one property of an item (its name, size, a date, a tag,
// the file contents or the free-form expression), with the boolean context and the indent
// level that say how it combines with the rules around it.
//
// Ownership: rules are shared by reference (std::shared_ptr). The rule list of a search panel
// owns its rules and every compiled RuleSet holds references to the same rules, so editing the
// list during a search does not disturb the search: the matchers copy what they compare when
// they are made. Rules are always made by Create/CreateFor/Clone, never on the stack.
// Thread-safety: none inside a rule; a rule is edited by one thread, and a running search only
// reads the rules it compiled (the copies in its matchers). The remembered defaults at the end
// of this header are safe to use from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "base/status.h"
#include "props/property_info.h"
#include "props/property_key.h"
#include "rules/compare_flags.h"

namespace trovix::rules {

class Rule;
class RuleMatcher;
using RulePtr = std::shared_ptr<Rule>;

class Rule : public std::enable_shared_from_this<Rule> {
 public:
  // A rule on `key`, looked up in the default catalogue and then in the all-properties
  // catalogue (so rules saved in the all-properties mode still load). An unknown key gives a
  // rule of kind -1, which is never kept. Indent 0, context AND.
  static RulePtr Create(const props::PropertyKey& key);
  // A rule on a given catalogue entry (not owned; it must outlive the rule). With a null
  // entry the rule is invalid (kind -1) and named after the key.
  static RulePtr CreateFor(const props::PropertyInfo* info, const props::PropertyKey& key);
  static RulePtr CreateFor(const props::PropertyInfo& info) { return CreateFor(&info, info.key); }

  // A new rule on the same key with a copy of kind, context, indent, summary, flags, text,
  // bounds, option condition and index, and the extra text.
  RulePtr Clone() const;

  // Identity, fixed at creation.
  const props::PropertyKey& Key() const { return key_; }
  uint32_t KeyHash() const { return key_hash_; }
  const props::PropertyInfo* Descriptor() const { return info_; }
  // The display name shown in the rule list.
  const std::string& PropertyName() const { return name_; }
  uint16_t PropertyFlags() const { return info_ ? info_->flags() : 0; }
  bool IsContents() const;  // System.Search.Contents
  bool IsComplex() const;   // the free-form expression pseudo-property

  int32_t Kind() const { return kind_; }
  // Text rules change their mode through the kind (3 + mode).
  void SetKind(int32_t kind) { kind_ = kind; }
  int32_t Indent() const { return indent_; }
  void SetIndent(int32_t indent) { indent_ = indent; }
  // Adds delta and returns the new indent.
  int32_t AdjustIndent(int32_t delta) { return indent_ += delta; }
  int32_t Context() const { return context_; }
  void SetContext(int32_t context) { context_ = context; }

  uint32_t Flags() const { return flags_; }
  void SetFlags(uint32_t flags) { flags_ = flags; }
  // Bounds as 64-bit patterns: signed integers for Number and Date (file times), IEEE doubles
  // for Float. kNoValue marks an absent bound.
  uint64_t Min() const { return min_; }
  uint64_t Max() const { return max_; }
  void SetMin(uint64_t bits) { min_ = bits; }
  void SetMax(uint64_t bits) { max_ = bits; }
  // Whether the bounds are doubles: Float rules and numeric options of a Float property.
  bool HasFloatBounds() const;

  // The value of a text rule (UTF-8). For the keyword list (kind 4) a multi-string: "1" and
  // the all-of text, a 0, "2" and the any-of text, a 0, "3" and the none-of text, a 0 and a
  // closing 0, all held in the string.
  const std::string& Text() const { return text_; }
  void SetText(std::string text) { text_ = std::move(text); }
  const std::string& ExtraText() const { return extra_text_; }
  void SetExtraText(std::string text) { extra_text_ = std::move(text); }

  // The cached one-line description of the value; emptied whenever values are applied.
  const std::string& Summary() const { return summary_; }
  void SetSummary(std::string summary) { summary_ = std::move(summary); }

  // Enumerated rules (kinds 10 and 11): the option list and the chosen option.
  const props::OptionList* Options() const { return options_.get(); }
  int32_t OptionCondition() const { return option_condition_; }
  int32_t OptionIndex() const { return option_index_; }
  const props::PropertyOption* ChosenOption() const;
  // Chooses an option and a condition, computes the bounds, flags (and for text options the
  // text) from the option list, then normalises. False, leaving the rule alone, for a rule
  // without options or an index or condition out of range.
  bool SetOption(int32_t condition, int32_t index);

  // A rule that makes no matcher and cannot be loaded (see the .cpp for the exact rules).
  bool IsEmpty() const;
  bool Equals(const Rule& other) const;
  // After the user applies values (and after an option changes): swaps reversed bounds, turns
  // equal Number bounds into an equality, copies the property's display flags, widens dates.
  void Normalise();

  // Appends indent x indent_unit x 3 blanks, the property name and, unless name_only, a blank
  // and the summary (an enumerated rule then adds " (option)").
  void Describe(std::string& out, int indent_unit, bool name_only) const;
  std::string Describe(int indent_unit = 0, bool name_only = false) const {
    std::string out;
    Describe(out, indent_unit, name_only);
    return out;
  }

  // The matcher for this rule, loaded with a copy of its current values; null when the rule
  // is empty or invalid (the rule set then uses a matcher that is always false).
  std::unique_ptr<RuleMatcher> CreateMatcher(bool with_name) const;

  // The payload of the persisted record (what follows the key): indent, context, flags word,
  // then the bounds, the option pair or the UTF-16LE text. Save writes SaveSize() bytes.
  size_t SaveSize() const;
  void Save(uint8_t* buffer) const;
  // Reads a payload into a rule fresh from Create: the kind stays the catalogue's (a text
  // rule takes its mode from the flags word). False for a payload that does not fit the kind.
  bool Load(const uint8_t* data, size_t size);

  // The user applied values: empties the summary and remembers the flags and the context as
  // the defaults for the next rule.
  void ApplyValues();
  // Takes the remembered defaults: flags (and text mode) for the rule's kind, and the context.
  void ApplyDefaults();

 private:
  struct PassKey {};

 public:
  Rule(PassKey, const props::PropertyInfo* info, const props::PropertyKey& key);

 private:
  void ComputeOptionBounds();
  void WidenDates();

  const props::PropertyInfo* info_ = nullptr;
  props::PropertyKey key_;
  uint32_t key_hash_ = 0;
  std::string name_;
  int32_t kind_ = kKindInvalid;
  int32_t context_ = kContextAnd;
  int32_t indent_ = 0;
  uint32_t flags_ = 0;
  uint64_t min_ = kNoValue;
  uint64_t max_ = kNoValue;
  std::string text_;
  std::string extra_text_;
  std::string summary_;
  std::shared_ptr<const props::OptionList> options_;
  int32_t option_condition_ = kOptionEquals;
  int32_t option_index_ = 0;
};

// The kind a property's value type gives (before options are considered): -1, 0, 1, 2 or 3.
int32_t KindForValueType(uint16_t var_type);

// The defaults remembered from the last rule whose values were applied: one flags word for
// each of Number, Date and Float, one for all text kinds (mode in the high 16 bits, flags in
// the low 16), and the context.
uint32_t DefaultFlags(int32_t kind);
int32_t DefaultContext();
void RememberDefaults(const Rule& rule);
void ResetDefaults();

}  // namespace trovix::rules
