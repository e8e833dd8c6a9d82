#include "platform/ntfs/file_record.h"

#include <cstring>

#include "base/utf.h"
#include "platform/ntfs/ntfs_bytes.h"

namespace trovix::platform::ntfs {
namespace {

// The stride the update sequence protects, whatever the sector size.
constexpr size_t kStride = 512;

bool ParseStandardInformation(const uint8_t* value, size_t size, FileRecord* out) {
  // Version 1.2 values are 48 bytes, the older ones 36; both start alike.
  if (size < 36) return false;
  out->created = static_cast<int64_t>(Le64(value));
  out->modified = static_cast<int64_t>(Le64(value + 8));
  out->changed = static_cast<int64_t>(Le64(value + 16));
  out->accessed = static_cast<int64_t>(Le64(value + 24));
  out->attributes = Le32(value + 32);
  out->has_standard_information = true;
  return true;
}

bool ParseFileName(const uint8_t* value, size_t size, FileRecord* out) {
  if (size < 66) return false;
  const size_t units = value[64];
  if (units == 0 || !InRange(size, 66, units * 2)) return false;
  FileNameEntry entry;
  entry.parent = Le64(value);
  entry.attributes = Le32(value + 56);
  entry.name_space = value[65];
  entry.name = base::ReadUtf16LE(value + 66, units);
  out->names.push_back(std::move(entry));
  return true;
}

// The non-resident part of an attribute header: its run list and value size.
bool ReadRuns(const uint8_t* attr, size_t length, std::vector<DataRun>* runs, uint64_t* data_size) {
  if (length < 64) return false;
  const uint64_t lowest_vcn = Le64(attr + 16);
  const size_t runs_offset = Le16(attr + 32);
  if (runs_offset < 64 || runs_offset > length) return false;
  *data_size = Le64(attr + 48);
  return DecodeDataRuns(attr + runs_offset, length - runs_offset, lowest_vcn, runs);
}

}  // namespace

bool ApplyFixups(uint8_t* record, size_t size) {
  if (size < kStride || size % kStride != 0) return false;
  const size_t usa_offset = Le16(record + 4);
  const size_t usa_count = Le16(record + 6);
  // One entry for the sequence number itself and one per stride, no more and no fewer.
  if (usa_count != size / kStride + 1 || usa_offset % 2 != 0 || usa_offset < 42 ||
      !InRange(kStride - 2, usa_offset, usa_count * 2))
    return false;
  const uint8_t* usa = record + usa_offset;
  for (size_t i = 1; i < usa_count; ++i) {
    uint8_t* tail = record + i * kStride - 2;
    if (tail[0] != usa[0] || tail[1] != usa[1]) return false;
    tail[0] = usa[2 * i];
    tail[1] = usa[2 * i + 1];
  }
  return true;
}

RecordStatus ParseFileRecord(uint8_t* record, size_t size, FileRecord* out) {
  *out = FileRecord();
  if (size < kStride) return RecordStatus::kBad;
  if (std::memcmp(record, "FILE", 4) != 0) {
    static const uint8_t kZero[4] = {0, 0, 0, 0};
    return std::memcmp(record, kZero, 4) == 0 ? RecordStatus::kEmpty : RecordStatus::kBad;
  }
  if (!ApplyFixups(record, size)) return RecordStatus::kBad;
  const uint16_t flags = Le16(record + 22);
  out->sequence = Le16(record + 16);
  out->in_use = (flags & 0x1) != 0;
  out->directory = (flags & 0x2) != 0;
  out->base_reference = Le64(record + 32);
  const size_t used = Le32(record + 24);
  size_t pos = Le16(record + 20);
  if (used > size || used < 48 || pos < 42 || pos > used) return RecordStatus::kBad;
  // Attributes lie inside the used part; each is 8-byte aligned and at least its own header.
  while (true) {
    if (!InRange(used, pos, 4)) return RecordStatus::kBad;
    const uint8_t* attr = record + pos;
    const uint32_t type = Le32(attr);
    if (type == kAttrEnd) break;
    if (!InRange(used, pos, 16)) return RecordStatus::kBad;
    const size_t length = Le32(attr + 4);
    if (length < 16 || length % 8 != 0 || !InRange(used, pos, length)) return RecordStatus::kBad;
    const bool resident = attr[8] == 0;
    const size_t name_length = attr[9];
    const size_t name_offset = Le16(attr + 10);
    if (name_length != 0 && !InRange(length, name_offset, name_length * 2)) return RecordStatus::kBad;
    const uint8_t* value = nullptr;
    size_t value_size = 0;
    if (resident) {
      if (length < 24) return RecordStatus::kBad;
      value_size = Le32(attr + 16);
      const size_t value_offset = Le16(attr + 20);
      if (!InRange(length, value_offset, value_size)) return RecordStatus::kBad;
      value = attr + value_offset;
    }
    switch (type) {
      case kAttrStandardInformation:
        if (!resident || !ParseStandardInformation(value, value_size, out)) return RecordStatus::kBad;
        break;
      case kAttrFileName:
        if (!resident || !ParseFileName(value, value_size, out)) return RecordStatus::kBad;
        break;
      case kAttrAttributeList:
        if (resident) {
          if (!ParseAttributeList(value, value_size, &out->attribute_list)) return RecordStatus::kBad;
        } else {
          out->attribute_list_outside = true;
          if (!ReadRuns(attr, length, &out->attribute_list_runs, &out->attribute_list_size))
            return RecordStatus::kBad;
        }
        break;
      case kAttrData:
        // Named streams are not the file's data; the table's own data is never resident.
        if (!resident && name_length == 0) {
          if (!ReadRuns(attr, length, &out->data_runs, &out->data_size)) return RecordStatus::kBad;
          out->has_data_runs = true;
        }
        break;
      default:
        break;
    }
    pos += length;
  }
  return RecordStatus::kOk;
}

bool ParseAttributeList(const uint8_t* data, size_t size, std::vector<AttributeListEntry>* entries) {
  size_t pos = 0;
  while (pos < size) {
    if (!InRange(size, pos, 26)) return false;
    const uint8_t* entry = data + pos;
    const size_t length = Le16(entry + 4);
    const size_t name_length = entry[6];
    const size_t name_offset = entry[7];
    if (length < 26 || !InRange(size, pos, length)) return false;
    if (name_length != 0 && !InRange(length, name_offset, name_length * 2)) return false;
    AttributeListEntry e;
    e.type = Le32(entry);
    e.lowest_vcn = Le64(entry + 8);
    e.reference = Le64(entry + 16);
    entries->push_back(e);
    pos += length;
  }
  return true;
}

}  // namespace trovix::platform::ntfs
