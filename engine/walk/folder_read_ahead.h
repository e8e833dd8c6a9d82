// Internal to the folder walk: the queue of folders still to visit, and the threads that
// read queued folders ahead of the walk.
//
// The walk takes folders strictly from the queue's head; reading threads only fill in the
// listing of folders near the head (at most `window` of them), so the order of the walk does
// not depend on how many threads read. A folder that no thread has started when the walk
// reaches it is read on the walk's own thread, which is also all that happens with no
// reading threads.
//
// Thread-safety: Push, TakeHead and Stop are the walk's thread; the reading threads run
// `read` on folders they claimed, one folder per thread at a time.
//
// Hand-overs are kept few, since every wake-up is a trip through the scheduler: the walk
// takes the lock once per folder it takes (Push only queues), wakes an idle reader only for
// a batch of folders (or when it has caught up with the readers), and a reader wakes the
// walk only when the walk is waiting for that very folder.
// While a reader still has the head, the walk reads other offered folders itself instead of
// sleeping.
//
// Folders that may stop answering (on a network or FUSE mount, see platform/mount_table.h;
// and, while such mounts exist, folders reached through a link) are guarded when a StallGuard
// time-out is given: they are never read by the reading threads nor by the walk's own thread,
// but on threads of the DetachedPool, which nobody joins. The walk waits for such a folder
// until it has said nothing for the time-out (each entry read counts as an answer), or until
// a stop: then the folder comes back as not answering (ETIMEDOUT), its reader is left behind,
// and the walk goes on. Up to `threads` (at least one) guarded folders are read ahead.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "engine/walk/folder_enumerator.h"
#include "platform/mount_table.h"
#include "props/shell_item.h"

namespace trovix::engine {

struct GuardedRead;

struct QueuedFolder {
  std::string path;
  bool through_link = false;           // entered by following a symbolic link
  props::ShellItemPtr virtual_item;    // set for a virtual folder (read by the hook)
  int depth = 0;                       // the root 0, its subfolders 1, ...
  std::shared_ptr<const void> parent_prune_state;  // what the pruner made of the parent
  std::shared_ptr<const void> prune_state;         // and of this folder, once entered
  // The listing; valid once the folder has been read.
  int error = 0;
  int read_error = 0;
  platform::FolderIdentity identity;
  std::vector<FolderChild> children;
  std::vector<char> names;  // the bytes the children's names point into
  std::vector<platform::FileStatus> statuses;  // and the statuses they point to
  // Guarded by the read-ahead's mutex.
  bool claimed = false;
  bool done = false;
  // Set by the read-ahead when the folder is read under the time-out. The reading function
  // then stores HeartbeatNow() in `heartbeat` as it goes (FolderEnumerator::Options).
  bool guarded = false;
  std::atomic<int64_t>* heartbeat = nullptr;
  // The folder said nothing for the time-out: `error` is ETIMEDOUT and nothing was listed.
  bool not_answering = false;
  std::shared_ptr<GuardedRead> guarded_read;  // the read in progress (walk thread only)
};

// When folders are read under a time-out.
struct StallGuard {
  std::chrono::milliseconds timeout{0};  // 0: nothing is guarded
  std::stop_token stop;                  // ends a wait for a guarded folder at once
  bool all = false;                      // every folder, wherever it lies (tests)
};

class FolderReadAhead {
 public:
  using ReadFn = std::function<void(QueuedFolder& folder)>;

  // `threads` reading threads (0: none); `read` lists one folder into it. With a guard,
  // `read` also runs on threads that may outlive this object: it must hold copies of what it
  // uses, never references to its caller's state.
  FolderReadAhead(int threads, size_t window, ReadFn read, StallGuard guard = {});
  ~FolderReadAhead();
  FolderReadAhead(const FolderReadAhead&) = delete;
  FolderReadAhead& operator=(const FolderReadAhead&) = delete;

  void Push(std::shared_ptr<QueuedFolder> folder);
  bool empty() const { return queue_.empty(); }
  // The head of the queue, read (on this thread if nobody has started it); null when empty.
  std::shared_ptr<QueuedFolder> TakeHead();
  // Drops every queued folder and ends the reading threads (a folder being read is finished).
  void Stop();

 private:
  // Moves folders near the head to the offers; returns how many. Needs the lock.
  size_t OfferUpToWindowLocked();
  // The first offered folder nobody has claimed, now claimed; null when none. Needs the lock.
  std::shared_ptr<QueuedFolder> ClaimOfferLocked();
  void ReaderLoop();
  // Hands a guarded folder to a detached thread.
  void StartGuarded(QueuedFolder& folder);
  // Waits for a guarded folder's listing and moves it in; or marks it not answering.
  void AwaitGuarded(QueuedFolder& folder);

  ReadFn read_;
  StallGuard guard_;
  platform::MountTable mounts_;  // read when there is a time-out
  size_t guarded_ahead_ = 0;     // guarded folders started and not yet taken (walk thread)
  size_t guarded_cap_ = 1;
  size_t window_;
  size_t wake_batch_;  // offers that make it worth waking an idle reader
  std::deque<std::shared_ptr<QueuedFolder>> queue_;  // the walk's queue (walk thread only)
  size_t offered_ = 0;  // how many at the queue's head have been offered to the readers

  std::mutex mutex_;
  std::condition_variable work_;       // readers wait here for offers
  std::condition_variable head_done_;  // the walk waits here for the folder in `awaited_`
  std::deque<std::shared_ptr<QueuedFolder>> offers_;
  const QueuedFolder* awaited_ = nullptr;
  int idle_readers_ = 0;
  bool stopping_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace trovix::engine
