#include "index/index_watch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>
#include <vector>

#include "engine/walk/folder_enumerator.h"
#include "engine/results/result_sink.h"
#include "index/sqlite/index_schema.h"
#include "platform/mount_table.h"
#include "platform/change_events.h"

namespace trovix::engine::index {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CLOSE_WRITE | IN_ATTRIB |
                             IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;

class Watches {
 public:
  explicit Watches(int fd) : fd_(fd), mounts_(platform::MountTable::Read()) {}

  // Watches `folder`; false when the kernel's limit is reached.
  bool Add(const std::string& folder) {
    if (by_path_.count(folder)) return true;
    // A network or FUSE mount: adding the watch looks the folder up, which waits for ever on
    // a server that is gone, and no event would come for changes made on the server anyway.
    // Such folders are compared at each rescan instead, under the walk's time-out.
    if (mounts_.MayStopAnswering(folder)) {
      unwatched_.insert(folder);
      return true;
    }
    int wd = inotify_add_watch(fd_, folder.c_str(), kEvents);
    if (wd < 0) {
      if (errno == ENOSPC) {
        unwatched_.insert(folder);
        return false;
      }
      return true;  // gone or unreadable: the next refresh of its parent says so
    }
    auto old = by_wd_.find(wd);
    if (old != by_wd_.end()) by_path_.erase(old->second);
    by_wd_[wd] = folder;
    by_path_[folder] = wd;
    unwatched_.erase(folder);
    return true;
  }
  void Dropped(int wd) {
    auto it = by_wd_.find(wd);
    if (it == by_wd_.end()) return;
    by_path_.erase(it->second);
    by_wd_.erase(it);
  }
  const std::string* PathOf(int wd) const {
    auto it = by_wd_.find(wd);
    return it == by_wd_.end() ? nullptr : &it->second;
  }
  const std::set<std::string>& unwatched() const { return unwatched_; }
  size_t count() const { return by_wd_.size(); }

 private:
  int fd_;
  platform::MountTable mounts_;
  std::unordered_map<int, std::string> by_wd_;
  std::unordered_map<std::string, int> by_path_;
  std::set<std::string> unwatched_;
};

// Folders on file systems that send no events for changes made elsewhere: watched all the
// same (changes made here are seen), and rescanned besides. Asked once per device.
class SilentFolders {
 public:
  // Notes `path` (on `device`, 0 when the row does not say) when its file system is silent.
  void Check(const std::string& path, int64_t device) {
    auto known = device != 0 ? kind_by_device_.find(device) : kind_by_device_.end();
    std::string kind;
    if (known != kind_by_device_.end()) {
      kind = known->second;
    } else {
      platform::HasChangeEvents(path, &kind);
      if (device != 0) kind_by_device_[device] = kind;
    }
    if (!kind.empty() && folders_.emplace(path, kind).second) tops_.reset();
  }
  const std::map<std::string, std::string>& folders() const { return folders_; }
  // The top folders of the silent trees, as `index status` names them; worked out again only
  // when a folder was added (the watch asks every second).
  const std::vector<std::pair<std::string, std::string>>& Tops() {
    if (tops_) return *tops_;
    tops_.emplace();
    for (const auto& [path, kind] : folders_) {
      const size_t slash = path.find_last_of('/');
      const std::string parent = slash == 0 ? "/" : path.substr(0, slash == std::string::npos ? 0 : slash);
      if (!folders_.count(parent)) tops_->emplace_back(path, kind);
    }
    return *tops_;
  }

 private:
  std::optional<std::vector<std::pair<std::string, std::string>>> tops_;
  std::unordered_map<int64_t, std::string> kind_by_device_;
  std::map<std::string, std::string> folders_;
};

// Watches every indexed folder at or below `top`; says once when the limit is reached.
void WatchFolders(IndexStore& db, Watches& watches, SilentFolders& silent, const std::string& top,
                  bool* limit_said, const WatchLog& log) {
  db.Folders(top, [&](const std::string& path, int64_t device) {
    silent.Check(path, device);
    if (!watches.Add(path) && !*limit_said) {
      *limit_said = true;
      log("the kernel's limit of watched folders is reached (fs.inotify.max_user_watches); folders beyond it "
          "are rescanned every few minutes instead of followed at once");
    }
  });
}

// The mount points inside the index's scope, the file system of "/" aside.
std::set<std::string> MountPointsInScope(Indexer& indexer) {
  std::set<std::string> out;
  for (const platform::MountEntry& m : platform::ReadMountTable())
    if (m.mount_point != "/" && indexer.InScope(m.mount_point)) out.insert(m.mount_point);
  return out;
}

// After the mount table changed: a catalogue whose drive is mounted elsewhere follows it, one
// whose drive went is kept as it was (the indexer leaves it alone), and a file system newly
// mounted in the scope (back, moved, or never seen) is compared whole, as a new folder is.
void FollowMounts(Indexer& indexer, std::set<std::string>* mounted_in_scope, std::set<std::string>* dirty_trees,
                  const WatchLog& log) {
  std::vector<std::string> moved;
  if (!indexer.FollowDrives(&moved)) {
    log("following the drives failed: " + indexer.error());
    return;
  }
  for (const auto& m : moved) log("a drive is mounted at another place; its catalogue follows it: " + m);
  std::set<std::string> now = MountPointsInScope(indexer);
  for (const std::string& place : now)
    if (!mounted_in_scope->count(place)) dirty_trees->insert(place);
  for (const std::string& place : *mounted_in_scope)
    if (!now.count(place)) log(place + " is not mounted any more; its catalogue is kept");
  *mounted_in_scope = std::move(now);
}

}  // namespace

