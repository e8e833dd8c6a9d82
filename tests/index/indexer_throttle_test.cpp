// What holds the indexer back and what it tells of itself: the pause switch, the battery, the
// activity file that `index status` reads, and a real watch and update under them.
#include "index/indexer_throttle.h"

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

#include "index/index_watch.h"
#include "index/indexer.h"
#include "index/sqlite/index_database.h"
#include "platform/sqlite_statement.h"
#include "tests/support/index_fixtures.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine::index {
namespace {

using testing::Eventually;
using testing::TempTree;

std::string Joined(const std::vector<std::string>& lines) {
  std::string out;
  for (const auto& l : lines) out += l + "\n";
  return out;
}

// A clock whose sleeps pass at once (with a real millisecond, so that other threads run).
class QuickClock final : public UsageClock {
 public:
  double Now() override { return now.load(); }
  double CpuSeconds() override { return 0; }
  void Sleep(double seconds, std::stop_token) override {
    now = now.load() + seconds;
    ++sleeps;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  std::atomic<double> now{0};
  std::atomic<int> sleeps{0};
};

TEST(IndexerState, TheActivityFileReadsBackAsWrittenAndAnythingElseReadsAsNoState) {
  IndexerState s;
  s.pid = 4242;
  s.watching = true;
  s.activity = "reading";
  s.paused_why = "on battery";
  s.written = 1700000000;
  s.oldest_unwritten = 1699999000;
  s.unwatched = {"/home/u/odd\tname", "/home/u/new\nline\\x"};
  s.unwatched_count = 7;
  s.no_events = {{"/mnt/share", "nfs"}};
  s.cpu_day = "2026-11-26";
  s.cpu_seconds_today = 12.5;
  s.rescan_seconds = 600;
  const auto back = ParseIndexerState(FormatIndexerState(s));
  ASSERT_TRUE(back);
  EXPECT_EQ(back->pid, 4242);
  EXPECT_TRUE(back->watching);
  EXPECT_EQ(back->activity, "reading");
  EXPECT_EQ(back->paused_why, "on battery");
  EXPECT_EQ(back->oldest_unwritten, 1699999000);
  EXPECT_EQ(back->unwatched, s.unwatched);
  EXPECT_EQ(back->unwatched_count, 7);
  EXPECT_EQ(back->no_events, s.no_events);
  EXPECT_DOUBLE_EQ(back->cpu_seconds_today, 12.5);
  EXPECT_EQ(back->rescan_seconds, 600);

  // A newer writer's keys are passed over; damage and strangers are not state.
  EXPECT_TRUE(ParseIndexerState(FormatIndexerState(s) + "future\tvalue\n"));
  for (const std::string& bad : {std::string(), std::string("pid\t1\n"), FormatIndexerState(s) + "pid\tmany\n",
                                FormatIndexerState(s) + "no tab here\n", FormatIndexerState(s) + "cpu_seconds\t-1\n",
                                std::string("trovix indexer activity 1\nactivity\tidle\n")})
    EXPECT_FALSE(ParseIndexerState(bad)) << bad;
}

TEST(IndexerState, StatusLinesSayWhatARunningWatchDoesAndWhatIsLeftWhenItIsGone) {
  TempTree tree;
  const std::string db = tree.path("index.db");
  const int64_t now = std::time(nullptr);
  // No indexer has run yet.
  std::string text = Joined(IndexerStateLines(db, now));
  EXPECT_NE(text.find("indexer:     not running"), std::string::npos) << text;
  EXPECT_NE(text.find("cpu today:   0.00 s"), std::string::npos) << text;

  IndexerState s;
  s.pid = ::getpid();
  s.watching = true;
  s.activity = "walking";
  s.oldest_unwritten = now - 300;
  s.unwatched = {"/data/a", "/data/b"};
  s.unwatched_count = 5;
  s.no_events = {{"/data/share", "fuse"}};
  s.cpu_day = LocalDay(now);
  s.cpu_seconds_today = 3.25;
  s.rescan_seconds = 600;
  ASSERT_TRUE(WriteIndexerState(db, s));
  text = Joined(IndexerStateLines(db, now));
  EXPECT_NE(text.find("indexer:     watching, walking (process " + std::to_string(::getpid()) + ")"), std::string::npos)
      << text;
  EXPECT_NE(text.find("behind:      5 min"), std::string::npos) << text;
  EXPECT_NE(text.find("not watched: 5 folder(s) over the kernel's limit"), std::string::npos) << text;
  EXPECT_NE(text.find("             /data/b\n             and 3 more"), std::string::npos) << text;
  EXPECT_NE(text.find("no events:   /data/share (fuse"), std::string::npos) << text;
  EXPECT_NE(text.find("cpu today:   3.25 s"), std::string::npos) << text;

  // The user's pause is said whether or not an indexer runs.
  ASSERT_TRUE(SetIndexPaused(db, true, nullptr));
  EXPECT_NE(Joined(IndexerStateLines(db, now)).find("paused by the user"), std::string::npos);
  ASSERT_TRUE(SetIndexPaused(db, false, nullptr));
  EXPECT_FALSE(IndexPausedByUser(db));

  // The writer has gone (a child that has ended): its watch is not said, its CPU of today is;
  // yesterday's CPU is not today's.
  const pid_t gone = ::fork();
  if (gone == 0) ::_exit(0);
  ::waitpid(gone, nullptr, 0);
  s.pid = gone;
  ASSERT_TRUE(WriteIndexerState(db, s));
  text = Joined(IndexerStateLines(db, now));
  EXPECT_NE(text.find("not running"), std::string::npos) << text;
  EXPECT_EQ(text.find("behind:"), std::string::npos) << text;
  EXPECT_NE(text.find("cpu today:   3.25 s"), std::string::npos) << text;
  s.cpu_day = "2001-01-01";
  ASSERT_TRUE(WriteIndexerState(db, s));
  EXPECT_NE(Joined(IndexerStateLines(db, now)).find("cpu today:   0.00 s"), std::string::npos);
}

TEST(IndexerThrottle, WaitsWhilePausedOrOnBatteryCommitsFirstAndGoesOnWhenReleased) {
  TempTree tree;
  const std::string db = tree.path("index.db");
  std::atomic<bool> battery{false};
  QuickClock clock;
  ThrottleOptions options;
  options.db_path = db;
  options.watching = true;
  IndexerThrottle throttle(options, clock, [&] {
    return battery ? platform::PowerSource::kBattery : platform::PowerSource::kMains;
  });
  int commits = 0;
  throttle.Checkpoint("walking", {}, [&] { ++commits; });
  EXPECT_EQ(commits, 0);  // nothing held it back
  EXPECT_EQ(clock.sleeps, 0);

  ASSERT_TRUE(SetIndexPaused(db, true, nullptr));
  clock.now = clock.now.load() + IndexerThrottle::kPauseCheckMs / 1000.0;  // the switch is looked at again
  std::atomic<bool> passed{false};
  std::thread worker([&] {
    throttle.Checkpoint("reading", {}, [&] { ++commits; });
    passed = true;
  });
  // It waits, and says why in the activity file.
  for (int i = 0; i < 2000 && clock.sleeps < 20; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_FALSE(passed);
  throttle.Publish(true);
  auto state = ReadIndexerState(db);
  ASSERT_TRUE(state);
  EXPECT_NE(state->paused_why.find("paused by the user"), std::string::npos);
  ASSERT_TRUE(SetIndexPaused(db, false, nullptr));
  worker.join();
  EXPECT_TRUE(passed);
  EXPECT_EQ(commits, 1);  // once before the wait, however long it was

  battery = true;
  clock.now = clock.now.load() + IndexerThrottle::kPowerCheckMs / 1000.0;
  EXPECT_NE(throttle.PausedWhy().find("on battery"), std::string::npos);
  battery = false;
  clock.now = clock.now.load() + IndexerThrottle::kPowerCheckMs / 1000.0;
  EXPECT_EQ(throttle.PausedWhy(), "");

  // An update asked for by hand obeys neither.
  options.obey_user_pause = false;
  options.pause_on_battery = false;
  battery = true;
  ASSERT_TRUE(SetIndexPaused(db, true, nullptr));
  IndexerThrottle by_hand(options, clock, [&] { return platform::PowerSource::kBattery; });
  EXPECT_EQ(by_hand.PausedWhy(), "");
}

TEST(IndexerThrottle, CpuTodayCarriesOverFromTheIndexersBeforeToday) {
  TempTree tree;
  const std::string db = tree.path("index.db");
  IndexerState before;
  before.pid = 1;
  before.cpu_day = LocalDay(std::time(nullptr));
  before.cpu_seconds_today = 40;
  ASSERT_TRUE(WriteIndexerState(db, before));
  ThrottleOptions options;
  options.db_path = db;
  IndexerThrottle throttle(options);
  // Burn a little CPU of this process's own.
  volatile double x = 0;
  for (int i = 0; i < 20'000'000; ++i) x = x + i * 0.5;
  const IndexerState now = throttle.Snapshot();
  EXPECT_GT(now.cpu_seconds_today, 40);
  EXPECT_LT(now.cpu_seconds_today, 40 + 1000);
}

struct Watched {
  TempTree tree{{"data/a/one.txt=first", "data/b/two.txt=second", "data/b/c/three.txt=third"}};
  std::string error;
  std::unique_ptr<IndexDatabase> db = IndexDatabase::Open(tree.path("index.db"), IndexDatabase::Access::kWrite, &error);
  Indexer indexer{*db};

  bool Indexed(IndexDatabase& reader, const std::string& path) {
    platform::Statement s(reader.db(),
                          "SELECT count(*) FROM items i JOIN folders f ON f.id=i.parent WHERE f.path || '/' || i.name=?");
    s.Bind(1, path);
    return s.Step() == SQLITE_ROW && s.Int(0) == 1;
  }
};

// A watch paused by the user goes on seeing changes, says how far behind it falls, and writes
// them all once resumed.
TEST(IndexerThrottle, APausedWatchFallsBehindVisiblyAndCatchesUpOnResume) {
  Watched w;
  ASSERT_TRUE(w.db) << w.error;
  ASSERT_TRUE(w.indexer.AddRoot(w.tree.path("data"), &w.error));
  const std::string db_path = w.tree.path("index.db");
  ThrottleOptions options;
  options.db_path = db_path;
  options.watching = true;
  options.pause_on_battery = false;
  IndexerThrottle throttle(options);
  w.indexer.set_throttle(&throttle);
  WatchOptions watch;
  watch.throttle = &throttle;
  std::stop_source stop;
  std::atomic<bool> watching{false};
  std::thread watcher([&] {
    WatchIndex(w.indexer, watch, stop.get_token(), [&](const std::string& line) {
      if (line.find("watching") == 0) watching = true;
    });
  });
  ASSERT_TRUE(Eventually([&] { return watching.load(); }));
  std::string error;
  auto reader = IndexDatabase::Open(db_path, IndexDatabase::Access::kRead, &error);
  ASSERT_TRUE(reader) << error;
  ASSERT_TRUE(SetIndexPaused(db_path, true, nullptr));
  EXPECT_TRUE(Eventually([&] {
    auto s = ReadIndexerState(db_path);
    return s && !s->paused_why.empty();
  }));
  w.tree.File("data/a/while_paused.txt", "written during the pause");
  EXPECT_TRUE(Eventually([&] {
    auto s = ReadIndexerState(db_path);
    return s && s->oldest_unwritten > 0;
  }));
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));  // well past the watch's delay
  EXPECT_FALSE(w.Indexed(*reader, w.tree.path("data/a/while_paused.txt")));
  EXPECT_NE(Joined(IndexerStateLines(db_path, std::time(nullptr))).find("behind:      "), std::string::npos);

