#include "engine/walk/folder_read_ahead.h"

#include <algorithm>
#include <utility>

namespace trovix::engine {

FolderReadAhead::FolderReadAhead(int threads, size_t window, ReadFn read)
    : read_(std::move(read)), window_(threads > 0 ? window : 0), wake_batch_(std::max<size_t>(1, window / 4)) {
  for (int i = 0; i < threads; ++i) threads_.emplace_back([this] { ReaderLoop(); });
}

FolderReadAhead::~FolderReadAhead() { Stop(); }

// Only queues: the folders are offered when the walk next takes its head, which is right
// after it has queued a folder's subfolders, so they go out together under one lock.
void FolderReadAhead::Push(std::shared_ptr<QueuedFolder> folder) { queue_.push_back(std::move(folder)); }

size_t FolderReadAhead::OfferUpToWindowLocked() {
  size_t offered = 0;
  while (offered_ < queue_.size() && offered_ < window_) {
    const auto& folder = queue_[offered_++];
    // The hook for virtual folders is the walk's alone: those are read on its thread.
    if (folder->virtual_item) continue;
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
