// What holds an indexer back: the user's pause, the battery, the CPU budget; and what it
// tells others of its work (the activity file of indexer_state.h).
//
// The indexer calls Checkpoint between items (a folder of the walk, a file of the read); the
// watch asks PausedWhy before it writes what it gathered. Pause sources are asked at most
// every kPauseCheckMs (the user's switch) or kPowerCheckMs (the power source), so a
// checkpoint per item costs a clock reading. The activity file is rewritten when what the
// indexer does changes, at most once a second (Publish), and every minute for the CPU count.
//
// Thread-safe: the reading workers of the indexer pass their checkpoints at the same time.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "index/cpu_budget.h"
#include "index/indexer_state.h"
#include "platform/power_source.h"

namespace trovix::engine::index {

struct ThrottleOptions {
  std::string db_path;         // where the pause switch and the activity file live
  bool watching = false;       // a watch (false: an update)
  double budget_percent = 0;   // 0: no budget
  bool obey_user_pause = true;
  bool pause_on_battery = true;
  int rescan_seconds = 0;      // said with the folders that are rescanned instead of followed
};

class IndexerThrottle {
 public:
  using PowerProbe = std::function<platform::PowerSource()>;
  explicit IndexerThrottle(ThrottleOptions options, UsageClock& clock = SystemUsageClock(),
                           PowerProbe power = [] { return platform::CurrentPowerSource(); });

  // Between two items: notes what the indexer does, waits while it is paused and sleeps what
  // the budget asks. `before_wait` (when given) runs once before any wait, so that a writer can
  // commit rather than hold its transaction open through a pause.
  void Checkpoint(const char* activity, std::stop_token stop, const std::function<void()>& before_wait = {});
  // Why work must wait now ("" when it need not).
  std::string PausedWhy();

  void SetActivity(const char* activity);
  // The oldest change seen and not yet written (0: none), in unix seconds.
  void SetBehind(int64_t since);
  void SetUnwatched(const std::vector<std::string>& folders);
  void SetNoEvents(const std::vector<std::pair<std::string, std::string>>& folders);
  // Writes the activity file when something changed and a second has passed since the last
  // write, or a minute in any case; `force` writes now.
  void Publish(bool force = false);

  // The state as it would be written now.
  IndexerState Snapshot();

  static constexpr int kPauseCheckMs = 250;
  static constexpr int kPowerCheckMs = 5000;

 private:
  std::string PausedWhyLocked();
  void PublishLocked(bool force);

  ThrottleOptions options_;
  UsageClock& clock_;
  PowerProbe power_;
  std::unique_ptr<CpuBudget> budget_;
  std::mutex mutex_;
  IndexerState state_;
  bool changed_ = true;
  double cpu_at_start_ = 0;   // the process's CPU time when today's count was taken over
  double cpu_before_ = 0;     // what earlier runs spent today
  double last_pause_check_ = -1e9, last_power_check_ = -1e9, last_write_ = -1e9;
  bool user_paused_ = false, on_battery_ = false;
};

}  // namespace trovix::engine::index
