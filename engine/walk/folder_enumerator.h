// FolderEnumerator: the children of one folder, read whole through the DirSystem seam, in the
// file system's enumeration order (or sorted bytewise by name when asked, which makes the
// order reproducible across file systems; tests use it).
//
// A child carries what the listing told (name bytes, type from d_type) and nothing more,
// except where the walk cannot decide without a stat:
//   - a listing that gives no type (some file systems): the child is asked with lstat, and a
//     child that has vanished by then carries the errno instead of a type;
//   - a symbolic link, when links are followed: its target is asked whether it is a folder.
// Everything else about an item is left to the lazily filled ShellItem, unless the walk asks
// for the children's status up front (stat_children).
//
// The enumeration flags keep the shell's numbers. Without flags the listing holds folders and
// non-folders, hidden names included; flags choose folders and/or non-folders, and leave
// hidden names (beginning with ".") out unless SHCONTF_INCLUDEHIDDEN is given. Every name on
// this platform is either hidden or not, so SHCONTF_INCLUDESUPERHIDDEN adds nothing.
//
// Thread-safety: one enumerator per folder and thread; the walk's reading threads each use
// their own. Reading may be cut short by a stop request, keeping what was read.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "platform/dir_reader.h"

namespace trovix::engine {

enum EnumFlags : uint32_t {
  SHCONTF_FOLDERS = 0x20,
  SHCONTF_NONFOLDERS = 0x40,
  SHCONTF_INCLUDEHIDDEN = 0x80,
  SHCONTF_INCLUDESUPERHIDDEN = 0x10000,
};
// Everything: the flags a folder is enumerated with when hidden items are wanted.
inline constexpr uint32_t kEnumerateAll =
    SHCONTF_FOLDERS | SHCONTF_NONFOLDERS | SHCONTF_INCLUDEHIDDEN | SHCONTF_INCLUDESUPERHIDDEN;

struct FolderChild {
  // Raw bytes, not necessarily UTF-8. The bytes live in the enumerator's name store
  // (names()), which must travel with the children: one block per folder instead of one
  // allocation per name, freed at once by whichever thread is done with the folder.
  std::string_view name;
  platform::FileType type = platform::FileType::kUnknown;
  bool link_to_folder = false;  // a link whose target is a folder (asked only when following)
  int error = 0;                // errno of the stat that had to find the type (ENOENT: vanished)
  // With Options::stat_children: the child's status as ShellItem::Status would ask it,
  // taken while the folder was open: status_error its errno, `status` (into statuses())
  // set when it succeeded. Kept out of line so that listings without it stay small.
  bool status_asked = false;
  int status_error = 0;
  const platform::FileStatus* status = nullptr;
};

class FolderEnumerator {
 public:
  struct Options {
    uint32_t flags = 0;          // 0: everything the folder holds
    bool resolve_links = false;  // find out which links lead to folders
    bool sort_names = false;     // bytewise order instead of the enumeration order
    // Ask each child's status relative to the open folder (for rules that need more than
    // names); `stat_follow_links` as the items' follow_links.
    bool stat_children = false;
    bool stat_follow_links = false;
    // With stat_children: which children to ask (null: all), by name. Called on the reading
    // thread.
    std::function<bool(std::string_view name)> stat_wanted;
    // When set, HeartbeatNow() is stored here after the folder opens and after each entry:
    // whoever waits on a folder that may stop answering tells a slow listing from a stuck one.
    std::atomic<int64_t>* heartbeat = nullptr;
  };

  FolderEnumerator(platform::DirSystem& fs, Options options) : fs_(fs), options_(options) {}

  // Reads the folder at `path` (`follow_link`: the path may itself be a link to follow).
  // Returns 0, or the errno that kept the folder from being opened. A read error after
  // opening keeps the children read so far and is reported by read_error().
  int Read(const std::string& path, bool follow_link, std::stop_token stop = {});

  std::vector<FolderChild>& children() { return children_; }
  // The bytes the children's names point into, and the statuses they point to; move them
  // together with children().
  std::vector<char>& names() { return names_; }
  std::vector<platform::FileStatus>& statuses() { return statuses_; }
  platform::FolderIdentity identity() const { return identity_; }
  int read_error() const { return read_error_; }

 private:
  bool Wanted(FolderChild& child, std::string_view name, const std::string& folder_path);
  // Asks the child's status into `*status`; true when there is one to keep.
  bool StatChild(platform::DirReader& reader, const platform::DirEntry& entry, FolderChild& child,
                 platform::FileStatus* status);

  platform::DirSystem& fs_;
  Options options_;
  std::vector<FolderChild> children_;
  std::vector<char> names_;
  std::vector<platform::FileStatus> statuses_;
  platform::FolderIdentity identity_;
  int read_error_ = 0;
};

// A steady clock in milliseconds, for heartbeats.
inline int64_t HeartbeatNow() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

// `folder` + "/" + `name`, without doubling the separator of the root folder "/".
std::string JoinPath(const std::string& folder, std::string_view name);

}  // namespace trovix::engine
