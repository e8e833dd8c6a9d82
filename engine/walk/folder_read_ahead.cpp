#include "engine/walk/folder_read_ahead.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "engine/walk/detached_pool.h"

namespace trovix::engine {

// What a detached thread reading a guarded folder shares with the walk that waits for it; the
// thread keeps it alive, so the walk may give up and go.
struct GuardedRead {
  std::mutex mutex;
  std::condition_variable_any done_cv;
  bool done = false;
  std::atomic<int64_t> heartbeat{0};
  std::shared_ptr<QueuedFolder> listing;  // filled by the detached thread
};

FolderReadAhead::FolderReadAhead(int threads, size_t window, ReadFn read, StallGuard guard)
    : read_(std::move(read)),
      guard_(std::move(guard)),
      guarded_cap_(static_cast<size_t>(std::max(1, threads))),
      window_(threads > 0 ? window : 0),
      wake_batch_(std::max<size_t>(1, window / 4)) {
  if (guard_.timeout.count() > 0 && !guard_.all) mounts_ = platform::MountTable::Read();
  for (int i = 0; i < threads; ++i) threads_.emplace_back([this] { ReaderLoop(); });
}

FolderReadAhead::~FolderReadAhead() { Stop(); }

// Only queues: the folders are offered when the walk next takes its head, which is right
// after it has queued a folder's subfolders, so they go out together under one lock.
void FolderReadAhead::Push(std::shared_ptr<QueuedFolder> folder) {
  if (guard_.timeout.count() > 0 && !folder->virtual_item) {
    // A link may lead onto such a mount from anywhere: while there is one, links are guarded.
    folder->guarded = guard_.all || mounts_.MayStopAnswering(folder->path) ||
                      (folder->through_link && !mounts_.empty());
  }
  queue_.push_back(std::move(folder));
}

void FolderReadAhead::StartGuarded(QueuedFolder& folder) {
  auto shared = std::make_shared<GuardedRead>();
  shared->heartbeat.store(HeartbeatNow());
  auto listing = std::make_shared<QueuedFolder>();
  listing->path = folder.path;
  listing->through_link = folder.through_link;
  listing->depth = folder.depth;
  listing->guarded = true;
  listing->heartbeat = &shared->heartbeat;
  folder.guarded_read = shared;
  ++guarded_ahead_;
  DetachedPool::Run([shared, listing, read = read_] {
    read(*listing);
    std::lock_guard<std::mutex> lock(shared->mutex);
    shared->listing = listing;
    shared->done = true;
    shared->done_cv.notify_all();
  });
}

void FolderReadAhead::AwaitGuarded(QueuedFolder& folder) {
  if (!folder.guarded_read) StartGuarded(folder);
  std::shared_ptr<GuardedRead> shared = std::move(folder.guarded_read);
  --guarded_ahead_;
  std::unique_lock<std::mutex> lock(shared->mutex);
  while (!shared->done) {
    const auto last = std::chrono::steady_clock::time_point(std::chrono::milliseconds(shared->heartbeat.load()));
    const auto deadline = last + guard_.timeout;
    if (std::chrono::steady_clock::now() >= deadline) {
      folder.error = ETIMEDOUT;
      folder.not_answering = true;
      return;
    }
    shared->done_cv.wait_until(lock, guard_.stop, deadline, [&] { return shared->done; });
    if (!shared->done && guard_.stop.stop_requested()) {
      folder.error = ECANCELED;  // the caller sees its stop; nothing is counted
      return;
    }
  }
  QueuedFolder& listed = *shared->listing;
  folder.error = listed.error;
  folder.read_error = listed.read_error;
  folder.identity = listed.identity;
  folder.children = std::move(listed.children);
  folder.names = std::move(listed.names);
  folder.statuses = std::move(listed.statuses);
}

size_t FolderReadAhead::OfferUpToWindowLocked() {
  size_t offered = 0;
  while (offered_ < queue_.size() && offered_ < window_) {
    const auto& folder = queue_[offered_++];
    // The hook for virtual folders is the walk's alone: those are read on its thread.
    if (folder->virtual_item) continue;
    // Never on a reading thread, which Stop joins: only on threads nobody waits for.
    if (folder->guarded) {
      if (!folder->guarded_read && guarded_ahead_ < guarded_cap_) StartGuarded(*folder);
      continue;
    }
    offers_.push_back(folder);
    ++offered;
  }
  return offered;
}

std::shared_ptr<QueuedFolder> FolderReadAhead::TakeHead() {
  if (queue_.empty()) return nullptr;
  std::shared_ptr<QueuedFolder> head = std::move(queue_.front());
  queue_.pop_front();
  if (offered_ > 0) --offered_;
  if (head->guarded) {
    if (!threads_.empty()) {
      // The folders behind it still go out to the readers.
      std::lock_guard<std::mutex> lock(mutex_);
      if (OfferUpToWindowLocked() > 0 && idle_readers_ > 0) work_.notify_all();
    }
    AwaitGuarded(*head);
    return head;
  }
  if (threads_.empty()) {
    read_(*head);
    return head;
  }
  bool read_here = false;
  size_t wake = 0;
  {
    std::unique_lock<std::mutex> lock(mutex_);
    OfferUpToWindowLocked();
    // The window slides by one folder per head taken. Waking a reader for every folder
    // costs two trips through the scheduler each, so an idle reader is woken only for a
    // batch; and every idle one when the walk has caught up with the readers.
    if (idle_readers_ > 0 && !offers_.empty()) {
      if (!head->claimed)
        wake = std::min<size_t>(offers_.size(), static_cast<size_t>(idle_readers_));
      else if (offers_.size() >= wake_batch_)
        wake = 1;
    }
    if (!head->claimed) {
      head->claimed = true;
      read_here = true;
    } else {
      for (; wake > 0; --wake) work_.notify_one();
      // A reader has the head. Rather than sleep until it is done, read folders further
      // on that nobody has started; sleep only when there are none.
      while (!head->done) {
        std::shared_ptr<QueuedFolder> other = ClaimOfferLocked();
        if (!other) {
          awaited_ = head.get();
          head_done_.wait(lock, [&] { return head->done; });
          awaited_ = nullptr;
          break;
        }
        lock.unlock();
        read_(*other);
        lock.lock();
        other->done = true;
      }
    }
  }
  for (; wake > 0; --wake) work_.notify_one();
  if (read_here) {
    read_(*head);
    std::lock_guard<std::mutex> lock(mutex_);
    head->done = true;
  }
  return head;
}

std::shared_ptr<QueuedFolder> FolderReadAhead::ClaimOfferLocked() {
  while (!offers_.empty()) {
    std::shared_ptr<QueuedFolder> folder = std::move(offers_.front());
    offers_.pop_front();
    if (folder->claimed) continue;
    folder->claimed = true;
    return folder;
  }
  return nullptr;
}

void FolderReadAhead::ReaderLoop() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    if (offers_.empty() && !stopping_) {
      ++idle_readers_;
      work_.wait(lock, [&] { return stopping_ || !offers_.empty(); });
      --idle_readers_;
    }
    if (stopping_) return;
    std::shared_ptr<QueuedFolder> folder = ClaimOfferLocked();
    if (!folder) continue;
    lock.unlock();
    read_(*folder);
    lock.lock();
    folder->done = true;
    if (awaited_ == folder.get()) head_done_.notify_one();
  }
}

void FolderReadAhead::Stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
    offers_.clear();
  }
  work_.notify_all();
  for (std::thread& t : threads_) t.join();
  threads_.clear();
  queue_.clear();
  offered_ = 0;
}

}  // namespace trovix::engine
