// The 64-bit patterns in which rules keep their bounds: a signed integer for numbers and
// dates, an IEEE double for floats. These convert a double to its bits and back exactly
// (0.0 and -0.0 stay different, as the equality test of a float rule requires).
#pragma once

#include <bit>
#include <cstdint>

namespace trovix::base {

inline double BitsAsDouble(uint64_t bits) { return std::bit_cast<double>(bits); }
inline uint64_t DoubleAsBits(double d) { return std::bit_cast<uint64_t>(d); }

}  // namespace trovix::base
