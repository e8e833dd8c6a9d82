// Walks over a FUSE mount whose folders hang on purpose (tests/support/fuse/hang_fs.cpp):
// the walk names the folder that says nothing, leaves it behind and goes on; a stop ends it
// at once however long the time-out. Skipped where FUSE mounts cannot be made.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "engine/walk/detached_pool.h"
#include "engine/walk/folder_walk.h"
#include "tests/support/hang_mount.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine {
namespace {

using namespace std::chrono_literals;
using trovix::testing::HangMount;
using trovix::testing::TempTree;
using Clock = std::chrono::steady_clock;
using Paths = std::vector<std::string>;

struct WalkResult {
  Paths seen;  // relative to `base`, sorted
  std::vector<std::pair<std::string, int>> errors;
  WalkSummary summary;
  Clock::duration took{};
};

WalkResult WalkFrom(const std::string& root, const std::string& base, WalkOptions options,
                    std::stop_source stop = {}) {
  WalkResult r;
  auto rel = [&](const std::string& p) { return p.substr(std::min(p.size(), base.size() + 1)); };
  FolderWalk walk(options);
  walk.set_error_handler([&](const std::string& path, int error) { r.errors.emplace_back(rel(path), error); });
  const auto start = Clock::now();
  r.summary = walk.Run({root}, stop.get_token(), [&](const props::ShellItemPtr& item) {
    r.seen.push_back(rel(item->path()));
    return WalkStep::kContinue;
  });
  r.took = Clock::now() - start;
  std::sort(r.seen.begin(), r.seen.end());
  return r;
}

WalkOptions ShortTimeout(int threads) {
  WalkOptions o;
  o.threads = threads;
  o.answer_timeout = 300ms;
  return o;
}

class HungMountWalk : public ::testing::TestWithParam<int> {};

TEST_P(HungMountWalk, RootAboveTheMountGoesOnWithoutTheStuckFolder) {
  TempTree tree({"local.txt", "mnt/"});
  HangMount mount(tree.path("mnt"));
  if (!mount.ok()) GTEST_SKIP() << mount.reason();
  const WalkResult r = WalkFrom(tree.root(), tree.root(), ShortTimeout(GetParam()));
  EXPECT_EQ(r.seen, (Paths{"local.txt", "mnt", "mnt/ok", "mnt/ok/a.txt", "mnt/ok/b.txt", "mnt/ok/sub",
                           "mnt/ok/sub/c.txt", "mnt/slow", "mnt/slow/late.txt", "mnt/stuck", "mnt/top.txt"}));
  ASSERT_EQ(r.errors.size(), 1u);  // named once
  EXPECT_EQ(r.errors[0], std::make_pair(std::string("mnt/stuck"), ETIMEDOUT));
  EXPECT_EQ(r.summary.not_answering, 1u);
  EXPECT_EQ(r.summary.folders_unreadable, 0u);
  EXPECT_FALSE(r.summary.stopped);
  EXPECT_LT(r.took, 5s);
}

TEST_P(HungMountWalk, RootOnTheMount) {
  TempTree tree({"mnt/"});
  HangMount mount(tree.path("mnt"));
  if (!mount.ok()) GTEST_SKIP() << mount.reason();
  // A status rule: the items' status is taken while their folder is read, under the time-out.
  WalkOptions o = ShortTimeout(GetParam());
  o.status_needed = true;
  const WalkResult r = WalkFrom(mount.path(), mount.path(), o);
  EXPECT_EQ(r.seen, (Paths{"ok", "ok/a.txt", "ok/b.txt", "ok/sub", "ok/sub/c.txt", "slow", "slow/late.txt", "stuck",
                           "top.txt"}));
  EXPECT_EQ(r.errors, (std::vector<std::pair<std::string, int>>{{"stuck", ETIMEDOUT}}));
  EXPECT_EQ(r.summary.not_answering, 1u);
}

TEST_P(HungMountWalk, AMountGoneAsAWholeIsLeftBehindAtItsMountPoint) {
  TempTree tree({"a/local.txt", "mnt/", "z.txt"});
  HangMount mount(tree.path("mnt"));
  if (!mount.ok()) GTEST_SKIP() << mount.reason();
  mount.HangAll();
  const WalkResult r = WalkFrom(tree.root(), tree.root(), ShortTimeout(GetParam()));
  // The mount point's own status is the server's: the item goes with its folder.
  EXPECT_EQ(r.seen, (Paths{"a", "a/local.txt", "z.txt"}));
  EXPECT_EQ(r.errors, (std::vector<std::pair<std::string, int>>{{"mnt", ETIMEDOUT}}));
  EXPECT_LT(r.took, 5s);
}

TEST_P(HungMountWalk, StopEndsTheWaitForAStuckFolderAtOnce) {
  TempTree tree({"mnt/"});
  HangMount mount(tree.path("mnt"));
  if (!mount.ok()) GTEST_SKIP() << mount.reason();
  WalkOptions o = ShortTimeout(GetParam());
  o.answer_timeout = 60s;  // far longer than the test may take
  std::stop_source stop;
  std::thread stopper([&] {
    std::this_thread::sleep_for(300ms);
    stop.request_stop();
  });
  const WalkResult r = WalkFrom(tree.path("mnt/stuck"), mount.path(), o, stop);
  stopper.join();
  EXPECT_TRUE(r.summary.stopped);
  EXPECT_EQ(r.summary.not_answering, 0u);
  EXPECT_TRUE(r.errors.empty());
  EXPECT_LT(r.took, 5s);
}

TEST_P(HungMountWalk, ReleasedInTimeIsReadWhole) {
  TempTree tree({"mnt/"});
  HangMount mount(tree.path("mnt"));
  if (!mount.ok()) GTEST_SKIP() << mount.reason();
  WalkOptions o = ShortTimeout(GetParam());
  o.answer_timeout = 30s;
  std::thread releaser([&] {
    std::this_thread::sleep_for(200ms);
    mount.Release();
  });
  const WalkResult r = WalkFrom(mount.path(), mount.path(), o);
  releaser.join();
  EXPECT_TRUE(std::count(r.seen.begin(), r.seen.end(), "stuck/inner.txt"));
  EXPECT_TRUE(r.errors.empty());
}

INSTANTIATE_TEST_SUITE_P(Threads, HungMountWalk, ::testing::Values(1, 3));

// The time-out itself, on a folder that never opens, wherever FUSE is missing too.
class StallingDirSystem final : public platform::DirSystem {
 public:
  explicit StallingDirSystem(std::string stalled) : stalled_(std::move(stalled)) {}
  int OpenDir(const std::string& path, bool follow_link, std::unique_ptr<platform::DirReader>* out) override {
    if (path == stalled_) {
      std::unique_lock<std::mutex> lock(mutex_);
      ++inside_;
      released_cv_.wait(lock, [&] { return released_; });
      --inside_;
      gone_cv_.notify_all();
      return EIO;
    }
    return platform::DefaultDirSystem().OpenDir(path, follow_link, out);
  }
  int Stat(const std::string& path, bool follow, platform::FileStatus* out) override {
    return platform::DefaultDirSystem().Stat(path, follow, out);
  }
  // Lets the stalled call end and waits until it has: the walk left it behind.
  void ReleaseAndWait() {
    std::unique_lock<std::mutex> lock(mutex_);
    released_ = true;
    released_cv_.notify_all();
    gone_cv_.wait(lock, [&] { return inside_ == 0; });
  }

