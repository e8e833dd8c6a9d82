#include "engine/folder_read_ahead.h"

#include <utility>

namespace trovix::engine {

FolderReadAhead::FolderReadAhead(int threads, size_t window, ReadFn read)
    : read_(std::move(read)), window_(threads > 0 ? window : 0) {
  for (int i = 0; i < threads; ++i) threads_.emplace_back([this] { ReaderLoop(); });
}

FolderReadAhead::~FolderReadAhead() { Stop(); }

void FolderReadAhead::Push(std::shared_ptr<QueuedFolder> folder) {
  queue_.push_back(std::move(folder));
  OfferUpToWindow();
}

void FolderReadAhead::OfferUpToWindow() {
  if (threads_.empty()) return;
  bool offered = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    while (offered_ < queue_.size() && offered_ < window_) {
      const auto& folder = queue_[offered_++];
      // The hook for virtual folders is the walk's alone: those are read on its thread.
      if (folder->virtual_item) continue;
      offers_.push_back(folder);
      offered = true;
    }
  }
  if (offered) changed_.notify_all();
}

std::shared_ptr<QueuedFolder> FolderReadAhead::TakeHead() {
  if (queue_.empty()) return nullptr;
  std::shared_ptr<QueuedFolder> head = std::move(queue_.front());
  queue_.pop_front();
  if (offered_ > 0) --offered_;
  OfferUpToWindow();
  bool read_here = false;
  {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!head->claimed) {
      head->claimed = true;
      read_here = true;
    } else {
      changed_.wait(lock, [&] { return head->done; });
    }
  }
  if (read_here) {
    read_(*head);
    std::lock_guard<std::mutex> lock(mutex_);
    head->done = true;
  }
  return head;
}

void FolderReadAhead::ReaderLoop() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    changed_.wait(lock, [&] { return stopping_ || !offers_.empty(); });
    if (stopping_) return;
    std::shared_ptr<QueuedFolder> folder = std::move(offers_.front());
    offers_.pop_front();
    if (folder->claimed) continue;
    folder->claimed = true;
    lock.unlock();
    read_(*folder);
    lock.lock();
    folder->done = true;
    changed_.notify_all();
  }
}

void FolderReadAhead::Stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
    offers_.clear();
  }
  changed_.notify_all();
  for (std::thread& t : threads_) t.join();
  threads_.clear();
  queue_.clear();
  offered_ = 0;
}

}  // namespace trovix::engine
