// trovix-cli over a FUSE mount whose folder hangs on purpose (tests/support/fuse/hang_fs.cpp):
// the folder is named once on stderr and counted, Ctrl+C ends a search stuck there at once,
// and the index update finishes without it. Skipped where FUSE mounts cannot be made.
//
// A thread left in a FUSE call that its server has taken cannot be killed: the kernel waits
// for the answer. So the program has ended when its main thread has (the process is then a
// zombie but for that thread); the test releases the mount and reaps it after.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/hang_mount.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix {
namespace {

using namespace std::chrono_literals;
using testing::HangMount;
using testing::ReadWholeFile;
using testing::TempTree;
using Clock = std::chrono::steady_clock;

class CliRun {
 public:
  CliRun(const std::vector<std::string>& args, const std::string& out, const std::string& err)
      : out_(out), err_(err) {
    pid_ = fork();
    if (pid_ == 0) {
      std::vector<char*> argv{const_cast<char*>(TROVIX_CLI_PATH)};
      for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
      argv.push_back(nullptr);
      const int o = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      const int e = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      dup2(o, 1);
      dup2(e, 2);
      // In a sanitized build the leak check at exit stops every thread first, and a thread
      // left waiting on the hung mount never stops: the program would not end until the mount
      // answers. The check has nothing to say about what this test drives.
      const char* asan = getenv("ASAN_OPTIONS");
      setenv("ASAN_OPTIONS", (std::string(asan != nullptr ? asan : "") + ":detect_leaks=0").c_str(), 1);
      execv(TROVIX_CLI_PATH, argv.data());
      _exit(127);
    }
  }
  ~CliRun() {
    if (pid_ > 0) Reap();
  }

