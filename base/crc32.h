// The standard CRC-32 (reflected polynomial 0xEDB88320, initial value all ones, final
// complement): the hash of a property key that value fetching dispatches on.
#pragma once

#include <cstddef>
#include <cstdint>

namespace trovix::base {

// Continues a CRC over more bytes: Crc32(b, n2, Crc32(a, n1)) equals the CRC of a followed by b.
uint32_t Crc32(const void* data, size_t size, uint32_t previous = 0);

}  // namespace trovix::base
