#include "index/index_watch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <set>
#include <unordered_map>
#include <vector>

#include "engine/walk/folder_enumerator.h"
#include "engine/results/result_sink.h"
#include "index/sqlite/index_schema.h"
#include "platform/mount_table.h"
#include "platform/sqlite_statement.h"

namespace trovix::engine::index {
using platform::Statement;
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

// Watches every indexed folder at or below `top`; says once when the limit is reached.
void WatchFolders(IndexDatabase& db, Watches& watches, const std::string& top, bool* limit_said,
                  const WatchLog& log) {
  const auto [lo, hi] = FolderPathsBelow(top);
  Statement folders(db.db(), "SELECT path FROM folders WHERE path=? OR (path>=? AND path<?)");
  folders.Bind(1, top).Bind(2, lo).Bind(3, hi);
  while (folders.Step() == SQLITE_ROW) {
    const std::string path(folders.Text(0));
    if (!watches.Add(path) && !*limit_said) {
      *limit_said = true;
      log("the kernel's limit of watched folders is reached (fs.inotify.max_user_watches); folders beyond it "
          "are rescanned every few minutes instead of followed at once");
    }
  }
}

}  // namespace

bool WatchIndex(Indexer& indexer, const WatchOptions& options, std::stop_token stop, const WatchLog& log) {
  IndexDatabase& db = indexer.database();
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
  int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd < 0) {
    log(std::string("cannot watch folders: ") + std::strerror(errno) + "; rescanning periodically");
  }
  Watches watches(fd);
  bool limit_said = false;
  auto scope_roots = [&] {
    std::vector<std::string> roots;
    for (const auto& e : indexer.Scope())
      if (e.include) roots.push_back(e.path);
    return roots;
  };
  std::vector<std::string> roots = scope_roots();
  if (fd >= 0)
    for (const auto& r : roots) WatchFolders(db, watches, r, &limit_said, log);
  log("watching " + std::to_string(watches.count()) + " folders");

  std::set<std::string> dirty;           // folders whose listing changed
  std::set<std::string> dirty_trees;     // new folders to read whole
  auto last_event = Clock::now();
  auto first_unwritten = Clock::now();  // the first change gathered since the last write
  auto last_rescan = Clock::now();
  alignas(inotify_event) char buffer[64 * 1024];
  while (!stop.stop_requested()) {
    // Idle, the watcher sleeps a second at a time (a stop signal wakes it sooner); with changes
    // gathered, only until they have settled or waited their longest.
    const bool gathered = !dirty.empty() || !dirty_trees.empty();
    int timeout_ms = 1000;
    if (gathered) {
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
    const auto now = Clock::now();
    // Written once the changes settle, or once the first of them has waited its longest: a
    // gathering that restarted with every event would starve a folder written all the time.
    if ((!dirty.empty() || !dirty_trees.empty()) &&
        (now - last_event >= std::chrono::milliseconds(options.settle_ms) ||
         now - first_unwritten >= std::chrono::milliseconds(options.max_delay_ms))) {
      UpdateStats s;
      for (const auto& f : dirty)
        if (!indexer.Refresh(f, false, &s, stop)) log("refresh of " + f + " failed: " + indexer.error());
      for (const auto& f : dirty_trees) {
        if (!indexer.Refresh(f, true, &s, stop)) log("refresh of " + f + " failed: " + indexer.error());
        if (fd >= 0) WatchFolders(db, watches, f, &limit_said, log);
      }
      tell(s);
      if (s.added + s.changed + s.removed > 0)
        log("followed changes: " + std::to_string(s.added) + " added, " + std::to_string(s.changed) + " changed, " +
            std::to_string(s.removed) + " removed");
      dirty.clear();
      dirty_trees.clear();
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
          for (const auto& r : roots) WatchFolders(db, watches, r, &limit_said, log);
      } else {
        for (const auto& f : std::set<std::string>(watches.unwatched())) indexer.Refresh(f, false, &s, stop);
      }
      tell(s);
    }
  }
  if (fd >= 0) ::close(fd);
  return true;
}

}  // namespace trovix::engine::index
