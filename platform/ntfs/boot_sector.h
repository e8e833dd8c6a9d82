// The NTFS boot sector: where the master file table starts and how big its records are.
// Only the fields the table reader needs are kept; a sector that is not a plausible NTFS boot
// sector is refused with a message, so that a FAT stick or a random file is never walked.
//
// Stateless; thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace trovix::platform::ntfs {

struct Geometry {
  uint32_t bytes_per_sector = 0;
  uint32_t bytes_per_cluster = 0;
  uint32_t record_size = 0;  // bytes per file record
  uint64_t mft_cluster = 0;  // first cluster of the master file table
  uint64_t total_sectors = 0;
};

// The first 512 bytes of a volume are enough. False, with `*error` set, when they are not an
// NTFS boot sector with sizes this reader can trust.
bool ParseBootSector(const uint8_t* data, size_t size, Geometry* geometry, std::string* error);

}  // namespace trovix::platform::ntfs
