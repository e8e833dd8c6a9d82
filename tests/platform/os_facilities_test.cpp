// The OS facilities every room shares: the writer's lock, the atomic file write, the
// non-blocking open of an input file, and Ctrl+C turned into a stop.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

#include "platform/atomic_file.h"
#include "platform/file_lock.h"
#include "platform/regular_file.h"
#include "platform/stop_signals.h"
#include "tests/support/temp_tree.h"
#include "tests/support/test_files.h"

namespace trovix::platform {
namespace {

using testing::TempTree;

TEST(FileLock, SecondHolderIsToldWhoHoldsItAndGetsItOnceLetGo) {
  TempTree tree;
  const std::string path = tree.path("store.lock");
  int error = 0;
  int64_t holder = 0;
  auto first = FileLock::Acquire(path, std::chrono::milliseconds(0), &error, &holder);
  ASSERT_TRUE(first);
  // flock belongs to an open file: even this process waits for its own first holder.
  const auto started = std::chrono::steady_clock::now();
  EXPECT_FALSE(FileLock::Acquire(path, std::chrono::milliseconds(60), &error, &holder));
  EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(60));
  EXPECT_EQ(error, EWOULDBLOCK);
  EXPECT_EQ(holder, getpid());
  first.reset();
  EXPECT_TRUE(FileLock::Acquire(path, std::chrono::milliseconds(0), &error, &holder));
}

TEST(FileLock, MissingFolderAndSymbolicLinkAreErrorsOfTheOpen) {
  TempTree tree({"target", "link->target"});
  int error = 0;
  int64_t holder = 0;
  EXPECT_FALSE(FileLock::Acquire(tree.path("no/such.lock"), std::chrono::milliseconds(0), &error, &holder));
  EXPECT_EQ(error, ENOENT);
  EXPECT_FALSE(FileLock::Acquire(tree.path("link"), std::chrono::milliseconds(0), &error, &holder));
  EXPECT_EQ(error, ELOOP);
}

TEST(AtomicFile, ReplacesThroughALinkPrivatelyAndKeepsTheOldFileWhenInterrupted) {
  TempTree tree({"real=old text", "link->real"});
  ASSERT_EQ(WriteFileAtomically(tree.path("link"), "new text"), 0);
  EXPECT_EQ(testing::ReadWholeFile(tree.path("real")), "new text");
  struct stat st;
  ASSERT_EQ(lstat(tree.path("link").c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  ASSERT_EQ(stat(tree.path("real").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 077, 0u);

  std::string left_behind;
  EXPECT_NE(WriteFileAtomically(tree.path("real"), "lost",
                                [&](const std::string& temp) {
                                  left_behind = temp;
                                  return false;
                                }),
            0);
  EXPECT_EQ(testing::ReadWholeFile(tree.path("real")), "new text");
  EXPECT_EQ(access(left_behind.c_str(), F_OK), 0);
}

TEST(RegularFile, FifoFolderAndLinkAreRefusedWithoutWaiting) {
  TempTree tree({"plain=abc", "folder/", "link->plain"});
  ASSERT_EQ(mkfifo(tree.path("fifo").c_str(), 0600), 0);
  int fd = -1;
  struct stat st;
  EXPECT_EQ(OpenRegularFile(tree.path("fifo"), &fd, &st), kNotRegularFile);
  EXPECT_EQ(fd, -1);
  EXPECT_EQ(OpenRegularFile(tree.path("folder"), &fd, &st), EISDIR);
  EXPECT_EQ(OpenRegularFile(tree.path("link"), &fd, &st, Links::kRefuse), ELOOP);
  ASSERT_EQ(OpenRegularFile(tree.path("link"), &fd, &st), 0);
  EXPECT_EQ(st.st_size, 3);
  close(fd);
  std::string bytes;
  EXPECT_EQ(ReadRegularFile(tree.path("plain"), &bytes, 2), EFBIG);
  EXPECT_TRUE(bytes.empty());
}

TEST(StopSignals, InterruptRequestsAStopAndThenActsAsUsualAgain) {
  std::stop_source stop;
  {
    StopSignals signals(stop, false);
    EXPECT_FALSE(signals.Signalled());
    std::raise(SIGINT);
    // Raised twice: without the second-ends option the program goes on.
    std::raise(SIGTERM);
    EXPECT_TRUE(signals.Signalled());
    for (int i = 0; i < 500 && !stop.stop_requested(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_TRUE(stop.stop_requested());
  }
  struct sigaction now {};
  sigaction(SIGINT, nullptr, &now);
  EXPECT_EQ(now.sa_handler, SIG_DFL);
}

TEST(StopSignalsDeathTest, SecondInterruptEndsTheProgramWhenAsked) {
  EXPECT_EXIT(
      {
        std::stop_source stop;
        StopSignals signals(stop, true);
        std::raise(SIGINT);
        std::raise(SIGINT);
        std::_Exit(0);
      },
      ::testing::KilledBySignal(SIGINT), "");
}

}  // namespace
}  // namespace trovix::platform
