#include "platform/ntfs/boot_sector.h"

#include <cstring>

#include "platform/ntfs/ntfs_bytes.h"

namespace trovix::platform::ntfs {
namespace {

bool IsPowerOfTwo(uint64_t n) { return n != 0 && (n & (n - 1)) == 0; }

}  // namespace

bool ParseBootSector(const uint8_t* data, size_t size, Geometry* geometry, std::string* error) {
  if (size < 512 || std::memcmp(data + 3, "NTFS    ", 8) != 0) {
    *error = "not an NTFS volume";
    return false;
  }
  Geometry g;
  g.bytes_per_sector = Le16(data + 0x0B);
  if (g.bytes_per_sector < 256 || g.bytes_per_sector > 4096 || !IsPowerOfTwo(g.bytes_per_sector)) {
    *error = "NTFS boot sector: bad sector size";
    return false;
  }
  // Clusters past 64 KiB are written as a negative power of two (Windows 10 allows 2 MiB).
  // The shift is bounded first: a byte like 0xB0 would ask for 2^80 sectors.
  const uint8_t spc = data[0x0D];
  const unsigned shift = spc <= 0x80 ? 0 : 256u - spc;
  uint64_t sectors_per_cluster = spc <= 0x80 ? spc : shift <= 20 ? (uint64_t{1} << shift) : 0;
  uint64_t cluster = sectors_per_cluster * g.bytes_per_sector;
  if (!IsPowerOfTwo(sectors_per_cluster) || cluster > (2u << 20)) {
    *error = "NTFS boot sector: bad cluster size";
    return false;
  }
  g.bytes_per_cluster = static_cast<uint32_t>(cluster);
  // Signed: a positive count is clusters per record, a negative one a power of two in bytes
  // (the usual 1 KiB records on 4 KiB clusters are written as -10).
  const int8_t per_record = static_cast<int8_t>(data[0x40]);
  uint64_t record = 0;
  if (per_record > 0) {
    record = static_cast<uint64_t>(per_record) * cluster;
  } else if (per_record >= -31) {
    record = uint64_t{1} << -per_record;
  }
  // Update sequences protect 512-byte strides, so a record is a whole number of them; anything
  // past 64 KiB is no volume that was ever formatted.
  if (record < 512 || record > 65536 || !IsPowerOfTwo(record)) {
    *error = "NTFS boot sector: bad file record size";
    return false;
  }
  g.record_size = static_cast<uint32_t>(record);
  g.total_sectors = Le64(data + 0x28);
  g.mft_cluster = Le64(data + 0x30);
  if (g.mft_cluster == 0 || g.mft_cluster > g.total_sectors) {
    *error = "NTFS boot sector: the file table lies outside the volume";
    return false;
  }
  *geometry = g;
  return true;
}

}  // namespace trovix::platform::ntfs
