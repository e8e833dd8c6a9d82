// MftReader: reads the master file table of an NTFS volume straight from its block device or
// from an image file, and turns each file record into the records the volume table scan works
// on: reference, parent reference, attributes and name, one per name of the file.
//
// What is reported, and why:
//   - only base records in use; extension records are read for their base record's sake (when
//     its attribute list says a name lives there) and never reported on their own;
//   - a file's DOS (8.3) name only when it has no other: the long name is the one users know;
//   - a file with hard links once per distinct (parent, name);
//   - a record that fails its checks (torn fix-ups, offsets outside the record) is counted in
//     bad_records() and skipped silently: one bad record must not hide the rest of the volume.
//
// Thread-safety: one reader per thread. It owns its file descriptor.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/ntfs/boot_sector.h"
#include "platform/ntfs/file_record.h"

namespace trovix::platform::ntfs {

// The answer of Open for a volume that is readable but not NTFS, or whose table cannot be
// found. Not an errno, so it cannot be mistaken for one.
inline constexpr int kNotNtfs = -1;

// One name of one file, in the shape of a change-journal record.
struct VolumeRecord {
  uint64_t reference = 0;  // record number | sequence << 48
  uint64_t parent = 0;     // file reference of the folder holding this name
  uint32_t attributes = 0; // file attributes, with kAttributeDirectory for folders
  std::string name;        // UTF-8
};

class MftReader {
 public:
  MftReader() = default;
  ~MftReader();
  MftReader(const MftReader&) = delete;
  MftReader& operator=(const MftReader&) = delete;

  // Opens the device or image, reads the boot sector and locates the whole table (record 0's
  // run list, with any further pieces its attribute list names). Returns 0, the errno of the
  // open or read that failed, or kNotNtfs; error() says what in words.
  int Open(const std::string& path);

  // Visits every record position in table order, reading the table in large pieces. `names`
  // holds the names of an in-use base record and is empty for anything else, so that the
  // visitor can count positions (to look for Stop) without being told why one is empty. The
  // visitor returns false to end the scan early. False when a read failed (see error()).
  using Visitor = std::function<bool(uint64_t record_number, const std::vector<VolumeRecord>& names)>;
  bool Scan(const Visitor& visit);

  // Reads and parses one record by number. kBad also for a number outside the table or a read
  // that failed.
  RecordStatus ReadRecord(uint64_t number, FileRecord* record);

  const Geometry& geometry() const { return geometry_; }
  uint64_t record_count() const { return record_count_; }
  // The pieces (runs) the table is stored in on the volume.
  size_t extent_count() const { return runs_.size(); }
  uint64_t bad_records() const { return bad_records_; }
  const std::string& error() const { return error_; }

 private:
  bool ReadVolume(uint64_t offset, uint8_t* buffer, size_t length);
  // Reads table bytes at a table offset through the run list; sparse or unmapped parts read
  // as zeros (records that were never written).
  bool ReadTable(uint64_t offset, uint8_t* buffer, size_t length);
  bool ReadAttributeList(const FileRecord& record, std::vector<AttributeListEntry>* entries);
  // The names of one in-use base record, with those kept in its extension records.
  void CollectNames(uint64_t number, const FileRecord& record, std::vector<VolumeRecord>* out);

  int fd_ = -1;
  Geometry geometry_;
  std::vector<DataRun> runs_;
  uint64_t record_count_ = 0;
  uint64_t bad_records_ = 0;
  std::string error_;
};

}  // namespace trovix::platform::ntfs
