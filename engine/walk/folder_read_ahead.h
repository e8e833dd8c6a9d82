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
#pragma once

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
#include "props/shell_item.h"

namespace trovix::engine {

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
};

class FolderReadAhead {
 public:
  using ReadFn = std::function<void(QueuedFolder& folder)>;

  // `threads` reading threads (0: none); `read` lists one folder into it.
  FolderReadAhead(int threads, size_t window, ReadFn read);
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

  ReadFn read_;
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
