// Threads for calls that may never return: a listing or a status on a mount whose server is
// gone waits in the kernel for minutes. Such a call runs here, and whoever waits for it may
// give up: the thread is never joined, stays with its call until the kernel answers (or the
// process ends), and then takes the next job or ends after a while without work.
//
// Contract: a job must own (or share) everything it touches, since whoever handed it over may
// be gone when it ends. A job must not throw.
//
// Thread-safety: Run may be called from any thread. The pool's state is made once and never
// destroyed, so a thread still stuck at exit touches nothing that exit tears down.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <stop_token>

namespace trovix::engine {

class DetachedPool {
 public:
  // Starts `job` at once on an idle thread of the pool, or on a new one. Never blocks.
  static void Run(std::function<void()> job);
  // Runs `call` on the pool and waits for its answer at most `timeout`: the call's answer, or
  // ETIMEDOUT when it said nothing in time, ECANCELED when `stop` came first. A call given up
  // on goes on alone; it must own what it touches.
  static int CallWithin(std::function<int()> call, std::chrono::milliseconds timeout, const std::stop_token& stop);
  // Threads alive now, stuck or idle (tests).
  static size_t Threads();
};

}  // namespace trovix::engine
