// The indexer over a FUSE mount that hangs on purpose (tests/support/fuse/hang_fs.cpp): a folder
// that says nothing is left behind with its entries as they were, and the update finishes.
// Skipped where FUSE mounts cannot be made.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>

#include "engine/results/result_sink.h"
#include "index/index_watch.h"
#include "index/indexer.h"
#include "index/sqlite/index_database.h"
#include "platform/sqlite_statement.h"
#include "tests/support/hang_mount.h"
#include "tests/support/index_fixtures.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine::index {
namespace {

using namespace std::chrono_literals;
using testing::HangMount;
using testing::IndexedPaths;
using testing::TempTree;
using Clock = std::chrono::steady_clock;

// A tree with a mount that hangs where told, its index, and the tree added as its root.
class IndexerHungMount : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!mount.ok()) GTEST_SKIP() << mount.reason();
    ASSERT_TRUE(db) << error;
    ASSERT_TRUE(indexer.AddRoot(tree.path("data"), &error)) << error;
  }

  TempTree tree{"data/local.txt=here", "data/mnt/"};
  HangMount mount{tree.path("data/mnt")};
  std::string error;
  std::unique_ptr<IndexDatabase> db = IndexDatabase::Open(tree.path("index.db"), IndexDatabase::Access::kWrite, &error);
  Indexer indexer{*db};

  UpdateStats Update(Clock::duration* took = nullptr) {
    indexer.set_answer_timeout(300ms);
    UpdateStats stats;
    const auto start = Clock::now();
    EXPECT_TRUE(indexer.Update({}, &stats, {})) << indexer.error();
    if (took) *took = Clock::now() - start;
    return stats;
  }
};

TEST_F(IndexerHungMount, TheStuckFolderIsNamedAndTheRestIsIndexed) {
  Clock::duration took{};
  const UpdateStats stats = Update(&took);
  // The folder in the walk, then the file whose data does not come in the reading.
  EXPECT_EQ(stats.not_answering,
            (std::vector<std::string>{tree.path("data/mnt/stuck"), tree.path("data/mnt/slow/late.txt")}));
  EXPECT_TRUE(stats.errors.empty());
  EXPECT_LT(took, 5s);
  const std::set<std::string> indexed = IndexedPaths(*db);
  EXPECT_TRUE(indexed.count(tree.path("data/mnt/ok/sub/c.txt")));
  EXPECT_TRUE(indexed.count(tree.path("data/mnt/stuck")));
  EXPECT_FALSE(indexed.count(tree.path("data/mnt/stuck/inner.txt")));
}

TEST_F(IndexerHungMount, AMountThatStopsAnsweringKeepsItsEntries) {
  mount.Release();
  EXPECT_TRUE(Update().not_answering.empty());
  const std::set<std::string> before = IndexedPaths(*db);
  ASSERT_TRUE(before.count(tree.path("data/mnt/stuck/inner.txt")));
  // The server is gone as a whole: even the mount point's status waits.
  mount.HangAll();
  Clock::duration took{};
  const UpdateStats stats = Update(&took);
  EXPECT_EQ(stats.not_answering, std::vector<std::string>{tree.path("data/mnt")});
  EXPECT_EQ(stats.removed, 0);
  EXPECT_EQ(IndexedPaths(*db), before);
  EXPECT_LT(took, 5s);
}

TEST_F(IndexerHungMount, TheWatchNamesAMountGoneOnceAndWatchesTheRest) {
  mount.Release();
  Update();
  mount.HangAll();
  // Watching a folder looks it up: on this mount that would wait for ever.
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> lines;
  std::stop_source stop;
  WatchOptions options;
  options.rescan_seconds = 3600;
  bool result = false;
  std::thread watch([&] {
    result = WatchIndex(indexer, options, stop.get_token(), [&](const std::string& line) {
      std::lock_guard<std::mutex> lock(mutex);
      lines.push_back(line);
      changed.notify_all();
    });
  });
  {
    std::unique_lock<std::mutex> lock(mutex);
    EXPECT_TRUE(changed.wait_for(lock, 10s, [&] {
      return std::any_of(lines.begin(), lines.end(), [](const std::string& l) { return l.rfind("watching ", 0) == 0; });
    }));
  }
  stop.request_stop();
  watch.join();
  EXPECT_TRUE(result);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), NotAnsweringText(tree.path("data/mnt"))), 1);
  // data itself; the mount's folders are compared at rescans
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "watching 1 folders"), 1);
}

}  // namespace
}  // namespace trovix::engine::index
