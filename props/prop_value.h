// The property value: a tagged variant with the tags of the platform's property-variant form.
// Text is held as UTF-8. Empty text is not a value: MakeText("") gives the empty tag, so
// "empty text" and "no value" are one case for every consumer.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/file_time.h"

namespace trovix::props {

// Variant type numbers (the platform's VARTYPE values).
enum VarType : uint16_t {
  VT_EMPTY = 0,
  VT_NULL = 1,
  VT_I2 = 2,
  VT_I4 = 3,
  VT_R4 = 4,
  VT_R8 = 5,
  VT_DATE = 7,
  VT_BSTR = 8,
  VT_DISPATCH = 9,
  VT_BOOL = 11,
  VT_VARIANT = 12,
  VT_UNKNOWN = 13,
  VT_I1 = 16,
  VT_UI1 = 17,
  VT_UI2 = 18,
  VT_UI4 = 19,
  VT_I8 = 20,
  VT_UI8 = 21,
  VT_INT = 22,
  VT_UINT = 23,
  VT_LPSTR = 30,
  VT_LPWSTR = 31,
  VT_FILETIME = 64,
  VT_BLOB = 65,
  VT_STREAM = 66,
  VT_CF = 71,
  VT_CLSID = 72,
  VT_VECTOR = 0x1000,
  VT_ARRAY = 0x2000,
  VT_BYREF = 0x4000,
};

inline constexpr uint16_t kVarTypeMask = 0x0FFF;

class PropValue {
 public:
  PropValue() = default;  // the empty tag: no value

  static PropValue Int32(int32_t v);
  static PropValue UInt32(uint32_t v);
  static PropValue Int64(int64_t v);
  static PropValue UInt64(uint64_t v);
  static PropValue Double(double v);
  static PropValue Bool(bool v);  // held as -1 / 0
  static PropValue FileTime(base::FileTime v);
  static PropValue Text(std::string utf8);  // empty text gives the empty tag
  static PropValue TextVector(std::vector<std::string> items);
  static PropValue DoubleVector(std::vector<double> items);

  uint16_t tag() const { return tag_; }
  bool IsEmpty() const { return tag_ == VT_EMPTY; }
  bool IsText() const { return tag_ == VT_LPWSTR; }
  bool IsVector() const { return (tag_ & VT_VECTOR) != 0; }

  // The value as a signed 64-bit integer: integers and booleans (-1/0) as they are, time
  // stamps as file times, doubles truncated, text parsed as a decimal number when it is one;
  // 0 otherwise.
  int64_t AsInt64() const;
  // The value as a double; unsigned 64-bit values above 2^63 stay positive.
  double AsDouble() const;
  // The 64 bits a number rule compares: doubles as their IEEE bits, everything else as
  // AsInt64. `want_float` asks for the IEEE bits of AsDouble() whatever the tag.
  uint64_t AsRuleBits(bool want_float) const;
  const std::string& text() const { return text_; }
  const std::vector<std::string>& texts() const { return texts_; }
  const std::vector<double>& doubles() const { return doubles_; }

  // Display text: numbers in decimal, booleans "Yes"/"No", time stamps as local
  // "YYYY-MM-DD HH:MM:SS", vectors joined by "; ".
  std::string ToDisplayText() const;

  friend bool operator==(const PropValue&, const PropValue&) = default;

 private:
  uint16_t tag_ = VT_EMPTY;
  int64_t i_ = 0;
  uint64_t u_ = 0;
  double d_ = 0;
  std::string text_;
  std::vector<std::string> texts_;
  std::vector<double> doubles_;
};

}  // namespace trovix::props
