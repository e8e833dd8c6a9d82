#include "engine/walk/folder_enumerator.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "props/shell_item.h"

namespace trovix::engine {

using platform::FileType;

std::string JoinPath(const std::string& folder, std::string_view name) {
  std::string path;
  path.reserve(folder.size() + 1 + name.size());
  path = folder;
  if (path.empty() || path.back() != '/') path += '/';
  path += name;
  return path;
}

int FolderEnumerator::Read(const std::string& path, bool follow_link, std::stop_token stop) {
  children_.clear();
  names_.clear();
  statuses_.clear();
  read_error_ = 0;
  std::unique_ptr<platform::DirReader> reader;
  if (int err = fs_.OpenDir(path, follow_link, &reader); err != 0) return err;
  identity_ = reader->identity();
  if (options_.heartbeat) options_.heartbeat->store(HeartbeatNow(), std::memory_order_relaxed);
  // The stores grow while the folder is read, so names and statuses are kept as offsets
  // first and become views once the stores stop moving.
  struct Place {
    size_t name_offset;
    size_t name_size;
    size_t status_index;
  };
  constexpr size_t kNoStatus = static_cast<size_t>(-1);
  std::vector<Place> places;
  // Most folders hold a few dozen names: start big enough not to grow for them.
  places.reserve(32);
  children_.reserve(32);
  names_.reserve(1024);
  platform::DirEntry entry;
  platform::FileStatus status;
  while (reader->Next(&entry)) {
    FolderChild child;
    child.type = entry.type;
    if (Wanted(child, entry.name, path)) {
      size_t status_index = kNoStatus;
      if (options_.stat_children && child.error == 0 &&
          (!options_.stat_wanted || options_.stat_wanted(entry.name)) &&
          StatChild(*reader, entry, child, &status)) {
        status_index = statuses_.size();
        statuses_.push_back(status);
      }
      places.push_back({names_.size(), entry.name.size(), status_index});
      names_.insert(names_.end(), entry.name.begin(), entry.name.end());
      children_.push_back(std::move(child));
    }
    if (options_.heartbeat) options_.heartbeat->store(HeartbeatNow(), std::memory_order_relaxed);
    // A stop leaves the rest unread; the walk will not look at it anyway.
    if (stop.stop_requested()) break;
  }
  read_error_ = reader->error();
  for (size_t i = 0; i < children_.size(); ++i) {
    children_[i].name = std::string_view(names_.data() + places[i].name_offset, places[i].name_size);
    if (places[i].status_index != kNoStatus) children_[i].status = &statuses_[places[i].status_index];
  }
  if (options_.sort_names) {
    std::sort(children_.begin(), children_.end(),
              [](const FolderChild& a, const FolderChild& b) { return a.name < b.name; });
  }
  return 0;
}

bool FolderEnumerator::StatChild(platform::DirReader& reader, const platform::DirEntry& entry,
                                 FolderChild& child, platform::FileStatus* status) {
  bool follow = options_.stat_follow_links;
  int err = reader.StatEntry(entry, follow, status);
  if (err == ENOSYS) return false;  // left to the item
  props::CountStatusRead();
  // As ShellItem::Status: a dangling link still exists as an item of its own.
  if (err != 0 && follow) err = reader.StatEntry(entry, false, status);
  child.status_asked = true;
  child.status_error = err;
  return err == 0;
}

bool FolderEnumerator::Wanted(FolderChild& child, std::string_view name, const std::string& folder_path) {
  uint32_t flags = options_.flags ? options_.flags : kEnumerateAll;
  if (!(flags & SHCONTF_INCLUDEHIDDEN) && name[0] == '.') return false;
  bool want_folders = flags & SHCONTF_FOLDERS;
  bool want_others = flags & SHCONTF_NONFOLDERS;
  bool resolve_link = child.type == FileType::kSymlink && options_.resolve_links;
  if (child.type == FileType::kUnknown || resolve_link || want_folders != want_others) {
    std::string path = JoinPath(folder_path, name);
    platform::FileStatus st;
    if (child.type == FileType::kUnknown) {
      child.error = fs_.Stat(path, false, &st);
      if (child.error == 0) child.type = st.type;
    }
    if (child.type == FileType::kSymlink && (options_.resolve_links || want_folders != want_others)) {
      // A dangling link is not an error: the link itself is an item.
      child.link_to_folder = fs_.Stat(path, true, &st) == 0 && st.IsDirectory();
    }
  }
  if (child.error != 0) return true;  // the walk counts it as vanished
  bool is_folder = child.type == FileType::kDirectory || child.link_to_folder;
  return is_folder ? want_folders : want_others;
}

}  // namespace trovix::engine