bool WatchIndex(Indexer& indexer, const WatchOptions& options, std::stop_token stop, const WatchLog& log) {
  IndexStore& db = indexer.store();
  IndexerThrottle* throttle = options.throttle;
  // A folder that did not answer is named once a watch, however often it is tried again.
  std::set<std::string> named;
  auto tell = [&](const UpdateStats& s) {
    for (const auto& path : s.not_answering)
      if (named.insert(path).second) log(NotAnsweringText(path));
  };
  UpdateStats stats;
  log("reconciling the index with the folders");
  const bool updated = indexer.Update({}, &stats, stop);
  tell(stats);
  if (!updated) {
    log("update failed: " + indexer.error());
    return false;
  }
  log("index up to date: " + std::to_string(stats.added) + " added, " + std::to_string(stats.changed) +
      " changed, " + std::to_string(stats.removed) + " removed");
  if (throttle) throttle->SetActivity("idle");
  int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd < 0) {
    log(std::string("cannot watch folders: ") + std::strerror(errno) + "; rescanning periodically");
  }
  Watches watches(fd);
  SilentFolders silent;
  bool limit_said = false;
  auto scope_roots = [&] {
    std::vector<std::string> roots;
    for (const auto& e : indexer.Scope())
      if (e.include) roots.push_back(e.path);
    return roots;
  };
  std::vector<std::string> roots = scope_roots();
  if (fd >= 0)
    for (const auto& r : roots) WatchFolders(db, watches, silent, r, &limit_said, log);
  log("watching " + std::to_string(watches.count()) + " folders");
  for (const auto& [folder, kind] : silent.Tops())
    log(folder + " is on " + kind + ", which sends no events for changes made elsewhere; rescanned every " +
        std::to_string(options.rescan_seconds) + " s");
  // Tells the throttle how the watch stands, and lets it write that down when it is time.
  size_t unwatched_said = 0;
  auto report = [&](bool pending, Clock::time_point first) {
    if (throttle == nullptr) return;
    int64_t behind = 0;
    if (pending) {
      const auto age = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - first).count();
      behind = static_cast<int64_t>(std::time(nullptr)) - age;
    }
    throttle->SetBehind(behind);
    // Copied only when it changed: past the watch limit it may hold many thousands of folders.
    if (watches.unwatched().size() != unwatched_said) {
      unwatched_said = watches.unwatched().size();
      throttle->SetUnwatched(std::vector<std::string>(watches.unwatched().begin(), watches.unwatched().end()));
    }
    throttle->SetNoEvents(silent.Tops());
    throttle->Publish();
  };
  std::string pause_said;

  // Mounts give no inotify event: the mount table is watched for drives that come and go.
  platform::MountTableWatch mount_changes;
  std::set<std::string> mounted_in_scope = MountPointsInScope(indexer);
  std::set<std::string> dirty;           // folders whose listing changed
  std::set<std::string> dirty_trees;     // new folders to read whole
  auto last_event = Clock::now();
  auto first_unwritten = Clock::now();  // the first change gathered since the last write
  auto last_rescan = Clock::now();
  alignas(inotify_event) char buffer[64 * 1024];
  while (!stop.stop_requested()) {
    // Paused, events are still read (a full queue would lose them) and gathered for later.
    const std::string paused = throttle ? throttle->PausedWhy() : std::string();
    if (paused != pause_said) {
      log(paused.empty() ? "resumed" : "paused: " + paused);
      pause_said = paused;
    }
    // Idle, the watcher sleeps a second at a time (a stop signal wakes it sooner); with changes
    // gathered, only until they have settled or waited their longest.
    const bool gathered = !dirty.empty() || !dirty_trees.empty();
    int timeout_ms = 1000;
    if (!paused.empty()) {
      timeout_ms = IndexerThrottle::kPauseCheckMs;
    } else if (gathered) {
      const auto waited_ms =
          std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - first_unwritten)
              .count();
      timeout_ms = static_cast<int>(
          std::clamp<int64_t>(options.max_delay_ms - waited_ms, 0, options.settle_ms));
    }
    pollfd p{fd, POLLIN, 0};
    int waited = fd >= 0 ? ::poll(&p, 1, timeout_ms) : (::usleep(static_cast<useconds_t>(timeout_ms) * 1000), 0);
    if (waited > 0) {
      ssize_t n;
      // A bounded drain: a writer faster than this loop must not keep the writing below waiting.
      for (int drained = 0; drained < 64 && (n = ::read(fd, buffer, sizeof buffer)) > 0;
           ++drained) {
        for (char* at = buffer; at < buffer + n;) {
          auto* ev = reinterpret_cast<inotify_event*>(at);
          at += sizeof(inotify_event) + ev->len;
          if (ev->mask & IN_Q_OVERFLOW) {
            // Events were lost: only a full comparison knows what changed.
            if (dirty.empty() && dirty_trees.empty()) first_unwritten = Clock::now();
            for (const auto& r : roots) dirty_trees.insert(r);
            continue;
          }
          if (ev->mask & IN_IGNORED) {
            watches.Dropped(ev->wd);
            continue;
          }
          const std::string* folder = watches.PathOf(ev->wd);
          if (folder == nullptr) continue;
          if (ev->mask & (IN_DELETE_SELF | IN_MOVE_SELF)) continue;  // the parent's event covers it
          if (dirty.empty() && dirty_trees.empty()) first_unwritten = Clock::now();
          dirty.insert(*folder);
          if ((ev->mask & IN_ISDIR) && (ev->mask & (IN_CREATE | IN_MOVED_TO)) && ev->len > 0)
            dirty_trees.insert(JoinPath(*folder, ev->name));
          last_event = Clock::now();
        }
      }
    }
    if (mount_changes.Changed()) {
      if (dirty.empty() && dirty_trees.empty()) first_unwritten = Clock::now();
      last_event = Clock::now();
      FollowMounts(indexer, &mounted_in_scope, &dirty_trees, log);
    }
    const auto now = Clock::now();
    // Written once the changes settle, or once the first of them has waited its longest: a
    // gathering that restarted with every event would starve a folder written all the time.
    report(!dirty.empty() || !dirty_trees.empty(), first_unwritten);
    if (!paused.empty()) continue;
    if ((!dirty.empty() || !dirty_trees.empty()) &&
        (now - last_event >= std::chrono::milliseconds(options.settle_ms) ||
         now - first_unwritten >= std::chrono::milliseconds(options.max_delay_ms))) {
      UpdateStats s;
      // A refresh that failed (a server that stays away past the retries) is kept for the next
      // round: a change seen is never dropped.
      std::set<std::string> failed, failed_trees;
      for (const auto& f : dirty)
        if (!indexer.Refresh(f, false, &s, stop)) {
          log("refresh of " + f + " failed: " + indexer.error());
          failed.insert(f);
        }
      for (const auto& f : dirty_trees) {
        if (!indexer.Refresh(f, true, &s, stop)) {
          log("refresh of " + f + " failed: " + indexer.error());
          failed_trees.insert(f);
        }
        if (fd >= 0) WatchFolders(db, watches, silent, f, &limit_said, log);
      }
      tell(s);
      if (s.added + s.changed + s.removed > 0)
        log("followed changes: " + std::to_string(s.added) + " added, " + std::to_string(s.changed) + " changed, " +
            std::to_string(s.removed) + " removed");
      dirty = std::move(failed);
      dirty_trees = std::move(failed_trees);
      if (throttle) throttle->SetActivity("idle");
      report(!dirty.empty() || !dirty_trees.empty(), now);
    }
    if (now - last_rescan >= std::chrono::seconds(options.rescan_seconds)) {
      last_rescan = now;
      // Folders without a watch, and roots added or removed since: compared the long way.
      std::vector<std::string> current = scope_roots();
      UpdateStats s;
      if (current != roots) {
        roots = current;
        if (!indexer.Update({}, &s, stop)) log("update failed: " + indexer.error());
        if (fd >= 0)
          for (const auto& r : roots) WatchFolders(db, watches, silent, r, &limit_said, log);
      } else {
        for (const auto& f : std::set<std::string>(watches.unwatched())) indexer.Refresh(f, false, &s, stop);
        for (const auto& [f, kind] : silent.folders()) indexer.Refresh(f, false, &s, stop);
      }
      if (throttle) throttle->SetActivity("idle");
      tell(s);
    }
  }
  if (fd >= 0) ::close(fd);
  if (throttle) {
    throttle->SetActivity("stopped");
    throttle->Publish(true);
  }
  return true;
}

}  // namespace trovix::engine::index
