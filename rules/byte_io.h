// Little-endian reads and writes for the persisted rule list. Internal to rules/; readers
// take a pointer that the caller has already checked against the end of its buffer.
#pragma once

#include <cstdint>
#include <string>

namespace trovix::rules::bytes {

inline void Put32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}
inline void Put64(uint8_t* p, uint64_t v) {
  for (int i = 0; i < 8; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}
inline uint32_t Get32(const uint8_t* p) {
  uint32_t v = 0;
  for (int i = 0; i < 4; ++i) v |= static_cast<uint32_t>(p[i]) << (8 * i);
  return v;
}
inline uint64_t Get64(const uint8_t* p) {
  uint64_t v = 0;
  for (int i = 0; i < 8; ++i) v |= static_cast<uint64_t>(p[i]) << (8 * i);
  return v;
}
inline void Append32(std::string& out, uint32_t v) {
  uint8_t b[4];
  Put32(b, v);
  out.append(reinterpret_cast<const char*>(b), 4);
}

}  // namespace trovix::rules::bytes
