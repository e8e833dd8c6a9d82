// The vocabulary of a rule: its kinds, its boolean contexts and the bits of its CompareFlags
// word. One bit means different things for different kinds (0x80 is "exact match" on a text
// rule but "shown as a duration" on a Number rule), so the constants carry the kind they
// belong to in their names. Plain constants, no state.
#pragma once

#include <cstdint>

namespace trovix::rules {

// RuleKind: derived from the property's value type when the rule is made. Text rules carry
// their mode in the kind (3 + mode); every test for "a text rule" is 3 <= kind < 10.
enum RuleKind : int32_t {
  kKindInvalid = -1,
  kKindNumber = 0,
  kKindDate = 1,
  kKindFloat = 2,
  kKindText = 3,          // "Simple (one expression)"
  kKindKeywordList = 4,   // "Keyword list"
  kKindFreeform = 5,      // "Freeform"
  kKindTextEnd = 10,      // 6 to 9 are reserved text modes
  kKindEnumNumber = 10,   // option list of numbers
  kKindEnumText = 11,     // option list of texts
};

inline constexpr bool IsTextKind(int32_t kind) { return kind >= kKindText && kind < kKindTextEnd; }
// Kinds whose value is a 64-bit number compared by the number matcher.
inline constexpr bool IsNumericKind(int32_t kind) {
  return kind == kKindNumber || kind == kKindDate || kind == kKindFloat || kind == kKindEnumNumber;
}

// BoolContext: how a rule joins the rules before it.
enum BoolContext : int32_t {
  kContextAnd = 0,
  kContextOr = 1,
  kContextAndNot = 2,
  kContextOrNot = 3,
};

inline constexpr bool IsOrContext(int32_t context) {
  return context == kContextOr || context == kContextOrNot;
}
inline constexpr bool IsNotContext(int32_t context) {
  return context == kContextAndNot || context == kContextOrNot;
}

// Option conditions of an enumerated rule.
enum OptionCondition : int32_t {
  kOptionEquals = 0,   // "Equals (is)"
  kOptionUpTo = 1,     // "Up to (<=)"
  kOptionAtLeast = 2,  // "At least (>=)"
};

// CompareFlags bits.
namespace cf {
// Number, Float, Date and numeric enumerated rules.
inline constexpr uint32_t kDateKind = 0x1;         // Date flags start from the kind value 1
inline constexpr uint32_t kFloatKind = 0x02;       // Float flags start from the kind value 2
inline constexpr uint32_t kKindMask = 0x3;         // the low two bits: exactly 0x02 means Float
inline constexpr uint32_t kLowerBound = 0x4;       // >= min
inline constexpr uint32_t kUpperBound = 0x8;       // <= max
inline constexpr uint32_t kBounds = kLowerBound | kUpperBound;
inline constexpr uint32_t kEqual = 0x10;           // == min
inline constexpr uint32_t kNotEqual = 0x020;       // != min
inline constexpr uint32_t kShowUnit = 0x40;        // number dialog option: show in the typed unit
inline constexpr uint32_t kDuration = 0x80;        // copied from property flag 0x8
inline constexpr uint32_t kCoordinate = 0x100;     // copied from property flag 0x100
inline constexpr uint32_t kApproximate = 0x0200;   // with kEqual: max is the tolerance
inline constexpr uint32_t kWholeDays = 0x0200;     // Date: widen to 00:00:00 .. 23:59:59
inline constexpr uint32_t kFixedPeriod = 0x800;    // Date: period number in the high 16 bits
inline constexpr uint32_t kPreviousUnitMask = 0xF000;  // Date: "In the previous" unit, bits 12-15
inline constexpr uint32_t kRelativeMask = 0xF800;  // Date: any computed interval
inline constexpr int kHighShift = 16;              // period number, count N, or text mode

// Text kinds.
inline constexpr uint32_t kIgnoreCase = 0x1;
inline constexpr uint32_t kWholeWords = 0x02;
inline constexpr uint32_t kVerbatim = 0x020;       // "Auto wildcards" off
inline constexpr uint32_t kExact = 0x80;           // IS instead of CONTAINS

// Enumerated rules with text options always hold this word.
inline constexpr uint32_t kTextOptions = 0x021;
}  // namespace cf

// Catalogue flags of a property that the rule layer reads (the high half of its type word).
namespace pf {
inline constexpr uint16_t kCostly = 0x0001;
inline constexpr uint16_t kEnumerated = 0x0002;
inline constexpr uint16_t kDuration = 0x0008;
inline constexpr uint16_t kCoordinate = 0x0100;
inline constexpr uint16_t kCheap = 0x0400;
}  // namespace pf

}  // namespace trovix::rules
