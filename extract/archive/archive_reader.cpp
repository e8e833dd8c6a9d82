#include "extract/archive/archive_reader.h"

#include <archive_entry.h>

#include <set>

#include "extract/archive/archive_names.h"
#include "extract/archive/archive_open.h"
#include "extract/readers/mail_reader.h"

namespace trovix::extract {
namespace {

constexpr size_t kReadBlockBytes = 64 * 1024;
// libarchive may ask to retry a header; a broken archive must not make that endless.
constexpr int kMaxRetries = 8;
// Cancel checks cost a system call; members are cheap, so look every few of them.
constexpr uint32_t kMembersPerCancelCheck = 32;

bool IsZip(struct archive* a) { return (archive_format(a) & ARCHIVE_FORMAT_BASE_MASK) == ARCHIVE_FORMAT_ZIP; }

std::string ErrorText(struct archive* a, const char* fallback) {
  const char* e = archive_error_string(a);
  return e && *e ? std::string(e) : std::string(fallback);
}

// Next header: 1 a header, 0 the end, -1 a fatal error.
int NextHeader(struct archive* a, struct archive_entry** entry) {
  for (int tries = 0; tries < kMaxRetries; ++tries) {
    int r = archive_read_next_header(a, entry);
    if (r == ARCHIVE_EOF) return 0;
    if (r == ARCHIVE_OK || r == ARCHIVE_WARN) return 1;
    if (r != ARCHIVE_RETRY) return -1;
  }
  return -1;
}

MemberName EntryName(struct archive* a, struct archive_entry* entry) {
  const char* raw = archive_entry_pathname(entry);
  if (raw == nullptr) raw = archive_entry_pathname_utf8(entry);
  if (raw == nullptr) return {};
  return DecodeMemberName(raw, IsZip(a));
}

bool IsDirEntry(struct archive_entry* entry, const MemberName& name) {
  return name.dir_suffix || archive_entry_filetype(entry) == AE_IFDIR;
}

// Decompressing to skip over members (tar.gz and the like) also spends the budget.
bool WithinBudget(struct archive* a, const ExpandBudget& budget, uint64_t* counted) {
  if (archive_filter_count(a) <= 1) return true;
  int64_t total = archive_filter_bytes(a, 0);
  if (total < 0 || static_cast<uint64_t>(total) <= *counted) return true;
  uint64_t fresh = static_cast<uint64_t>(total) - *counted;
  *counted = static_cast<uint64_t>(total);
  return fresh <= budget.left();
}

std::string MembersLimitText(const ExtractLimits& limits) {
  return "more than " + std::to_string(limits.max_members) + " members";
}

}  // namespace

Outcome ListArchive(const DocumentInput& input, const ExtractLimits& limits, ExpandBudget* budget,
                    const MemberFn& on_member, const CancelledFn& cancelled) {
  // Mail holds its attachments as an archive holds members.
  if (IsMailInput(input, ExtensionOf(input.name))) return ListMail(input, limits, budget, on_member, cancelled);
  ScopedUtf8Locale utf8;
  ArchivePtr a = OpenArchive(input);
  if (!a) return Outcome::Fail(kEndUnreadable, "not an archive that can be read");
  std::set<std::string> dirs_listed;
  uint32_t seen = 0;
  uint64_t counted = 0;
  for (;;) {
    struct archive_entry* entry = nullptr;
    int r = NextHeader(a.get(), &entry);
    if (r == 0) return Outcome::Ok();
    if (r < 0) return Outcome::Fail(kEndUnreadable, ErrorText(a.get(), "damaged archive"));
    if (++seen > limits.max_members) return Outcome::Fail(kEndLimit, MembersLimitText(limits));
    if (!WithinBudget(a.get(), *budget, &counted)) return Outcome::Fail(kEndLimit, "too much to decompress");
    if (seen % kMembersPerCancelCheck == 0 && cancelled && cancelled())
      return Outcome::Fail(kEndCancelled, "cancelled");

    MemberName name = EntryName(a.get(), entry);
    if (name.path.empty()) continue;
    bool is_dir = IsDirEntry(entry, name);
    // Parent folders first, each once, whether or not the archive stores them.
    for (size_t slash = name.path.find('/'); slash != std::string::npos; slash = name.path.find('/', slash + 1)) {
      std::string parent = name.path.substr(0, slash);
      if (parent.empty() || !dirs_listed.insert(parent).second) continue;
      ArchiveMember dir;
      dir.path = parent;
      dir.is_dir = true;
      if (!on_member(dir)) return Outcome::Fail(kEndCancelled, "cancelled");
    }
    if (is_dir && !dirs_listed.insert(name.path).second) continue;

    ArchiveMember m;
    m.path = std::move(name.path);
    m.is_dir = is_dir;
    m.size = !is_dir && archive_entry_size_is_set(entry) && archive_entry_size(entry) > 0
                 ? static_cast<uint64_t>(archive_entry_size(entry))
                 : 0;
    if (archive_entry_mtime_is_set(entry)) {
      m.mtime_sec = archive_entry_mtime(entry);
      long nsec = archive_entry_mtime_nsec(entry);
      m.mtime_nsec = nsec > 0 && nsec < 1'000'000'000 ? static_cast<uint32_t>(nsec) : 0;
    }
    m.encrypted = archive_entry_is_encrypted(entry) > 0;
    if (!on_member(m)) return Outcome::Fail(kEndCancelled, "cancelled");
  }
}

Outcome ReadMember(const DocumentInput& input, std::string_view member_path, const ExtractLimits& limits,
                   ExpandBudget* budget, std::string* bytes) {
  if (IsMailInput(input, ExtensionOf(input.name))) return ReadMailMember(input, member_path, limits, budget, bytes);
  bytes->clear();
  if (limits.max_member_bytes == 0) return Outcome::Fail(kEndTooLarge, "reading archive members is off");
  ScopedUtf8Locale utf8;
  ArchivePtr a = OpenArchive(input);
  if (!a) return Outcome::Fail(kEndUnreadable, "not an archive that can be read");
  uint32_t seen = 0;
  uint64_t counted = 0;
  for (;;) {
    struct archive_entry* entry = nullptr;
    int r = NextHeader(a.get(), &entry);
    if (r == 0) return Outcome::Fail(kEndUnreadable, "no member " + std::string(member_path));
    if (r < 0) return Outcome::Fail(kEndUnreadable, ErrorText(a.get(), "damaged archive"));
    if (++seen > limits.max_members) return Outcome::Fail(kEndLimit, MembersLimitText(limits));
    if (!WithinBudget(a.get(), *budget, &counted)) return Outcome::Fail(kEndLimit, "too much to decompress");
    MemberName name = EntryName(a.get(), entry);
    if (name.path != member_path) continue;
    if (IsDirEntry(entry, name)) continue;  // a file of the same name may follow

    if (archive_entry_is_encrypted(entry) > 0) return Outcome::Fail(kEndEncrypted, "encrypted");
    if (archive_entry_size_is_set(entry)) {
      int64_t declared = archive_entry_size(entry);
      if (declared > 0 && static_cast<uint64_t>(declared) > limits.max_member_bytes)
        return Outcome::Fail(kEndTooLarge, "member too large to read");
      if (declared > 0 && static_cast<uint64_t>(declared) > budget->left())
        return Outcome::Fail(kEndLimit, "too much to decompress");
      if (declared > 0) bytes->reserve(static_cast<size_t>(declared));
    }
    // The declared size may lie (or be absent): the bytes actually read decide.
    char block[kReadBlockBytes];
    for (;;) {
      la_ssize_t n = archive_read_data(a.get(), block, sizeof block);
      if (n == 0) return Outcome::Ok();
      if (n < 0) {
        bytes->clear();
        return Outcome::Fail(kEndUnreadable, ErrorText(a.get(), "damaged member"));
      }
      if (bytes->size() + static_cast<uint64_t>(n) > limits.max_member_bytes) {
        bytes->clear();
        return Outcome::Fail(kEndTooLarge, "member too large to read");
      }
      if (!budget->Take(static_cast<uint64_t>(n))) {
        bytes->clear();
        return Outcome::Fail(kEndLimit, "too much to decompress");
      }
      bytes->append(block, static_cast<size_t>(n));
    }
  }
}

}  // namespace trovix::extract
