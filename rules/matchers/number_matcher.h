// The number matcher: Number, Date, Float and numeric enumerated rules. It compares the
// item's 64-bit value with a copy of the rule's bounds under the rule's CompareFlags.
// Its state persists as flags (u32), min (u64), max (u64), little-endian.
//
// Date rules with a fixed period or an "In the previous" interval carry no stored bounds: a
// loaded matcher clears the bound flags, and the bounds are computed from the clock once per
// search through SetBounds before the first comparison.
//
// Ownership and threads: as every RuleMatcher.
#pragma once

#include <string>

#include "rules/matchers/rule_matcher.h"

namespace trovix::rules {

class NumberMatcher final : public RuleMatcher {
 public:
  using RuleMatcher::RuleMatcher;

  static constexpr size_t kStateSize = 20;
  // The persisted state of a rule's current values.
  static std::string StateOf(const Rule& rule);

  bool Evaluate() override;
  MatcherValue ValueKind() const override;
  size_t Save(uint8_t* buffer) const override;
  bool Load(const uint8_t* data, size_t size) override;
  // Gives an approximate comparison without a tolerance its 5 percent of |min|.
  void Prepare() override;
  void SetNumber(uint64_t bits) override { value_ = bits; }

  uint32_t flags() const { return flags_; }
  uint64_t min() const { return min_; }
  uint64_t max() const { return max_; }
  uint64_t value() const { return value_; }
  // Replaces bounds and flags, for intervals computed when the search starts.
  void SetBounds(uint32_t flags, uint64_t min, uint64_t max) {
    flags_ = flags;
    min_ = min;
    max_ = max;
  }
  // The comparison runs on doubles: the low two flag bits are exactly 0x02.
  bool IsFloat() const { return (flags_ & cf::kKindMask) == cf::kFloatKind; }

 private:
  uint32_t flags_ = 0;
  uint64_t min_ = kNoValue;
  uint64_t max_ = kNoValue;
  uint64_t value_ = kNoValue;
};

}  // namespace trovix::rules
