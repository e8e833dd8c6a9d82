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
// take locks. That thread ends by itself once the StopSignals is gone (nobody waits for it: a
// command that has finished its work does not wait for a thread to wake up and end); a
// signal that came before may still request its stop then.
#pragma once

#include <stop_token>

namespace trovix::platform {

class StopSignals {
 public:
  StopSignals(std::stop_source source, bool second_ends_program);
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  // Whether a signal came since this object was made.
  bool Signalled() const;

 private:
  int write_fd_ = -1;  // the handler's end of the relay's pipe
};

}  // namespace trovix::platform
