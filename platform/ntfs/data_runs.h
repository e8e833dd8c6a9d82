// The run list of a non-resident attribute: which clusters hold which part of its value.
// Each run is a header byte (low nibble: size of the length, high nibble: size of the offset),
// the length in clusters and the starting cluster as a signed offset from the previous run's;
// an offset of size 0 is a sparse run with no clusters on disk.
//
// Stateless; thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace trovix::platform::ntfs {

inline constexpr int64_t kSparse = -1;

struct DataRun {
  uint64_t vcn = 0;     // first cluster of the value covered by this run
  int64_t lcn = 0;      // first cluster on the volume, or kSparse
  uint64_t length = 0;  // clusters
};

// Appends the runs of `size` bytes of run list to *runs, the first one starting at
// `start_vcn`. False when the list runs past its bytes, has a zero length, or points before
// the start of the volume; *runs then holds only what was decoded before the fault.
bool DecodeDataRuns(const uint8_t* data, size_t size, uint64_t start_vcn, std::vector<DataRun>* runs);

}  // namespace trovix::platform::ntfs