  ASSERT_TRUE(SetIndexPaused(db_path, false, nullptr));
  EXPECT_TRUE(Eventually([&] { return w.Indexed(*reader, w.tree.path("data/a/while_paused.txt")); }));
  EXPECT_TRUE(Eventually([&] {
    auto s = ReadIndexerState(db_path);
    return s && s->paused_why.empty() && s->oldest_unwritten == 0 && s->activity == "idle";
  }));
  stop.request_stop();
  watcher.join();
}

// The budget slows an update with a real clock and a real tree; it never stops it.
TEST(IndexerThrottle, AnUpdateUnderATightBudgetStillIndexesEverything) {
  TempTree tree;
  for (int i = 0; i < 300; ++i)
    tree.File("data/f" + std::to_string(i / 30) + "/file" + std::to_string(i) + ".txt", "some words " + std::to_string(i));
  std::string error;
  auto db = IndexDatabase::Open(tree.path("index.db"), IndexDatabase::Access::kWrite, &error);
  ASSERT_TRUE(db) << error;
  Indexer indexer(*db);
  ASSERT_TRUE(indexer.AddRoot(tree.path("data"), &error));
  ThrottleOptions options;
  options.db_path = tree.path("index.db");
  options.budget_percent = 10;
  IndexerThrottle throttle(options);
  indexer.set_throttle(&throttle);
  UpdateStats stats;
  ASSERT_TRUE(indexer.Update({}, &stats, {})) << indexer.error();
  EXPECT_EQ(stats.added, 310);
  EXPECT_EQ(stats.read, 310);
}

}  // namespace
}  // namespace trovix::engine::index
