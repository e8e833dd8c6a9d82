// The CPU budget's arithmetic, driven by a made-up clock: what it lets through over any
// minute, and that it slows the work down without ever stopping it.
#include "index/cpu_budget.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace trovix::engine::index {
namespace {

// Time passes only when the work or a sleep says so.
class MadeUpClock final : public UsageClock {
 public:
  double Now() override { return now; }
  double CpuSeconds() override { return cpu; }
  void Sleep(double seconds, std::stop_token) override {
    now += seconds;
    slept += seconds;
    ++sleeps;
  }
  // An item of work: `busy` seconds of CPU over as much wall time (one thread at full speed).
  void Work(double busy) {
    now += busy;
    cpu += busy;
    history.emplace_back(now, cpu);
  }
  double now = 1000, cpu = 5;  // a process that has run before the budget starts
  double slept = 0;
  int sleeps = 0;
  std::vector<std::pair<double, double>> history;
};

// The largest share of CPU over any window of `window` seconds that ends at an item.
double WorstShare(const MadeUpClock& clock, double window) {
  double worst = 0;
  for (size_t end = 0; end < clock.history.size(); ++end) {
    const auto [t_end, c_end] = clock.history[end];
    if (t_end - clock.history.front().first < window) continue;
    // The point a window before the end (time-wise), taken at the latest item not after it.
    auto start = std::find_if(clock.history.rbegin(), clock.history.rend(),
                              [&](const auto& p) { return p.first <= t_end - window; });
    if (start == clock.history.rend()) continue;
    worst = std::max(worst, (c_end - start->second) / (t_end - start->first));
  }
  return worst;
}

TEST(CpuBudget, KeepsEveryMinuteUnderTheShareAndFinishesInTheTimeTheShareAllows) {
  for (double percent : {5.0, 25.0, 80.0}) {
    SCOPED_TRACE(percent);
    MadeUpClock clock;
    CpuBudget budget(percent, clock);
    const double start = clock.now;
    constexpr int kItems = 20000;
    for (int i = 0; i < kItems; ++i) {
      clock.Work(0.003 + 0.002 * (i % 7));  // items of uneven cost
      budget.Pace({});
    }
    const double spent = clock.cpu - 5;
    // Under the share over every minute, allowing for the last item before a pause.
    EXPECT_LE(WorstShare(clock, 60), percent / 100 * 1.02 + 0.01);
    // ... and not slower than the share demands: the budget is a cap, not a brake.
    const double wall = clock.now - start;
    EXPECT_LE(wall, spent / (percent / 100) * 1.05 + 1);
    EXPECT_GT(clock.sleeps, 0);
  }
}

TEST(CpuBudget, SmallDuesWaitToBeWorthAPauseAndIdleTimeIsCredit) {
  MadeUpClock clock;
  CpuBudget budget(50, clock);
  clock.Work(0.01);  // due 0.01 s: carried over
  EXPECT_EQ(budget.Pace({}), 0);
  EXPECT_EQ(clock.sleeps, 0);
  clock.Work(0.2);   // 0.21 s spent in 0.21 s: 0.21 s due at 50 %
  EXPECT_NEAR(budget.Pace({}), 0.21, 1e-9);
  // Time spent idle (waiting for changes) is credit within the window.
  clock.now += 30;
  clock.Work(10);
  EXPECT_EQ(budget.Due(), 0);
}

TEST(CpuBudget, AnItemDearerThanTheWholeWindowIsPaidWithOneWindowAndWorkGoesOn) {
  MadeUpClock clock;
  CpuBudget budget(1, clock);
  clock.Work(120);  // one document that took two minutes of CPU
  EXPECT_DOUBLE_EQ(budget.Pace({}), 60);  // not 11,880 s
  clock.Work(0.001);
  // A minute later the dear item has left the window: the next items pass at the share.
  EXPECT_LT(budget.Due(), 1);
}

TEST(CpuBudget, ManyThreadsAskingShareOneWindow) {
  MadeUpClock clock;
  CpuBudget budget(10, clock);
  // Four workers spent 0.4 s of CPU in 0.1 s of wall time: each is due the same pause,
  // which they sleep side by side.
  clock.now += 0.1;
  clock.cpu += 0.4;
  const double first = budget.Due();
  EXPECT_NEAR(first, 0.4 / 0.1 - 0.1, 1e-9);
  EXPECT_NEAR(budget.Due(), first, 1e-9);
}

}  // namespace
}  // namespace trovix::engine::index
