#include "engine/walk/folder_walk.h"

#include <cerrno>
#include <unordered_set>
#include <utility>

#include "engine/walk/detached_pool.h"
#include "engine/walk/folder_read_ahead.h"
#include "platform/regular_file.h"

namespace trovix::engine {

using platform::FileType;

namespace {

// How many queued folders the reading threads may read ahead of the walk. Enough that the
// walk seldom meets a folder still unread, and that readers, woken for batches of a quarter
// of it, stay busy a while; small enough that read listings wait in memory only briefly.
constexpr size_t kReadAheadPerThread = 64;

struct IdentityHash {
  size_t operator()(const platform::FolderIdentity& id) const {
    return std::hash<uint64_t>()(id.inode * 0x9E3779B97F4A7C15ull ^ id.device);
  }
};

bool IsHiddenName(std::string_view name) { return !name.empty() && name[0] == '.'; }

bool IsVanishedError(int error) { return error == ENOENT || error == ENOTDIR; }

// Lists one folder. Runs on a reading thread, on the walk's thread, or (guarded) on a
// detached thread that may outlive the walk: it uses only what it is given by value.
void ReadListing(const WalkOptions& options, const platform::MountTable& mounts, platform::DirSystem& fs,
                 const std::stop_token& stop, QueuedFolder& f) {
  if (f.virtual_item) return;  // listed by the hook when entered
  FolderEnumerator::Options eo;
  // The include-hidden flags are asked when hidden items are wanted; in hidden mode 0 the
  // walk skips them itself, as it must when "Always enumerate hidden items" lists them.
  if (options.hidden != HiddenMode::kSkip || options.enumerate_hidden) eo.flags = kEnumerateAll;
  eo.resolve_links = options.follow_links && options.search_subfolders;
  eo.sort_names = options.sort_names;
  // Where the file system may stop answering, the items' status is taken here, under the
  // time-out, rather than later by the rule set on the walk's thread. (A folder guarded only
  // because a link led to it is not known to be there: its items are asked as anywhere.)
  eo.stat_children =
      options.prefetch_status || (f.guarded && options.status_needed && mounts.MayStopAnswering(f.path));
  eo.stat_follow_links = options.follow_links;
  eo.heartbeat = f.heartbeat;
  // Hidden items that the walk skips are never visited: their status is not asked. Nor is
  // that of a mount point that may stop answering: the walk asks it under the time-out.
  const bool skip_hidden = options.hidden == HiddenMode::kSkip;
  if (eo.stat_children && !mounts.empty()) {
    eo.stat_wanted = [&](std::string_view name) {
      return !(skip_hidden && IsHiddenName(name)) && !mounts.IsMountPoint(JoinPath(f.path, name));
    };
  } else if (eo.stat_children && skip_hidden) {
    eo.stat_wanted = [](std::string_view name) { return !IsHiddenName(name); };
  }
  FolderEnumerator e(fs, eo);
  f.error = e.Read(f.path, f.through_link, stop);
  f.read_error = e.read_error();
  f.identity = e.identity();
  f.children = std::move(e.children());
  f.names = std::move(e.names());
  f.statuses = std::move(e.statuses());
}

}  // namespace

int StatWithin(platform::DirSystem& fs, const std::string& path, bool follow, std::chrono::milliseconds timeout,
               const std::stop_token& stop, platform::FileStatus* status) {
  auto answer = std::make_shared<platform::FileStatus>();
  const int error = DetachedPool::CallWithin(
      [answer, fs = &fs, path, follow] {
        int err = fs->Stat(path, follow, answer.get());
        // As ShellItem::Status: a dangling link still exists as an item of its own.
        if (err != 0 && follow) err = fs->Stat(path, false, answer.get());
        return err;
      },
      timeout, stop);
  if (error == 0) *status = *answer;
  return error;
}

int ProbeWithin(const std::string& path, std::chrono::milliseconds timeout, const std::stop_token& stop) {
  return DetachedPool::CallWithin([path] { return platform::ProbeRegularFile(path); }, timeout, stop);
}

WalkOptions WalkOptions::FromFlags(uint32_t bin_flags, uint32_t bin_search_flags) {
  WalkOptions o;
  // Every system this runs on counts as one with super-hidden items, so "on" is mode 2.
  o.hidden = (bin_flags & kFlagSearchHidden) ? HiddenMode::kVisitAll : HiddenMode::kSkip;
  o.enumerate_hidden = bin_flags & kFlagEnumerateHidden;
  o.follow_links = bin_flags & kFlagFollowLinks;
  o.enter_virtual_folders = bin_flags & kFlagEnterVirtualFolders;
  o.search_subfolders = !(bin_search_flags & kSearchFlagNoSubfolders);
  return o;
}

bool ItemVanished(const props::ShellItem& item) { return IsVanishedError(item.status_error()); }

FolderWalk::FolderWalk(WalkOptions options, platform::DirSystem& fs) : options_(options), fs_(fs) {}

namespace {

// One root's walk. Kept apart from FolderWalk so that its state dies with the root.
class RootWalk {
 public:
  RootWalk(const WalkOptions& options, platform::DirSystem& fs, StatusThrottle* status,
           VirtualFolders* hook, const FolderWalk::ErrorHandler& on_error, std::stop_token stop,
           const FolderWalk::Visitor& visit, WalkSummary* summary)
      : options_(options),
        fs_(fs),
        status_(status),
        hook_(options.enter_virtual_folders && options.search_subfolders ? hook : nullptr),
        on_error_(on_error),
        stop_(std::move(stop)),
        visit_(visit),
        summary_(*summary),
        mounts_(options.answer_timeout.count() > 0 && !options.guard_all_folders ? platform::MountTable::Read()
                                                                                    : platform::MountTable()),
        queue_(options.threads > 1 ? options.threads : 0,
               kReadAheadPerThread * static_cast<size_t>(options.threads > 1 ? options.threads : 0),
               [options = options_, mounts = mounts_, fs = &fs_, stop = stop_](QueuedFolder& f) {
                 ReadListing(options, mounts, *fs, stop, f);
               },
               StallGuard{options.answer_timeout, stop_, options.guard_all_folders}) {}

