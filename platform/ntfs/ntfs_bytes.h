// Little-endian reads for the NTFS on-disk structures. Every caller checks the range first;
// these only spare it the byte shuffling, independent of the host's byte order.
#pragma once

#include <cstddef>
#include <cstdint>

namespace trovix::platform::ntfs {

inline uint16_t Le16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
inline uint32_t Le32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) | (static_cast<uint32_t>(p[2]) << 16) |
         (static_cast<uint32_t>(p[3]) << 24);
}
inline uint64_t Le64(const uint8_t* p) { return Le32(p) | (static_cast<uint64_t>(Le32(p + 4)) << 32); }

// Whether [offset, offset + length) lies inside a buffer of `size` bytes, without overflow.
inline bool InRange(size_t size, size_t offset, size_t length) { return offset <= size && length <= size - offset; }

}  // namespace trovix::platform::ntfs