 private:
  std::string stalled_;
  std::mutex mutex_;
  std::condition_variable released_cv_, gone_cv_;
  bool released_ = false;
  int inside_ = 0;
};

TEST(StallGuard, AFolderThatNeverOpensIsLeftBehindWithItsReader) {
  TempTree tree({"a/1.txt", "b/2.txt", "c/3.txt"});
  StallingDirSystem fs(tree.path("b"));
  WalkOptions o;
  o.threads = 2;
  o.answer_timeout = 200ms;
  o.guard_all_folders = true;
  FolderWalk walk(o, fs);
  std::vector<std::pair<std::string, int>> errors;
  walk.set_error_handler([&](const std::string& path, int error) { errors.emplace_back(path, error); });
  Paths seen;
  const WalkSummary summary = walk.Run({tree.root()}, {}, [&](const props::ShellItemPtr& item) {
    seen.emplace_back(item->name());
    return WalkStep::kContinue;
  });
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ(seen, (Paths{"1.txt", "3.txt", "a", "b", "c"}));
  EXPECT_EQ(errors, (std::vector<std::pair<std::string, int>>{{tree.path("b"), ETIMEDOUT}}));
  EXPECT_EQ(summary.not_answering, 1u);
  EXPECT_GE(DetachedPool::Threads(), 1u);  // the stuck one, at least
  fs.ReleaseAndWait();
}

TEST(StatWithin, SaysTimedOutOrStoppedInsteadOfWaiting) {
  TempTree tree({"f.txt=abc"});
  StallingDirSystem fs("none");
  platform::FileStatus st;
  EXPECT_EQ(StatWithin(fs, tree.path("f.txt"), true, 5s, {}, &st), 0);
  EXPECT_EQ(st.size, 3u);
  EXPECT_EQ(StatWithin(fs, tree.path("gone"), true, 5s, {}, &st), ENOENT);
  std::stop_source stopped;
  stopped.request_stop();
  TempTree mount_tree({"mnt/"});
  HangMount mount(mount_tree.path("mnt"));
  if (!mount.ok()) GTEST_SKIP() << mount.reason();
  mount.HangAll();
  const auto start = Clock::now();
  EXPECT_EQ(StatWithin(platform::DefaultDirSystem(), mount.path(), true, 200ms, {}, &st), ETIMEDOUT);
  EXPECT_EQ(StatWithin(platform::DefaultDirSystem(), mount.path(), true, 60s, stopped.get_token(), &st), ECANCELED);
  EXPECT_LT(Clock::now() - start, 5s);
}

}  // namespace
}  // namespace trovix::engine
