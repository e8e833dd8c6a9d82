// ProcessPool: a small pool of helper processes that do work the search process must not do
// itself (parsing untrusted documents now; content plugins later). Each helper is one program
// started with pipes on its standard input and output; requests and answers are frames
// (platform/frame_io.h). The pool starts helpers lazily, restarts one that died, and holds
// every exchange to a deadline: a helper that does not answer in time is killed (SIGKILL)
// and replaced, and only that exchange fails.
//
// One exchange: the client sends one request frame; the helper answers with any number of
// frames and ends with a frame of the type the client named as the end type. The client may
// stop early (its callback says kCancel): the pool then sends a frame of type kFrameCancel
// and drains the answers up to the end frame (which is handed over), so the helper stays
// usable. A client that must end at once (a search being stopped) passes a stop_token: a stop
// requested during the exchange kills the helper there and then, as a missed deadline does,
// instead of waiting for an answer that a hanging helper would give only at its deadline.
//
// What a helper gets, since a document may take it over (the helper itself then enters its
// sandbox, platform/sandbox.h):
//   - descriptors 0 and 1 are the request and answer pipes, 2 a pipe the pool drains (or
//     /dev/null); nothing else is inherited, so no descriptor is a terminal;
//   - a session of its own (setsid): no controlling terminal, and a process group the pool
//     kills whole;
//   - an environment of a few names only (HelperEnvironment): the locale and time zone the
//     libraries format with, and what the client adds; never the session bus, ssh-agent,
//     display or runtime folder of the user (a plugin host for lister plugins alone is given
//     the display: its plugins draw windows);
//   - an address-space limit (RLIMIT_AS), no core files, no file growth (RLIMIT_FSIZE 0: it
//     writes only to pipes), death with the pool (PR_SET_PDEATHSIG).
// The helpers' standard error is a log, not a terminal: each distinct line (escaped, at most
// 1 KiB) is passed on once to the pool's own standard error, 64 KiB in all; the last 64 KiB
// are kept for helper_log().
//
// Every answer is bounded: the client names the largest frame and the bytes of all frames it
// accepts (AnswerLimits), and may refuse a frame itself (FrameVerdict::kRefuse). A helper that
// goes beyond is killed, like one that misses its deadline.
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
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "platform/frame_io.h"

namespace trovix::platform {

struct PoolOptions {
  std::string program;             // absolute path of the helper program
  std::vector<std::string> args;   // arguments after the program name
  int size = 0;                    // helpers at most; 0: one per core
  // RLIMIT_AS of each helper, bytes; 0: none. Sanitized builds set none whatever is asked:
  // the sanitizers' shadow memory is larger than any limit worth setting.
  uint64_t memory_limit = 1ull << 30;
  bool quiet_stderr = false;       // helpers' standard error goes to /dev/null, not the log
  std::vector<std::string> environment;  // names passed on beyond HelperEnvironment's own
};

// The running program's own path ("" when it cannot be read).
std::string ThisProgram();
// The helper `name` to start: the path in the environment variable `override` when set,
// else the program of that name beside this one (the programs are installed side by side).
std::string HelperBesideThisProgram(const char* override, const char* name);

// The environment a helper starts with: from this process's environment, only LANG,
// LANGUAGE, LC_ALL and the LC_* categories (libraries decode and format by them), TZ (times
// in documents are turned to UTC by it), and the names in `extra`; in sanitized builds the
// sanitizers' options too, so a helper reports as its tests ask.
std::vector<std::string> HelperEnvironment(const std::vector<std::string>& extra);

// What a client says of each answer frame.
enum class FrameVerdict {
  kMore,    // go on
  kCancel,  // stop early: the helper is asked to cancel and stays usable
  kRefuse,  // the frame is beyond what the request can bring: the helper is killed
};

// Bounds of one answer, checked as frames arrive (a larger frame is refused before it is read).
struct AnswerLimits {
  uint32_t max_frame = kMaxFramePayload;  // payload of one frame
  uint64_t max_bytes = UINT64_MAX;        // payloads of all frames, the end frame included
};

enum class ExchangeStatus {
  kOk,           // the end frame arrived (or the client stopped and the drain succeeded)
  kTimedOut,     // the deadline passed; the helper was killed and will be replaced
  kCrashed,      // the helper died or broke the protocol mid-exchange; it will be replaced
  kUnavailable,  // no helper could be started (program missing, fork failed)
  kRefused,      // the answer went beyond its limits; the helper was killed and will be replaced
  kStopped,      // the client's stop came first; the helper (if it had the request) was killed
                 // and will be replaced. Nothing is known of the request: it is no fault of it.
};

// What happened to the helper during a failed exchange, for messages and tests.
struct ExchangeFailure {
  int signal = 0;      // the signal that ended the helper, when it died of one
  int exit_code = -1;  // its exit code, when it exited
  std::string what;    // a short reason: "timed out", "killed by signal 9", "cannot start ...",
                       // "answer too large"
};

class ProcessPool {
 public:
  explicit ProcessPool(PoolOptions options);
  ~ProcessPool();
  ProcessPool(const ProcessPool&) = delete;
  ProcessPool& operator=(const ProcessPool&) = delete;

  // Sends `request` (frame type `request_type`) and hands every answer frame to `on_frame`
  // until a frame of `end_type` arrives (which is handed over too). `timeout_ms` covers the
  // whole exchange; `limits` bound the answer, the frames drained after a cancel included.
  // A request that asks for several answers (a batch) names how many end frames close it:
  // the deadline and the limits then hold for each answer, counted from the end before, and
  // a cancel stops the answer under way (its frame names that answer's index, from 0).
  // Once `stop` is requested the exchange ends with kStopped: before the request is sent,
  // nothing is sent; after, the helper is killed from the stopping thread and the answers
  // that ended before it stand (handed over already).
  ExchangeStatus Exchange(uint32_t request_type, std::string_view request, uint32_t end_type,
                          const std::function<FrameVerdict(const Frame&)>& on_frame, int64_t timeout_ms,
                          ExchangeFailure* failure = nullptr, const AnswerLimits& limits = {},
                          uint32_t answers = 1, std::stop_token stop = {});

  const PoolOptions& options() const { return options_; }
  // Helpers started so far (restarts included); for tests and statistics.
  uint64_t starts() const;
  // The last lines the helpers wrote to their standard error (at most 64 KiB, escaped).
  std::string helper_log() const;

 private:
  struct Helper;
  class Launcher;
  class StderrLog;
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
  std::unique_ptr<StderrLog> log_;
  std::unique_ptr<Launcher> launcher_;
};

}  // namespace trovix::platform
