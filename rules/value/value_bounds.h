// The numeric value of a Number, Float or Date rule as plain data: its kind, its two 64-bit
// bounds and its CompareFlags (rules/compare_flags.h). The value syntax fills it from typed
// text, the value formatter turns it back into text, and ResolvePeriod gives relative date
// rules their concrete bounds, all without needing a whole Rule. A plain value; no state.
#pragma once

#include <cstdint>

#include "base/bits.h"

#include "base/status.h"
#include "rules/compare_flags.h"

namespace trovix::rules {

struct ValueBounds {
  int32_t kind = kKindNumber;  // kKindNumber, kKindDate or kKindFloat
  // Signed integers (Number; Date as file times) or IEEE doubles (Float), as 64-bit patterns;
  // kNoValue marks an absent bound.
  uint64_t min = kNoValue;
  uint64_t max = kNoValue;
  uint32_t flags = 0;

  friend bool operator==(const ValueBounds&, const ValueBounds&) = default;
};

using base::BitsAsDouble;
using base::DoubleAsBits;

}  // namespace trovix::rules
