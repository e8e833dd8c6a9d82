#include "base/clock.h"

#include <atomic>
#include <chrono>

namespace trovix::base {
namespace {

std::atomic<bool> g_fixed{false};
std::atomic<FileTime> g_now{0};

}  // namespace

FileTime NowUtc() {
  if (g_fixed.load(std::memory_order_acquire)) return g_now.load(std::memory_order_relaxed);
  auto since = std::chrono::system_clock::now().time_since_epoch();
  return kUnixEpoch + std::chrono::duration_cast<std::chrono::nanoseconds>(since).count() / 100;
}

ScopedFixedClock::ScopedFixedClock(FileTime now)
    : previous_(g_now.load()), had_previous_(g_fixed.load()) {
  g_now.store(now);
  g_fixed.store(true, std::memory_order_release);
}

ScopedFixedClock::~ScopedFixedClock() {
  g_now.store(previous_);
  g_fixed.store(had_previous_, std::memory_order_release);
}

}  // namespace trovix::base
