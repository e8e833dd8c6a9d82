// Ctrl+C (SIGINT) and a service manager's polite kill (SIGTERM) turned into a stop request, so
// that a console command ends between two items with what it has done kept and printed. While
// a StopSignals lives, either signal requests a stop of its stop source; when it goes, both act
// as usual again.
//
// With `second_ends_program`, a second signal ends the program as the signal always would: a
// search whose stop does not come (a read that never returns) can still be ended from the
// keyboard. Without it, later signals only repeat the request.
//
// One StopSignals at a time per process, made and destroyed on the same thread. The stop is
// requested from a thread of its own, never inside the signal handler, so stop callbacks may
// take locks. A thread that has nothing else to do while the work runs elsewhere can be that
// thread itself (Relay::kCaller, then RelayUntil): no thread is started for the signals.
#pragma once

#include <stop_token>
#include <thread>

namespace trovix::platform {

class StopSignals {
 public:
  enum class Relay { kThread, kCaller };

  StopSignals(std::stop_source source, bool second_ends_program, Relay relay = Relay::kThread);
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  // Whether a signal came since this object was made.
  bool Signalled() const;

  // Relay::kCaller: requests the stop for each signal that comes, on the calling thread, until
  // `done_fd` becomes readable (the work's end, written by whoever ends it). Returns at once
  // for a StopSignals that relays on a thread of its own.
  void RelayUntil(int done_fd);

 private:
  std::stop_source source_;
  int pipe_[2] = {-1, -1};
  std::thread relay_;
};

}  // namespace trovix::platform
