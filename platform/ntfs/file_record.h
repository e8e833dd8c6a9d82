// One file record of the master file table, parsed. The record is checked before anything is
// taken from it: the "FILE" magic, the update-sequence fix-ups of every 512-byte stride, and
// every attribute's offset and length against the record's own size. A record that fails any
// check is reported bad and nothing of it is used; the parser never reads outside the buffer
// it is given.
//
// Stateless; thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/ntfs/data_runs.h"

namespace trovix::platform::ntfs {

inline constexpr uint32_t kAttrStandardInformation = 0x10;
inline constexpr uint32_t kAttrAttributeList = 0x20;
inline constexpr uint32_t kAttrFileName = 0x30;
inline constexpr uint32_t kAttrData = 0x80;
inline constexpr uint32_t kAttrEnd = 0xFFFFFFFF;

// File-name namespaces. A file with a long name has a Win32 and a DOS entry; a name that fits
// both has one entry of kind 3.
inline constexpr uint8_t kNamePosix = 0;
inline constexpr uint8_t kNameWin32 = 1;
inline constexpr uint8_t kNameDos = 2;
inline constexpr uint8_t kNameWin32AndDos = 3;

// The attribute bit the table adds for folders, as the change journal reports them.
inline constexpr uint32_t kAttributeDirectory = 0x10000000;

// A file reference: record number in the low 48 bits, sequence number in the high 16.
inline constexpr uint64_t RecordNumber(uint64_t reference) { return reference & 0x0000FFFFFFFFFFFFull; }
inline constexpr uint16_t SequenceOf(uint64_t reference) { return static_cast<uint16_t>(reference >> 48); }

struct FileNameEntry {
  uint64_t parent = 0;  // file reference of the folder holding this name
  uint8_t name_space = kNamePosix;
  uint32_t attributes = 0;  // as copied into the name (used when the record has no standard information)
  std::u16string name;
};

struct AttributeListEntry {
  uint32_t type = 0;
  uint64_t lowest_vcn = 0;
  uint64_t reference = 0;  // the record holding the attribute
};

struct FileRecord {
  bool in_use = false;
  bool directory = false;
  uint16_t sequence = 0;
  uint64_t base_reference = 0;  // non-zero: an extension record of that base record
  bool has_standard_information = false;
  uint32_t attributes = 0;  // from $STANDARD_INFORMATION
  int64_t created = 0, modified = 0, changed = 0, accessed = 0;  // file times
  std::vector<FileNameEntry> names;
  // $ATTRIBUTE_LIST: held in the record, or out of it (then its runs and size, to be read).
  std::vector<AttributeListEntry> attribute_list;
  bool attribute_list_outside = false;
  std::vector<DataRun> attribute_list_runs;
  uint64_t attribute_list_size = 0;
  // The unnamed $DATA when it is not resident: only the table's own record 0 needs it.
  std::vector<DataRun> data_runs;
  uint64_t data_size = 0;
  bool has_data_runs = false;
};

// Checks the update sequence of a record of `size` bytes and puts the saved bytes back. False
// (the buffer then partly restored and not to be used) when any stride's last two bytes do not
// carry the sequence number: the record was torn by an interrupted write.
bool ApplyFixups(uint8_t* record, size_t size);

enum class RecordStatus {
  kOk,      // parsed; see in_use
  kEmpty,   // never written (no magic at all): the free end of the table
  kBad,     // a magic or fix-up or layout fault: skip it
};

// Applies the fix-ups in place and parses the record. Attributes that are not understood are
// passed over; a fault in one that is understood makes the whole record bad.
RecordStatus ParseFileRecord(uint8_t* record, size_t size, FileRecord* out);

// Parses the entries of an attribute list value (held in a record, or read from its runs).
bool ParseAttributeList(const uint8_t* data, size_t size, std::vector<AttributeListEntry>* entries);

}  // namespace trovix::platform::ntfs
