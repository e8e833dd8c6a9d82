#include "index/indexer_throttle.h"

#include <unistd.h>

#include <ctime>

namespace trovix::engine::index {

IndexerThrottle::IndexerThrottle(ThrottleOptions options, UsageClock& clock, PowerProbe power)
    : options_(std::move(options)), clock_(clock), power_(std::move(power)) {
  if (options_.budget_percent > 0) budget_ = std::make_unique<CpuBudget>(options_.budget_percent, clock_);
  state_.pid = ::getpid();
  state_.watching = options_.watching;
  state_.activity = "starting";
  state_.rescan_seconds = options_.rescan_seconds;
  const int64_t now = std::time(nullptr);
  state_.cpu_day = LocalDay(now);
  // What the indexers before this one spent today goes on counting.
  if (const auto before = ReadIndexerState(options_.db_path); before && before->cpu_day == state_.cpu_day)
    cpu_before_ = before->cpu_seconds_today;
  cpu_at_start_ = clock_.CpuSeconds();
  state_.cpu_seconds_today = cpu_before_;
}

std::string IndexerThrottle::PausedWhyLocked() {
  const double now = clock_.Now();
  if (options_.obey_user_pause && now - last_pause_check_ >= kPauseCheckMs / 1000.0) {
    last_pause_check_ = now;
    user_paused_ = IndexPausedByUser(options_.db_path);
  }
  if (options_.pause_on_battery && now - last_power_check_ >= kPowerCheckMs / 1000.0) {
    last_power_check_ = now;
    on_battery_ = power_ && power_() == platform::PowerSource::kBattery;
  }
  std::string why = user_paused_  ? "paused by the user (trovix-cli index resume)"
                    : on_battery_ ? "on battery (settings set bIndexOnBattery 1 keeps indexing)"
                                  : "";
  if (why != state_.paused_why) {
    state_.paused_why = why;
    changed_ = true;
  }
  return why;
}

std::string IndexerThrottle::PausedWhy() {
  std::lock_guard lock(mutex_);
  return PausedWhyLocked();
}

void IndexerThrottle::Checkpoint(const char* activity, std::stop_token stop, const std::function<void()>& before_wait) {
  bool waited = false;
  auto wait_begins = [&] {
    if (!waited && before_wait) before_wait();
    waited = true;
  };
  SetActivity(activity);
  for (;;) {
    std::string why;
    {
      std::lock_guard lock(mutex_);
      why = PausedWhyLocked();
      PublishLocked(false);
    }
    if (why.empty() || stop.stop_requested()) break;
    wait_begins();
    clock_.Sleep(kPauseCheckMs / 1000.0, stop);
  }
  if (budget_ == nullptr || stop.stop_requested()) return;
  // The pause is taken only when it is worth one (CpuBudget::kShortestPause).
  if (budget_->Due() < CpuBudget::kShortestPause) return;
  wait_begins();
  budget_->Pace(stop);
}

void IndexerThrottle::SetActivity(const char* activity) {
  std::lock_guard lock(mutex_);
  if (state_.activity == activity) return;
  state_.activity = activity;
  changed_ = true;
}

void IndexerThrottle::SetBehind(int64_t since) {
  std::lock_guard lock(mutex_);
  if (state_.oldest_unwritten == since) return;
  state_.oldest_unwritten = since;
  changed_ = true;
}

void IndexerThrottle::SetUnwatched(const std::vector<std::string>& folders) {
  std::lock_guard lock(mutex_);
  if (state_.unwatched_count == static_cast<int64_t>(folders.size())) return;
  state_.unwatched_count = static_cast<int64_t>(folders.size());
  state_.unwatched.assign(folders.begin(),
                          folders.begin() + static_cast<long>(std::min(folders.size(), IndexerState::kListedFolders)));
  changed_ = true;
}

void IndexerThrottle::SetNoEvents(const std::vector<std::pair<std::string, std::string>>& folders) {
  std::lock_guard lock(mutex_);
  if (state_.no_events == folders) return;
  state_.no_events = folders;
  changed_ = true;
}

IndexerState IndexerThrottle::Snapshot() {
  std::lock_guard lock(mutex_);
  const int64_t now = std::time(nullptr);
  const std::string today = LocalDay(now);
  const double cpu = clock_.CpuSeconds();
  if (today != state_.cpu_day) {
    // A new day counts from here.
    state_.cpu_day = today;
    cpu_before_ = 0;
    cpu_at_start_ = cpu;
  }
  state_.cpu_seconds_today = cpu_before_ + (cpu - cpu_at_start_);
  state_.written = now;
  return state_;
}

void IndexerThrottle::PublishLocked(bool force) {
  const double now = clock_.Now();
  if (!force && !(changed_ && now - last_write_ >= 1) && now - last_write_ < 60) return;
  last_write_ = now;
  changed_ = false;
  mutex_.unlock();
  // Written without the lock: a slow disk must not hold the reading workers.
  WriteIndexerState(options_.db_path, Snapshot());
  mutex_.lock();
}

void IndexerThrottle::Publish(bool force) {
  std::lock_guard lock(mutex_);
  PublishLocked(force);
}

}  // namespace trovix::engine::index
