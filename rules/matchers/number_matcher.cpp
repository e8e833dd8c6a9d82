#include "rules/matchers/number_matcher.h"

#include <cmath>

#include "base/bits.h"
#include "rules/byte_io.h"
#include "rules/value/date_period.h"

namespace trovix::rules {
namespace {

using base::BitsAsDouble;
using base::DoubleAsBits;

}  // namespace

std::string NumberMatcher::StateOf(const Rule& rule) {
  std::string state(kStateSize, '\0');
  auto* p = reinterpret_cast<uint8_t*>(state.data());
  bytes::Put32(p, rule.Flags());
  bytes::Put64(p + 4, rule.Min());
  bytes::Put64(p + 12, rule.Max());
  return state;
}

size_t NumberMatcher::Save(uint8_t* buffer) const {
  if (buffer != nullptr) {
    bytes::Put32(buffer, flags_);
    bytes::Put64(buffer + 4, min_);
    bytes::Put64(buffer + 12, max_);
  }
  return kStateSize;
}

bool NumberMatcher::Load(const uint8_t* data, size_t size) {
  if (data == nullptr || size < kStateSize) return false;
  flags_ = bytes::Get32(data);
  min_ = bytes::Get64(data + 4);
  max_ = bytes::Get64(data + 12);
  // A period or relative interval gets its bounds from the clock when the search starts.
  if (flags_ & cf::kRelativeMask) flags_ &= ~cf::kBounds;
  return true;
}

MatcherValue NumberMatcher::ValueKind() const {
  return IsFloat() ? MatcherValue::kFloat : MatcherValue::kNumber;
}

void NumberMatcher::Prepare() {
  if ((flags_ & cf::kEqual) == 0 || (flags_ & cf::kApproximate) == 0 || max_ != kNoValue) return;
  if (IsFloat()) {
    const double min = BitsAsDouble(min_);
    max_ = DoubleAsBits(min == 0.0 ? 1.0 : std::fabs(min) * 5.0 / 100.0);
  } else {
    const int64_t min = static_cast<int64_t>(min_);
    // |min| of the most negative value does not fit: take it through unsigned arithmetic.
    const uint64_t magnitude = min < 0 ? 0 - static_cast<uint64_t>(min) : static_cast<uint64_t>(min);
    uint64_t tolerance = magnitude / 100 * 5 + magnitude % 100 * 5 / 100;
    if (tolerance == 0) tolerance = 1;
    max_ = tolerance;
  }
}

bool NumberMatcher::Evaluate() {
  if (value_ == kNoValue) return false;
  if ((flags_ & cf::kRelativeMask) != 0 && (flags_ & cf::kLowerBound) == 0) {
    // A period or "In the previous" interval: bounds from the clock, once per search.
    ValueBounds bounds{kKindDate, min_, max_, flags_};
    if (!ResolvePeriod(bounds)) return false;  // names no known period or unit
    SetBounds(bounds.flags, bounds.min, bounds.max);
  }
  const bool is_float = IsFloat();
  if (flags_ & cf::kEqual) {
    if ((flags_ & cf::kApproximate) == 0) return value_ == min_;
    if (is_float) {
      const double v = BitsAsDouble(value_), m = BitsAsDouble(min_), t = BitsAsDouble(max_);
      return m - t <= v && v <= m + t;
    }
    // Wide enough that min +- tolerance cannot overflow.
    const __int128 v = static_cast<int64_t>(value_);
    const __int128 m = static_cast<int64_t>(min_);
    const __int128 t = static_cast<int64_t>(max_);
    return m - t <= v && v <= m + t;
  }
  if (flags_ & cf::kNotEqual) return value_ != min_;
  if (is_float) {
    const double v = BitsAsDouble(value_);
    if ((flags_ & cf::kLowerBound) && v < BitsAsDouble(min_)) return false;
    if ((flags_ & cf::kUpperBound) && v > BitsAsDouble(max_)) return false;
    return true;
  }
  const int64_t v = static_cast<int64_t>(value_);
  if ((flags_ & cf::kLowerBound) && v < static_cast<int64_t>(min_)) return false;
  if ((flags_ & cf::kUpperBound) && v > static_cast<int64_t>(max_)) return false;
  return true;
}

}  // namespace trovix::rules
