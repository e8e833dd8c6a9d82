#include "platform/ntfs/mft_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/utf.h"

namespace trovix::platform::ntfs {
namespace {

// Records read per piece of a scan: 1 MiB with the usual 1 KiB records.
constexpr size_t kRecordsPerRead = 1024;
// An attribute list longer than this belongs to no real file (each entry names one attribute).
constexpr uint64_t kMaxAttributeList = 1u << 20;

}  // namespace

MftReader::~MftReader() {
  if (fd_ >= 0) ::close(fd_);
}

bool MftReader::ReadVolume(uint64_t offset, uint8_t* buffer, size_t length) {
  size_t done = 0;
  while (done < length) {
    ssize_t n = ::pread(fd_, buffer + done, length - done, static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      error_ = std::string("cannot read the volume: ") + std::strerror(errno);
      return false;
    }
    // Past the end of a truncated image: what is not there was never written.
    if (n == 0) {
      std::memset(buffer + done, 0, length - done);
      return true;
    }
    done += static_cast<size_t>(n);
  }
  return true;
}

bool MftReader::ReadTable(uint64_t offset, uint8_t* buffer, size_t length) {
  const uint64_t cluster = geometry_.bytes_per_cluster;
  while (length > 0) {
    const uint64_t vcn = offset / cluster;
    auto run = std::upper_bound(runs_.begin(), runs_.end(), vcn,
                                [](uint64_t v, const DataRun& r) { return v < r.vcn; });
    size_t piece = length;
    if (run == runs_.begin() || vcn - std::prev(run)->vcn >= std::prev(run)->length) {
      // Not mapped: zeros up to the next run.
      if (run != runs_.end()) piece = static_cast<size_t>(std::min<uint64_t>(length, run->vcn * cluster - offset));
      std::memset(buffer, 0, piece);
    } else {
      const DataRun& r = *std::prev(run);
      const uint64_t run_end = (r.vcn + r.length) * cluster;
      piece = static_cast<size_t>(std::min<uint64_t>(length, run_end - offset));
      if (r.lcn == kSparse) {
        std::memset(buffer, 0, piece);
      } else {
        const uint64_t disk = static_cast<uint64_t>(r.lcn) * cluster + (offset - r.vcn * cluster);
        if (!ReadVolume(disk, buffer, piece)) return false;
      }
    }
    // A run list whose numbers overflow when turned into bytes can give a piece of nothing:
    // the table is damaged, and going round again would never end.
    if (piece == 0) {
      error_ = "the file table's run list is damaged";
      return false;
    }
    buffer += piece;
    offset += piece;
    length -= piece;
  }
  return true;
}

int MftReader::Open(const std::string& path) {
  fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd_ < 0) {
    const int e = errno;
    error_ = std::string("cannot open ") + path + ": " + std::strerror(e);
    return e;
  }
  uint8_t boot[512];
  if (!ReadVolume(0, boot, sizeof boot)) return EIO;
  if (!ParseBootSector(boot, sizeof boot, &geometry_, &error_)) return kNotNtfs;

  // Record 0 describes the table itself; its first run must hold at least record 0.
  const uint64_t cluster = geometry_.bytes_per_cluster;
  const uint64_t clusters = std::max<uint64_t>(1, geometry_.record_size / cluster);
  runs_ = {DataRun{0, static_cast<int64_t>(geometry_.mft_cluster), clusters}};
  FileRecord mft;
  if (ReadRecord(0, &mft) != RecordStatus::kOk || !mft.in_use || !mft.has_data_runs || mft.data_runs.empty()) {
    if (error_.empty()) error_ = "the file table's own record is damaged";
    return kNotNtfs;
  }
  std::vector<DataRun> runs = mft.data_runs;
  uint64_t data_size = mft.data_size;
  // A very fragmented table continues its run list in extension records. They lie in the part
  // already mapped (the first records), so the runs of record 0 are enough to read them.
  std::vector<AttributeListEntry> entries;
  runs_ = runs;
  if (ReadAttributeList(mft, &entries)) {
    for (const AttributeListEntry& e : entries) {
      if (e.type != kAttrData || RecordNumber(e.reference) == 0) continue;
      FileRecord extension;
      if (ReadRecord(RecordNumber(e.reference), &extension) != RecordStatus::kOk) continue;
      if (RecordNumber(extension.base_reference) != 0 || !extension.has_data_runs) continue;
      for (const DataRun& r : extension.data_runs)
        if (std::none_of(runs.begin(), runs.end(), [&](const DataRun& o) { return o.vcn == r.vcn; })) runs.push_back(r);
    }
  }
  std::sort(runs.begin(), runs.end(), [](const DataRun& a, const DataRun& b) { return a.vcn < b.vcn; });
  // A run past the end of the volume is a damaged run list; taken as it stands it could have a
  // scan read terabytes of nothing.
  const uint64_t volume_clusters = geometry_.total_sectors / (cluster / geometry_.bytes_per_sector) + 1;
  for (const DataRun& r : runs) {
    if (r.length > volume_clusters ||
        (r.lcn != kSparse && (static_cast<uint64_t>(r.lcn) > volume_clusters || r.length > volume_clusters - r.lcn))) {
      error_ = "the file table's run list points past the end of the volume";
      return kNotNtfs;
    }
  }
  runs_ = std::move(runs);
  uint64_t mapped = 0;
  for (const DataRun& r : runs_) mapped = std::max(mapped, (r.vcn + r.length) * cluster);
  record_count_ = std::min(data_size, mapped) / geometry_.record_size;
  error_.clear();
  return 0;
}