  // Whether the program's main thread ended within `limit`.
  bool EndedWithin(Clock::duration limit) {
    const auto deadline = Clock::now() + limit;
    for (;;) {
      if (MainThreadEnded()) return true;
      if (Clock::now() > deadline) return false;
      std::this_thread::sleep_for(20ms);
    }
  }
  void Interrupt() { kill(pid_, SIGINT); }
  // Waits for the whole process (after the mount let its last thread go); its exit status.
  int Reap() {
    int status = 0;
    if (pid_ > 0 && waitpid(pid_, &status, 0) == pid_) {
      pid_ = -1;
      status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    return status_;
  }
  std::string out() const { return ReadWholeFile(out_); }
  std::string err() const { return ReadWholeFile(err_); }

 private:
  bool MainThreadEnded() {
    std::ifstream stat("/proc/" + std::to_string(pid_) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    const size_t paren = text.rfind(')');
    return text.empty() || (paren != std::string::npos && paren + 2 < text.size() && text[paren + 2] == 'Z');
  }

  std::string out_, err_;
  pid_t pid_ = -1;
  int status_ = -1;
};

TEST(HungMountCli, TheStuckFolderIsNamedOnceAndCountedAndTheRestIsFound) {
  TempTree logs;
  TempTree tree({"local.txt", "mnt/"});
  HangMount mount(tree.path("mnt"));
  if (!mount.ok()) GTEST_SKIP() << mount.reason();
  CliRun run({"search", "--answer-timeout", "300", "-r", "name: *.txt", tree.root()}, logs.path("out"),
             logs.path("err"));
  ASSERT_TRUE(run.EndedWithin(10s));
  mount.Release();
  EXPECT_EQ(run.Reap(), 2);  // as for a folder that could not be read
  const std::string err = run.err();
  const std::string line = "trovix-cli: " + tree.path("mnt/stuck") + " is not answering; going on without it\n";
  EXPECT_NE(err.find(line), std::string::npos) << err;
  EXPECT_EQ(err.find(line), err.rfind(line)) << "named more than once: " << err;
  EXPECT_NE(err.find("1 folder was not read: not answering"), std::string::npos) << err;
  EXPECT_EQ(testing::SortedLines(run.out()),
            (std::vector<std::string>{tree.path("local.txt"), tree.path("mnt/ok/a.txt"), tree.path("mnt/ok/b.txt"),
                                      tree.path("mnt/ok/sub/c.txt"), tree.path("mnt/slow/late.txt"),
                                      tree.path("mnt/top.txt")}));
}

TEST(HungMountCli, AFileWhoseDataDoesNotComeIsLeftBehindByAContentsSearch) {
  TempTree logs;
  TempTree tree({"local.txt=beta here", "mnt/"});
  HangMount mount(tree.path("mnt"));
  if (!mount.ok()) GTEST_SKIP() << mount.reason();
  CliRun run({"search", "--answer-timeout", "300", "-r", "contents: beta", tree.root()}, logs.path("out"),
             logs.path("err"));
  ASSERT_TRUE(run.EndedWithin(10s));
  mount.Release();
  run.Reap();
  const std::string err = run.err();
  EXPECT_NE(err.find(tree.path("mnt/slow/late.txt") + " is not answering; going on without it"), std::string::npos)
      << err;
  EXPECT_NE(err.find("1 file was not read: not answering"), std::string::npos) << err;
  EXPECT_EQ(testing::SortedLines(run.out()),
            (std::vector<std::string>{tree.path("local.txt"), tree.path("mnt/ok/b.txt")}));
}

TEST(HungMountCli, CtrlCEndsASearchStuckOnTheMountAtOnce) {
  TempTree logs;
  TempTree tree({"mnt/"});
  HangMount mount(tree.path("mnt"));
  if (!mount.ok()) GTEST_SKIP() << mount.reason();
  // A time-out far longer than the test: only the stop can end it.
  CliRun run({"search", "--answer-timeout", "600000", "-r", "name: ?*", tree.path("mnt/stuck")}, logs.path("out"),
             logs.path("err"));
  std::this_thread::sleep_for(500ms);
  EXPECT_FALSE(run.EndedWithin(0s));
  const auto interrupted = Clock::now();
  run.Interrupt();
  EXPECT_TRUE(run.EndedWithin(3s));
  EXPECT_LT(Clock::now() - interrupted, 3s);
  mount.Release();
  EXPECT_EQ(run.Reap(), 130);  // stopped: the answer is not whole
  EXPECT_EQ(run.err().find("not answering"), std::string::npos) << run.err();
}

TEST(HungMountCli, TheIndexUpdateFinishesWithoutTheStuckFolderAndReadsItOnceItAnswers) {
  TempTree logs;
  TempTree tree({"data/local.txt", "data/mnt/"});
  HangMount mount(tree.path("data/mnt"));
  if (!mount.ok()) GTEST_SKIP() << mount.reason();
  const std::string db = logs.path("index.db");
  ASSERT_EQ(testing::RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "add", tree.path("data")}).status, 0);
  {
    CliRun update({"--index", db, "index", "update", "--answer-timeout", "300"}, logs.path("out"), logs.path("err"));
    ASSERT_TRUE(update.EndedWithin(20s));
    mount.Release();
    EXPECT_EQ(update.Reap(), 2);
    const std::string err = update.err();
    EXPECT_NE(err.find(tree.path("data/mnt/stuck") + " is not answering; going on without it"), std::string::npos)
        << err;
    // The folder in the walk, the file whose data does not come in the reading.
    EXPECT_NE(err.find(tree.path("data/mnt/slow/late.txt") + " is not answering"), std::string::npos) << err;
    EXPECT_NE(err.find("2 folders or files were not read: not answering"), std::string::npos) << err;
    EXPECT_NE(update.out().find(" added"), std::string::npos) << update.out();  // it finished
  }
  // The folder answers now: the next update reads it, and only it is new.
  const auto again = testing::RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "update", "--answer-timeout", "300"});
  EXPECT_EQ(again.status, 0);
  EXPECT_NE(again.out.find(" 1 added"), std::string::npos) << again.out;
  const auto found = testing::RunProgram(TROVIX_CLI_PATH, {"--index", db, "search", tree.path("data"), "-r", "name: inner.txt"});
  EXPECT_EQ(found.out, tree.path("data/mnt/stuck/inner.txt") + "\n");
}

}  // namespace
}  // namespace trovix
