#include "engine/walk/detached_pool.h"

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace trovix::engine {
namespace {

// A thread without work for this long ends: a walk over a network folder hands over a job
// per folder, and keeping the threads a little while saves making one per folder.
constexpr auto kIdleEnd = std::chrono::seconds(5);

struct PoolState {
  std::mutex mutex;
  std::condition_variable work;
  std::deque<std::function<void()>> jobs;
  size_t idle = 0;
  size_t threads = 0;
};

PoolState& State() {
  // Never destroyed: threads stuck in the kernel at exit still hold it.
  static PoolState* state = new PoolState;
  return *state;
}

void Worker() {
  PoolState& s = State();
  std::unique_lock<std::mutex> lock(s.mutex);
  for (;;) {
    while (s.jobs.empty()) {
      ++s.idle;
      const bool woke = s.work.wait_for(lock, kIdleEnd, [&] { return !s.jobs.empty(); });
      --s.idle;
      if (!woke) {
        --s.threads;
        return;
      }
    }
    std::function<void()> job = std::move(s.jobs.front());
    s.jobs.pop_front();
    lock.unlock();
    job();
    job = nullptr;  // what it owned goes now, not when the next job comes
    lock.lock();
  }
}

}  // namespace

void DetachedPool::Run(std::function<void()> job) {
  PoolState& s = State();
  bool spawn = false;
  {
    std::lock_guard<std::mutex> lock(s.mutex);
    s.jobs.push_back(std::move(job));
    // Every waiting job needs a thread of its own: one stuck thread must never hold up the
    // next job, so an idle thread is counted only once per job waiting.
    spawn = s.jobs.size() > s.idle;
    if (spawn) ++s.threads;
  }
  if (spawn) {
    std::thread(Worker).detach();
  } else {
    s.work.notify_one();
  }
}

int DetachedPool::CallWithin(std::function<int()> call, std::chrono::milliseconds timeout,
                             const std::stop_token& stop) {
  struct Answer {
    std::mutex mutex;
    std::condition_variable_any cv;
    bool done = false;
    int result = 0;
  };
  auto answer = std::make_shared<Answer>();
  Run([answer, call = std::move(call)] {
    const int result = call();
    std::lock_guard<std::mutex> lock(answer->mutex);
    answer->result = result;
    answer->done = true;
    answer->cv.notify_all();
  });
  std::unique_lock<std::mutex> lock(answer->mutex);
  if (!answer->cv.wait_for(lock, stop, timeout, [&] { return answer->done; }))
    return stop.stop_requested() ? ECANCELED : ETIMEDOUT;
  return answer->result;
}

size_t DetachedPool::Threads() {
  PoolState& s = State();
  std::lock_guard<std::mutex> lock(s.mutex);
  return s.threads;
}

}  // namespace trovix::engine