RecordStatus MftReader::ReadRecord(uint64_t number, FileRecord* record) {
  const size_t size = geometry_.record_size;
  if (record_count_ != 0 && number >= record_count_) return RecordStatus::kBad;
  std::vector<uint8_t> buffer(size);
  if (!ReadTable(number * size, buffer.data(), size)) return RecordStatus::kBad;
  return ParseFileRecord(buffer.data(), size, record);
}

bool MftReader::ReadAttributeList(const FileRecord& record, std::vector<AttributeListEntry>* entries) {
  if (!record.attribute_list_outside) {
    *entries = record.attribute_list;
    return !entries->empty();
  }
  if (record.attribute_list_size == 0 || record.attribute_list_size > kMaxAttributeList) return false;
  const uint64_t cluster = geometry_.bytes_per_cluster;
  std::vector<uint8_t> value(record.attribute_list_size);
  uint64_t done = 0;
  for (const DataRun& r : record.attribute_list_runs) {
    if (done >= value.size()) break;
    if (r.vcn * cluster != done) return false;  // a list with holes is not one we can trust
    const uint64_t piece = std::min<uint64_t>(value.size() - done, r.length * cluster);
    if (r.lcn == kSparse) return false;
    if (!ReadVolume(static_cast<uint64_t>(r.lcn) * cluster, value.data() + done, piece)) return false;
    done += piece;
  }
  if (done < value.size()) return false;
  return ParseAttributeList(value.data(), value.size(), entries);
}

void MftReader::CollectNames(uint64_t number, const FileRecord& record, std::vector<VolumeRecord>* out) {
  std::vector<FileNameEntry> names = record.names;
  std::vector<AttributeListEntry> entries;
  if ((record.attribute_list_outside || !record.attribute_list.empty()) && ReadAttributeList(record, &entries)) {
    std::vector<uint64_t> seen;
    for (const AttributeListEntry& e : entries) {
      const uint64_t holder = RecordNumber(e.reference);
      if (e.type != kAttrFileName || holder == number) continue;
      if (std::find(seen.begin(), seen.end(), holder) != seen.end()) continue;
      seen.push_back(holder);
      FileRecord extension;
      // An extension that does not point back at this record is someone else's (or stale).
      if (ReadRecord(holder, &extension) != RecordStatus::kOk || !extension.in_use ||
          RecordNumber(extension.base_reference) != number)
        continue;
      names.insert(names.end(), extension.names.begin(), extension.names.end());
    }
  }
  const bool has_long = std::any_of(names.begin(), names.end(),
                                    [](const FileNameEntry& n) { return n.name_space != kNameDos; });
  uint32_t attributes = record.has_standard_information ? record.attributes
                        : names.empty()                 ? 0
                                                        : names.front().attributes;
  if (record.directory) attributes |= kAttributeDirectory;
  const uint64_t reference = number | (static_cast<uint64_t>(record.sequence) << 48);
  for (const FileNameEntry& n : names) {
    if (has_long && n.name_space == kNameDos) continue;
    std::string name = base::Utf16ToUtf8(n.name);
    const bool duplicate = std::any_of(out->begin(), out->end(), [&](const VolumeRecord& r) {
      return r.parent == n.parent && r.name == name;
    });
    if (duplicate) continue;
    out->push_back(VolumeRecord{reference, n.parent, attributes, std::move(name)});
  }
}

bool MftReader::Scan(const Visitor& visit) {
  const size_t size = geometry_.record_size;
  std::vector<uint8_t> buffer(size * kRecordsPerRead);
  std::vector<VolumeRecord> names;
  FileRecord record;
  for (uint64_t first = 0; first < record_count_; first += kRecordsPerRead) {
    const uint64_t count = std::min<uint64_t>(kRecordsPerRead, record_count_ - first);
    if (!ReadTable(first * size, buffer.data(), count * size)) return false;
    for (uint64_t i = 0; i < count; ++i) {
      names.clear();
      const RecordStatus status = ParseFileRecord(buffer.data() + i * size, size, &record);
      if (status == RecordStatus::kBad) ++bad_records_;
      if (status == RecordStatus::kOk && record.in_use && record.base_reference == 0)
        CollectNames(first + i, record, &names);
      if (!visit(first + i, names)) return true;
    }
  }
  return true;
}

}  // namespace trovix::platform::ntfs
