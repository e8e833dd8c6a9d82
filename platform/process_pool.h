// ProcessPool: a small pool of helper processes that do work the search process must not do
// itself (parsing untrusted documents now; content plugins later). Each helper is one program
// started with pipes on its standard input and output; requests and answers are frames
// (platform/frame_io.h). The pool starts helpers lazily, restarts one that died, and holds
// every exchange to a deadline: a helper that does not answer in time is killed (SIGKILL)
// and replaced, and only that exchange fails.
//
// One exchange: the client sends one request frame; the helper answers with any number of
// frames and ends with a frame of the type the client named as the end type. The client may
// stop early (its callback returns false): the pool then sends a frame of type kFrameCancel
// and drains the answers up to the end frame, so the helper stays usable.
//
// Limits applied to every helper before it runs the program: an address-space limit
// (RLIMIT_AS), no core files, and a new process group; the helper itself enters its own
// sandbox (platform/sandbox.h). Standard error of helpers goes to the pool's own standard
// error unless told otherwise.
//
// Thread-safety: Exchange may be called from several threads at once; each call leases one
// idle helper (waiting for one when all are busy). The pool owns its helpers; destroying the
// pool closes their pipes, gives them a moment to end and then kills them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <condition_variable>
#include <string>
#include <string_view>
#include <vector>

#include "platform/frame_io.h"

namespace trovix::platform {

struct PoolOptions {
  std::string program;             // absolute path of the helper program
  std::vector<std::string> args;   // arguments after the program name
  int size = 0;                    // helpers at most; 0: one per core
  uint64_t memory_limit = 1ull << 30;  // RLIMIT_AS of each helper, bytes; 0: none
  bool quiet_stderr = false;       // helpers' standard error goes to /dev/null
};

enum class ExchangeStatus {
  kOk,           // the end frame arrived (or the client stopped and the drain succeeded)
  kTimedOut,     // the deadline passed; the helper was killed and will be replaced
  kCrashed,      // the helper died or broke the protocol mid-exchange; it will be replaced
  kUnavailable,  // no helper could be started (program missing, fork failed)
};

// What happened to the helper during a failed exchange, for messages and tests.
struct ExchangeFailure {
  int signal = 0;      // the signal that ended the helper, when it died of one
  int exit_code = -1;  // its exit code, when it exited
  std::string what;    // a short reason: "timed out", "killed by signal 9", "cannot start ..."
};

class ProcessPool {
 public:
  explicit ProcessPool(PoolOptions options);
  ~ProcessPool();
  ProcessPool(const ProcessPool&) = delete;
  ProcessPool& operator=(const ProcessPool&) = delete;

  // Sends `request` (frame type `request_type`) and hands every answer frame to `on_frame`
  // until a frame of `end_type` arrives (which is handed over too). `on_frame` returning
  // false asks the helper to cancel. `timeout_ms` covers the whole exchange.
  ExchangeStatus Exchange(uint32_t request_type, std::string_view request, uint32_t end_type,
                          const std::function<bool(const Frame&)>& on_frame, int64_t timeout_ms,
                          ExchangeFailure* failure = nullptr);

  const PoolOptions& options() const { return options_; }
  // Helpers started so far (restarts included); for tests and statistics.
  uint64_t starts() const;

 private:
  struct Helper;
  class Launcher;
  std::unique_ptr<Helper> Start(ExchangeFailure* failure);
  std::unique_ptr<Helper> Lease(ExchangeFailure* failure);
  void Return(std::unique_ptr<Helper> helper);
  // Ends a helper that failed or is no longer wanted: its input is closed, it gets `grace_ms`
  // to end by itself, then it is killed; how it ended goes to `failure`.
  void Discard(std::unique_ptr<Helper> helper, int grace_ms, ExchangeFailure* failure);

  PoolOptions options_;
  mutable std::mutex mutex_;
  std::condition_variable idle_cv_;
  std::vector<std::unique_ptr<Helper>> idle_;
  int live_ = 0;
  uint64_t starts_ = 0;
  std::unique_ptr<Launcher> launcher_;
};

}  // namespace trovix::platform
