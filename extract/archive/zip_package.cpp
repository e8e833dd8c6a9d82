#include "extract/archive/zip_package.h"

#include <archive_entry.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "extract/archive/archive_names.h"
#include "extract/archive/archive_open.h"

namespace trovix::extract {
namespace {

constexpr unsigned char kOleMagic[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};

bool StartsWithOleMagic(const DocumentInput& input) {
  char head[sizeof kOleMagic] = {};
  if (input.in_memory()) {
    if (input.bytes->size() < sizeof head) return false;
    memcpy(head, input.bytes->data(), sizeof head);
  } else {
    int fd = open(input.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    ssize_t n = read(fd, head, sizeof head);
    close(fd);
    if (n != static_cast<ssize_t>(sizeof head)) return false;
  }
  return memcmp(head, kOleMagic, sizeof head) == 0;
}

std::string PartName(struct archive_entry* entry) {
  const char* raw = archive_entry_pathname(entry);
  return raw ? DecodeMemberName(raw, true).path : std::string();
}

// Positions `a` at the data of part `name`; false when there is no such part.
bool SeekPart(struct archive* a, const std::string& name, uint32_t max_headers) {
  struct archive_entry* entry = nullptr;
  for (uint32_t seen = 0; seen <= max_headers; ++seen) {
    int r = archive_read_next_header(a, &entry);
    if (r != ARCHIVE_OK && r != ARCHIVE_WARN) return false;
    if (PartName(entry) == name) return archive_entry_is_encrypted(entry) <= 0;
  }
  return false;
}

}  // namespace

Outcome ZipPackage::Open(const DocumentInput& input, ExpandBudget* budget, uint32_t max_parts) {
  input_ = input;
  budget_ = budget;
  names_.clear();
  if (StartsWithOleMagic(input)) return Outcome::Fail(kEndEncrypted, "encrypted");
  ScopedUtf8Locale utf8;
  ArchivePtr a = OpenArchive(input, true);
  if (!a) return Outcome::Fail(kEndUnreadable, "not a document package (zip)");
  struct archive_entry* entry = nullptr;
  for (;;) {
    int r = archive_read_next_header(a.get(), &entry);
    if (r == ARCHIVE_EOF) break;
    if (r != ARCHIVE_OK && r != ARCHIVE_WARN) {
      if (names_.empty()) return Outcome::Fail(kEndUnreadable, "damaged document package");
      break;  // read what the good part of the directory names
    }
    if (names_.size() >= max_parts) return Outcome::Fail(kEndLimit, "too many parts in the document package");
    names_.push_back(PartName(entry));
  }
  if (names_.empty()) return Outcome::Fail(kEndUnreadable, "empty document package");
  return Outcome::Ok();
}

bool ZipPackage::Has(const std::string& name) const {
  return std::find(names_.begin(), names_.end(), name) != names_.end();
}

Outcome ZipPackage::ReadXmlPart(const std::string& name, const std::function<Outcome(SafeXmlReader&)>& visit) {
  ScopedUtf8Locale utf8;
  ArchivePtr a = OpenArchive(input_, true);
  if (!a || !SeekPart(a.get(), name, static_cast<uint32_t>(names_.size())))
    return Outcome::Fail(kEndUnreadable, "cannot read part " + name);
  bool over_budget = false;
  bool broken = false;
  auto pull = [&](char* buffer, int size) -> int {
    if (size <= 0) return 0;
    la_ssize_t n = archive_read_data(a.get(), buffer, static_cast<size_t>(size));
    if (n < 0) {
      broken = true;
      return -1;
    }
    if (!budget_->Take(static_cast<uint64_t>(n))) {
      over_budget = true;
      return -1;
    }
    return static_cast<int>(n);
  };
  std::unique_ptr<SafeXmlReader> reader = SafeXmlReader::FromPull(pull);
  if (!reader) return Outcome::Fail(kEndUnreadable, "cannot read part " + name);
  Outcome outcome = visit(*reader);
  if (over_budget) return Outcome::Fail(kEndLimit, "too much to decompress");
  if (reader->over_limit()) return Outcome::Fail(kEndLimit, "too many XML nodes");
  if (!outcome.ok()) return outcome;
  if (broken || reader->failed()) return Outcome::Fail(kEndUnreadable, "damaged part " + name);
  return outcome;
}

Outcome ZipPackage::ReadSmallPart(const std::string& name, size_t max_bytes, std::string* out) {
  out->clear();
  ScopedUtf8Locale utf8;
  ArchivePtr a = OpenArchive(input_, true);
  if (!a || !SeekPart(a.get(), name, static_cast<uint32_t>(names_.size())))
    return Outcome::Fail(kEndUnreadable, "cannot read part " + name);
  char block[16 * 1024];
  for (;;) {
    la_ssize_t n = archive_read_data(a.get(), block, sizeof block);
    if (n == 0) return Outcome::Ok();
    if (n < 0) return Outcome::Fail(kEndUnreadable, "damaged part " + name);
    if (!budget_->Take(static_cast<uint64_t>(n))) return Outcome::Fail(kEndLimit, "too much to decompress");
    if (out->size() + static_cast<size_t>(n) > max_bytes) return Outcome::Fail(kEndLimit, "part too large");
    out->append(block, static_cast<size_t>(n));
  }
}

}  // namespace trovix::extract
