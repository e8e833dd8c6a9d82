#include "views/preview/background_queue.h"

#include <QMetaObject>
#include <QPointer>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace trovix::views {

// Shared by the queue and its worker; the worker keeps it alive after the queue is gone.
struct BackgroundQueue::State {
  std::mutex mutex;
  std::condition_variable wake;
  std::deque<std::pair<Job, std::function<void()>>> jobs;  // the job and what its dropping runs
  size_t max_queued = 0;
  bool stop = false;
  QObject* owner = nullptr;  // null once the queue is destroyed: answers are then dropped
};

namespace {

void Work(const std::shared_ptr<BackgroundQueue::State>& state) {
  for (;;) {
    BackgroundQueue::Job job;
    {
      std::unique_lock lock(state->mutex);
      state->wake.wait(lock, [&] { return state->stop || !state->jobs.empty(); });
      if (state->stop) return;
      job = std::move(state->jobs.back().first);  // the newest: what is on screen now
      state->jobs.pop_back();
    }
    std::function<void()> answer = job();
    std::lock_guard lock(state->mutex);
    // Posted under the lock: the owner cannot be destroyed in between, and an event posted
    // to it is dropped with it if it goes before the event is delivered.
    if (state->stop) return;
    if (answer && state->owner) QMetaObject::invokeMethod(state->owner, std::move(answer), Qt::QueuedConnection);
  }
}

}  // namespace

BackgroundQueue::BackgroundQueue(size_t max_queued, QObject* parent)
    : QObject(parent), state_(std::make_shared<State>()) {
  state_->max_queued = max_queued;
  state_->owner = this;
  std::thread(Work, state_).detach();
}

BackgroundQueue::~BackgroundQueue() {
  {
    std::lock_guard lock(state_->mutex);
    state_->stop = true;
    state_->owner = nullptr;
    state_->jobs.clear();
  }
  state_->wake.notify_all();
}

void BackgroundQueue::Post(Job job, std::function<void()> dropped) {
  std::function<void()> dropped_now;
  {
    std::lock_guard lock(state_->mutex);
    state_->jobs.emplace_back(std::move(job), std::move(dropped));
    if (state_->jobs.size() > state_->max_queued) {
      dropped_now = std::move(state_->jobs.front().second);
      state_->jobs.pop_front();
    }
  }
  state_->wake.notify_one();
  if (dropped_now) dropped_now();
}

void BackgroundQueue::Clear() {
  decltype(state_->jobs) dropped;
  {
    std::lock_guard lock(state_->mutex);
    dropped.swap(state_->jobs);
  }
  for (auto& entry : dropped)
    if (entry.second) entry.second();
}

}  // namespace trovix::views
