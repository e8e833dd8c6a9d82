#include "index/cpu_budget.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>

#include "platform/process_priority.h"

namespace trovix::engine::index {
namespace {

// Points of the window closer together than this are merged: the window holds a bounded
// number of them however many items pass.
constexpr double kSampleSpacing = 0.05;

class SystemClock final : public UsageClock {
 public:
  double Now() override {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
  }
  // The helpers' time counts too: they do most of the reading. Asked of the system at most
  // every kSampleSpacing, as it costs a few file reads per helper.
  double CpuSeconds() override {
    std::lock_guard lock(mutex_);
    const double now = Now();
    if (now - asked_ >= kSampleSpacing) {
      asked_ = now;
      cpu_ = platform::ProcessTreeCpuSeconds();
    }
    return cpu_;
  }
  void Sleep(double seconds, std::stop_token stop) override {
    std::mutex m;
    std::condition_variable_any cv;
    std::unique_lock lock(m);
    cv.wait_for(lock, stop, std::chrono::duration<double>(seconds), [] { return false; });
  }

 private:
  std::mutex mutex_;
  double asked_ = -1e9, cpu_ = 0;
};

}  // namespace

UsageClock& SystemUsageClock() {
  static SystemClock clock;
  return clock;
}

CpuBudget::CpuBudget(double percent, UsageClock& clock, double window_seconds)
    : clock_(clock), fraction_(std::max(percent, 0.01) / 100), window_(window_seconds) {
  // The window starts now: what the process spent before the budget was set is not the job's.
  samples_.emplace_back(clock_.Now(), clock_.CpuSeconds());
}

double CpuBudget::Due() {
  std::lock_guard lock(mutex_);
  const double now = clock_.Now(), cpu = clock_.CpuSeconds();
  if (samples_.empty() || now - samples_.back().first >= kSampleSpacing) samples_.emplace_back(now, cpu);
  // The window starts at the newest point that is at least its length old, so that what was
  // spent just before a minute ago still counts until a newer point takes over.
  while (samples_.size() > 1 && samples_[1].first <= now - window_) samples_.pop_front();
  const auto [since, cpu_then] = samples_.front();
  const double spent = cpu - cpu_then;
  const double elapsed = now - since;
  // spent / (elapsed + pause) <= fraction
  return std::clamp(spent / fraction_ - elapsed, 0.0, window_);
}

double CpuBudget::Pace(std::stop_token stop) {
  const double due = Due();
  if (due < kShortestPause) return 0;
  clock_.Sleep(due, stop);
  return due;
}

}  // namespace trovix::engine::index
