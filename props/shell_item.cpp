#include "props/shell_item.h"

#include <fcntl.h>

#include <atomic>

#include "base/utf.h"

namespace trovix::props {

using platform::FileType;

namespace {
std::atomic<uint64_t> g_status_reads{0};
}  // namespace

void CountStatusRead() { g_status_reads.fetch_add(1, std::memory_order_relaxed); }
uint64_t StatusReadCount() { return g_status_reads.load(std::memory_order_relaxed); }

std::shared_ptr<ShellItem> ShellItem::FromPath(std::string path, bool follow_links) {
  return std::make_shared<ShellItem>(Key(), std::move(path), FileType::kUnknown, follow_links);
}

std::shared_ptr<ShellItem> ShellItem::FromListing(std::string path, FileType listed_type,
                                                  bool follow_links) {
  return std::make_shared<ShellItem>(Key(), std::move(path), listed_type, follow_links);
}

std::shared_ptr<ShellItem> ShellItem::FromArchiveMember(ArchiveLocation location,
                                                        const platform::FileStatus& status) {
  std::string path = location.container;
  for (const std::string& member : location.members) (path += '/') += member;
  auto item = std::make_shared<ShellItem>(Key(), std::move(path), status.type, false);
  item->archive_ = std::make_unique<ArchiveLocation>(std::move(location));
  // The listing is all there is to know: nothing asks the file system about a member.
  item->SetListedStatus(0, status);
  return item;
}

ShellItem::ShellItem(Key, std::string path, FileType listed_type, bool follow_links)
    : path_(std::move(path)), listed_type_(listed_type), follow_links_(follow_links) {
  // The name is the last component; a trailing slash (of a root given as "dir/") is not one.
  size_t end = path_.size();
  while (end > 1 && path_[end - 1] == '/') --end;
  size_t slash = path_.rfind('/', end - 1);
  name_offset_ = slash == std::string::npos ? 0 : slash + 1;
  if (name_offset_ >= end) name_offset_ = 0;
  name_end_ = end;
}

std::string_view ShellItem::name() const {
  return std::string_view(path_).substr(name_offset_, name_end_ - name_offset_);
}

std::string ShellItem::DisplayPath() const { return base::ToDisplayUtf8(path_); }
std::string ShellItem::DisplayName() const { return base::ToDisplayUtf8(name()); }

std::string_view ShellItem::extension() const {
  std::string_view n = name();
  size_t dot = n.rfind('.');
  // A leading dot marks a hidden name, not an extension (".bashrc" has none).
  if (dot == std::string_view::npos || dot == 0) return {};
  return n.substr(dot + 1);
}

const platform::FileStatus* ShellItem::Status() {
  if (stat_state_ == StatState::kNotAsked) {
    CountStatusRead();
    status_error_ = platform::StatPath(AT_FDCWD, path_, follow_links_, &status_);
    if (status_error_ != 0 && follow_links_) {
      // A dangling link still exists as an item of its own.
      status_error_ = platform::StatPath(AT_FDCWD, path_, false, &status_);
    }
    stat_state_ = status_error_ == 0 ? StatState::kOk : StatState::kFailed;
  }
  return stat_state_ == StatState::kOk ? &status_ : nullptr;
}

void ShellItem::SetListedStatus(int error, const platform::FileStatus& status) {
  status_error_ = error;
  stat_state_ = error == 0 ? StatState::kOk : StatState::kFailed;
  if (error == 0) status_ = status;
}

FileType ShellItem::Type() {
  // A listed link must be looked at when links are followed: its target decides.
  if (listed_type_ != FileType::kUnknown && !(follow_links_ && listed_type_ == FileType::kSymlink))
    return listed_type_;
  const platform::FileStatus* st = Status();
  return st ? st->type : FileType::kUnknown;
}

bool ShellItem::IsFolder() {
  FileType type = Type();
  if (type == FileType::kDirectory) return true;
  if (type != FileType::kSymlink) return false;
  // A link to a folder is a folder item, whether or not it is entered.
  platform::FileStatus target;
  return platform::StatPath(AT_FDCWD, path_, true, &target) == 0 && target.IsDirectory();
}

uint32_t ShellItem::ComputeShellAttributes(uint32_t mask, bool* ok) {
  *ok = true;
  uint32_t values = SFGAO_CANCOPY | (IsFileSystem() ? uint32_t{SFGAO_FILESYSTEM} : 0u);
  std::string_view n = name();
  if (!n.empty() && n[0] == '.') values |= SFGAO_HIDDEN;
  constexpr uint32_t kNeedsType = SFGAO_FOLDER | SFGAO_FILESYSANCESTOR | SFGAO_HASSUBFOLDER | SFGAO_LINK;
  if (mask & kNeedsType) {
    FileType type = Type();
    if (type == FileType::kUnknown) {
      *ok = false;
      return 0;
    }
    if (type == FileType::kSymlink) values |= SFGAO_LINK;
    if (IsFolder()) values |= SFGAO_FOLDER | (IsFileSystem() ? uint32_t{SFGAO_FILESYSANCESTOR} : 0u) | SFGAO_HASSUBFOLDER;
  }
  return values;
}

uint32_t ShellItem::GetAttributes(uint32_t mask) {
  uint32_t unknown = mask & ~known_mask_;
  if (unknown) {
    bool ok = false;
    uint32_t values = ComputeShellAttributes(unknown, &ok);
    // A failed query leaves the asked bits known as not set.
    shell_attributes_ = (shell_attributes_ & ~unknown) | (ok ? values & unknown : 0);
    known_mask_ |= unknown;
  }
  return shell_attributes_ & mask;
}

uint32_t ShellItem::FileAttributes(bool strict) {
  if (file_attributes_ == platform::kAttributesNotAsked) {
    const platform::FileStatus* st = Status();
    file_attributes_ = st ? platform::FileAttributesOf(*st, name()) : platform::kAttributesUnknown;
    // A followed link to a folder is still a link: the item keeps the reparse-point mark.
    if (st && follow_links_ && listed_type_ == FileType::kSymlink)
      file_attributes_ |= platform::FILE_ATTRIBUTE_REPARSE_POINT;
    // A link to a folder is a folder item, as a directory link is on other systems.
    if (st && st->IsSymlink() && IsFolder()) {
      file_attributes_ = (file_attributes_ & ~platform::FILE_ATTRIBUTE_NORMAL) | platform::FILE_ATTRIBUTE_DIRECTORY;
    }
  }
  if (strict && file_attributes_ == platform::kAttributesUnknown) return 0;
  return file_attributes_;
}

CachedValue* ShellItem::FindCached(uint32_t hash) {
  for (CachedValue& node : cache_)
    if (node.hash == hash) return &node;
  return nullptr;
}

CachedValue* ShellItem::AddCached(uint32_t hash, PropValue value) {
  cache_.push_front(CachedValue{hash, std::move(value), {}});
  return &cache_.front();
}

}  // namespace trovix::props