  // False when the walk was stopped.
  bool Run(const std::string& root) {
    auto first = std::make_shared<QueuedFolder>();
    first->path = root;
    first->through_link = true;  // a root given as a link is searched where it leads
    queue_.Push(std::move(first));
    while (!queue_.empty()) {
      if (stop_.stop_requested()) return Stopped();
      std::shared_ptr<QueuedFolder> folder = queue_.TakeHead();
      if (stop_.stop_requested()) return Stopped();  // a wait for a stuck folder ends here
      if (!Enter(*folder)) continue;
      if (status_) status_->FolderEntered(folder->path);
      if (!VisitChildren(*folder)) return Stopped();
    }
    return true;
  }

 private:
  bool Stopped() {
    queue_.Stop();
    summary_.stopped = true;
    return false;
  }

  // Whether the folder's items are to be visited; counts the folder either way.
  bool Enter(QueuedFolder& f) {
    if (f.virtual_item) {
      f.error = hook_->List(f.virtual_item, &virtual_children_);
      if (f.error != 0) {
        ++summary_.folders_unreadable;
        if (on_error_) on_error_(f.path, f.error);
        return false;
      }
      ++summary_.folders_read;
      return true;
    }
    if (f.not_answering) {
      ++summary_.not_answering;
      if (on_error_) on_error_(f.path, ETIMEDOUT);
      return false;
    }
    if (f.error != 0) {
      if (IsVanishedError(f.error)) {
        ++summary_.items_vanished;
      } else {
        ++summary_.folders_unreadable;
        if (on_error_) on_error_(f.path, f.error);
      }
      return false;
    }
    if (f.depth == 0) {
      root_device_ = f.identity.device;
    } else if (options_.one_file_system && f.identity.device != root_device_) {
      ++summary_.other_devices;
      return false;
    }
    if (!entered_.insert(f.identity).second) {
      ++summary_.loops_skipped;
      return false;
    }
    ++summary_.folders_read;
    if (f.read_error != 0) {
      // What was read is still searched; the folder counts as not fully readable.
      ++summary_.folders_unreadable;
      if (on_error_) on_error_(f.path, f.read_error);
    }
    return true;
  }

  bool VisitChildren(QueuedFolder& f) {
    if (options_.pruner) f.prune_state = options_.pruner->EnterFolder(f.parent_prune_state, f.path, -1);
    if (f.virtual_item) {
      std::vector<VirtualChild> children = std::move(virtual_children_);
      virtual_children_.clear();
      for (VirtualChild& c : children) {
        if (stop_.stop_requested()) return false;
        if (options_.hidden == HiddenMode::kSkip && IsHiddenName(c.item->name())) continue;
        if (Pruned(f, c.item->name(), c.is_folder)) continue;
        if (!VisitItem(f, c.item, c.is_folder, /*link_to_folder=*/false, /*in_virtual=*/true)) return false;
      }
      return true;
    }
    for (FolderChild& c : f.children) {
      if (stop_.stop_requested()) return false;
      if (options_.hidden == HiddenMode::kSkip && IsHiddenName(c.name)) continue;
      if (c.error != 0) {
        ++summary_.items_vanished;
        continue;
      }
      bool is_directory = c.type == FileType::kDirectory;
      if (Pruned(f, c.name, is_directory || c.link_to_folder)) continue;
      auto item = props::ShellItem::FromListing(JoinPath(f.path, c.name), c.type, options_.follow_links);
      if (c.status_asked) {
        item->SetListedStatus(c.status_error, c.status ? *c.status : platform::FileStatus());
      } else if (!mounts_.empty() && is_directory && mounts_.IsMountPoint(item->path()) &&
                 !AskMountPointStatus(*item)) {
        // The item's own status is the stuck server's root: left behind with its folder.
        if (stop_.stop_requested()) return false;
        continue;
      }
      if (!VisitItem(f, item, is_directory, c.link_to_folder, /*in_virtual=*/false)) return false;
    }
    f.children.clear();
    f.children.shrink_to_fit();
    f.names.clear();
    f.names.shrink_to_fit();
    f.statuses.clear();
    f.statuses.shrink_to_fit();
    return true;
  }

