// Feeds arbitrary bytes to the NTFS record parser as one file record. The first byte chooses
// the record size (512 to 4096) and whether the update sequence is taken as it comes or
// written over the bytes first, as the file system writes it; without that second mode
// almost every input would stop at the fix-up check and the attribute parsing would go
// untested. The record lives in a buffer of exactly its size, so a read past it is caught.
// The rest of the input also goes to the run-list, attribute-list and boot-sector parsers.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/ntfs/boot_sector.h"
#include "platform/ntfs/data_runs.h"
#include "platform/ntfs/file_record.h"

using namespace trovix::platform::ntfs;

namespace {

// Writes an update sequence over the record: each stride's last two bytes go to the array.
void Seal(std::vector<uint8_t>& record) {
  const size_t strides = record.size() / 512;
  const size_t usa = 48;
  record[4] = usa;
  record[5] = 0;
  record[6] = static_cast<uint8_t>(strides + 1);
  record[7] = 0;
  for (size_t i = 1; i <= strides; ++i) {
    record[usa + 2 * i] = record[i * 512 - 2];
    record[usa + 2 * i + 1] = record[i * 512 - 1];
    record[i * 512 - 2] = record[usa];
    record[i * 512 - 1] = record[usa + 1];
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const uint8_t mode = data[0];
  ++data;
  --size;
  const size_t record_size = size_t{512} << (mode & 0x3);
  std::vector<uint8_t> record(data, data + std::min(size, record_size));
  // A short input is a truncated record: the rest is what an unwritten disk holds.
  record.resize(record_size, 0);
  if (mode & 0x4) Seal(record);
  FileRecord parsed;
  const RecordStatus status = ParseFileRecord(record.data(), record.size(), &parsed);
  if (status == RecordStatus::kOk) {
    for (const FileNameEntry& n : parsed.names)
      if (n.name.empty() || n.name.size() > 255) std::abort();
  }
  // The same bytes cut to the input's own length: a record shorter than its header says.
  std::vector<uint8_t> cut(data, data + size);
  ParseFileRecord(cut.data(), cut.size(), &parsed);

  std::vector<uint8_t> exact(data, data + size);
  std::vector<DataRun> runs;
  DecodeDataRuns(exact.data(), exact.size(), 0, &runs);
  std::vector<AttributeListEntry> entries;
  ParseAttributeList(exact.data(), exact.size(), &entries);
  Geometry geometry;
  std::string error;
  if (ParseBootSector(exact.data(), exact.size(), &geometry, &error) &&
      (geometry.record_size < 512 || geometry.record_size > 65536 || geometry.bytes_per_cluster == 0))
    std::abort();
  return 0;
}
