// A cap on the processor time a background job takes: `--budget PERCENT`.
//
// The job calls Pace between its items; Pace sleeps for as long as it takes for the CPU time
// spent since the start of the last minute to be at most PERCENT of the wall time since then.
// The measure is the whole process (every thread) with its helper processes, so reading
// threads that run ahead of the one that paces, and the extraction helpers, are counted too.
// One item that costs more than the budget allows is paid for
// with a pause of at most the window (a minute): the cap slows the job down, it never stops it.
//
// The clock and the usage come through UsageClock, so that the arithmetic can be driven by a
// made-up clock. Thread-safe: several workers may pace at once; each sleeps what is due when it
// asks.
#pragma once

#include <deque>
#include <mutex>
#include <stop_token>
#include <utility>

namespace trovix::engine::index {

class UsageClock {
 public:
  virtual ~UsageClock() = default;
  virtual double Now() = 0;         // seconds on a steady clock
  virtual double CpuSeconds() = 0;  // the process's CPU time
  // Sleeps `seconds`, or less when `stop` is requested.
  virtual void Sleep(double seconds, std::stop_token stop) = 0;
};

// The system's steady clock, the CPU time of the process and its helpers, and a sleep that
// wakes on a stop request.
UsageClock& SystemUsageClock();

class CpuBudget {
 public:
  // `percent` of one processor (100 = one core's worth), more than 0.
  CpuBudget(double percent, UsageClock& clock, double window_seconds = 60);

  // The pause due now to stay within the budget, in seconds (0 when within it); notes the
  // moment as a point of the window.
  double Due();
  // Sleeps what is due, unless it is too short to be worth a pause (it is then carried over to
  // the next call). Returns the seconds slept.
  double Pace(std::stop_token stop);

  double percent() const { return fraction_ * 100; }

  // Pauses shorter than this are carried over: a pause per small item would cost more in
  // wake-ups (and, for a walk, in commits) than the item itself.
  static constexpr double kShortestPause = 0.05;

 private:
  UsageClock& clock_;
  const double fraction_;
  const double window_;
  std::mutex mutex_;
  std::deque<std::pair<double, double>> samples_;  // (time, CPU seconds), oldest first
};

}  // namespace trovix::engine::index
