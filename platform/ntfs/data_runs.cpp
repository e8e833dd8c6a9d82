#include "platform/ntfs/data_runs.h"

#include <cstdint>

namespace trovix::platform::ntfs {

bool DecodeDataRuns(const uint8_t* data, size_t size, uint64_t start_vcn, std::vector<DataRun>* runs) {
  size_t pos = 0;
  uint64_t vcn = start_vcn;
  int64_t lcn = 0;
  while (pos < size) {
    const uint8_t header = data[pos++];
    if (header == 0) return true;
    const unsigned length_size = header & 0x0F;
    const unsigned offset_size = header >> 4;
    if (length_size == 0 || length_size > 8 || offset_size > 8 || size - pos < length_size + offset_size) return false;
    uint64_t length = 0;
    for (unsigned i = 0; i < length_size; ++i) length |= static_cast<uint64_t>(data[pos + i]) << (8 * i);
    pos += length_size;
    // A length with its top bit set would be negative to the writer: no real run is that long.
    if (length == 0 || length > (uint64_t{1} << 62)) return false;
    DataRun run;
    run.vcn = vcn;
    run.length = length;
    if (offset_size == 0) {
      run.lcn = kSparse;
    } else {
      uint64_t raw = 0;
      for (unsigned i = 0; i < offset_size; ++i) raw |= static_cast<uint64_t>(data[pos + i]) << (8 * i);
      pos += offset_size;
      // Sign-extend from the offset's own width.
      if (offset_size < 8 && (raw >> (8 * offset_size - 1)) & 1) raw |= ~uint64_t{0} << (8 * offset_size);
      const int64_t delta = static_cast<int64_t>(raw);
      if (delta > 0 && lcn > INT64_MAX - delta) return false;
      if (delta < 0 && (delta == INT64_MIN || lcn < -delta)) return false;
      lcn += delta;
      run.lcn = lcn;
    }
    runs->push_back(run);
    if (vcn > UINT64_MAX - length) return false;
    vcn += length;
  }
  // A list without its terminating zero is cut short, but what it held is still sound.
  return true;
}

}  // namespace trovix::platform::ntfs