  // The status of an item that is the mount point of a file system that may stop answering,
  // asked under the time-out: its parent's listing never asks that file system anything, but
  // a rule on its size or dates would, on the walk's thread. False when it did not answer.
  bool AskMountPointStatus(props::ShellItem& item) {
    platform::FileStatus status;
    const int error = StatWithin(fs_, item.path(), options_.follow_links, options_.answer_timeout, stop_, &status);
    if (error == ECANCELED) return false;
    if (error == ETIMEDOUT) {
      ++summary_.not_answering;
      if (on_error_) on_error_(item.path(), ETIMEDOUT);
      return false;
    }
    item.SetListedStatus(error, status);
    return true;
  }

  bool Pruned(const QueuedFolder& f, std::string_view name, bool is_folder) {
    if (!options_.pruner || !options_.pruner->Excluded(f.prune_state, name, is_folder)) return false;
    ++summary_.pruned;
    return true;
  }

  // Visits one item of `parent` and queues it when it is a folder to enter. False: stop the walk.
  bool VisitItem(const QueuedFolder& parent, const props::ShellItemPtr& item, bool is_directory,
                 bool link_to_folder, bool in_virtual) {
    const int depth = parent.depth + 1;
    if (options_.max_depth >= 0 && depth > options_.max_depth) return true;
    WalkStep step = WalkStep::kContinue;
    if (depth >= options_.min_depth) {
      ++summary_.items;
      step = visit_(item);
      if (step == WalkStep::kStop) return false;
    }
    if (ItemVanished(*item)) {
      ++summary_.items_vanished;
      return true;
    }
    if (step == WalkStep::kSkipFolder || !options_.search_subfolders) return true;
    if (options_.max_depth >= 0 && depth >= options_.max_depth) return true;
    auto queued = std::make_shared<QueuedFolder>();
    queued->path = item->path();
    queued->depth = depth;
    queued->parent_prune_state = parent.prune_state;
    if (in_virtual) {
      // Inside an archive every folder, and every nested archive, is read by the hook.
      if (!is_directory && !hook_->IsVirtualFolder(*item)) return true;
      queued->virtual_item = item;
    } else if (is_directory) {
      // Entered without following: if it was swapped for a link since the listing, the
      // open fails instead of leading somewhere else.
    } else if (link_to_folder) {
      if (!options_.follow_links) return true;
      queued->through_link = true;
    } else if (hook_ && IsPlainFileForHook(*item) && hook_->IsVirtualFolder(*item)) {
      queued->virtual_item = item;
    } else {
      return true;
    }
    queue_.Push(std::move(queued));
    return true;
  }

  // Archives are files; a link counts only when it is followed. Special files are never
  // offered: asking about their contents could open them.
  bool IsPlainFileForHook(props::ShellItem& item) {
    FileType type = item.Type();
    return type == FileType::kRegular;
  }

  const WalkOptions& options_;
  platform::DirSystem& fs_;
  StatusThrottle* status_;
  VirtualFolders* hook_;
  const FolderWalk::ErrorHandler& on_error_;
  std::stop_token stop_;
  const FolderWalk::Visitor& visit_;
  WalkSummary& summary_;
  std::unordered_set<platform::FolderIdentity, IdentityHash> entered_;
  uint64_t root_device_ = 0;
  std::vector<VirtualChild> virtual_children_;
  platform::MountTable mounts_;  // read when there is a time-out
  FolderReadAhead queue_;  // last: its reading threads use the members above
};

}  // namespace

WalkSummary FolderWalk::Run(const std::vector<std::string>& roots, std::stop_token stop, const Visitor& visit) {
  WalkSummary summary;
  if (status_) status_->Reset();
  for (const std::string& root : roots) {
    if (stop.stop_requested()) {
      summary.stopped = true;
      break;
    }
    // "dir/" and "dir" are one folder; item paths get exactly one separator.
    std::string folder = root;
    while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
    RootWalk walk(options_, fs_, status_, virtual_, on_error_, stop, visit, &summary);
    if (!walk.Run(folder)) break;
  }
  return summary;
}

}  // namespace trovix::engine
