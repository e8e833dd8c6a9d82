#include "platform/process_pool.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "platform/sandbox.h"
#include "tests/support/temp_tree.h"

namespace trovix::platform {
namespace {

constexpr uint32_t kRequest = 16, kAnswer = 17, kEnd = 19;

PoolOptions HelperOptions(int size = 1) {
  PoolOptions options;
  options.program = TROVIX_POOL_HELPER;
  options.size = size;
  options.memory_limit = 0;  // sanitized builds reserve more address space than any limit
  return options;
}

struct Reply {
  ExchangeStatus status;
  std::vector<std::string> answers;
  ExchangeFailure failure;
};

Reply Ask(ProcessPool& pool, const std::string& command, int64_t timeout_ms = 10'000, size_t stop_after = SIZE_MAX,
          const AnswerLimits& limits = {}) {
  Reply reply;
  reply.status = pool.Exchange(
      kRequest, command, kEnd,
      [&](const Frame& frame) {
        if (frame.type == kAnswer) reply.answers.push_back(frame.payload);
        return reply.answers.size() < stop_after ? FrameVerdict::kMore : FrameVerdict::kCancel;
      },
      timeout_ms, &reply.failure, limits);
  return reply;
}

TEST(ProcessPool, OneHelperAnswersManyRequestsInOrder) {
  ProcessPool pool(HelperOptions());
  for (int i = 0; i < 50; ++i) {
    Reply reply = Ask(pool, "echo 3 hi");
    ASSERT_EQ(reply.status, ExchangeStatus::kOk);
    EXPECT_EQ(reply.answers, (std::vector<std::string>{"hi", "hi", "hi"}));
  }
  // Frames larger than a pipe's buffer arrive whole.
  std::string big(200'000, 'x');
  Reply reply = Ask(pool, "echo 2 " + big);
  ASSERT_EQ(reply.answers.size(), 2u);
  EXPECT_EQ(reply.answers[1], big);
  EXPECT_EQ(pool.starts(), 1u);
}

TEST(ProcessPool, AHelperThatDiesCostsOnlyItsRequest) {
  ProcessPool pool(HelperOptions());
  Reply crash = Ask(pool, "crash");
  EXPECT_EQ(crash.status, ExchangeStatus::kCrashed);
  EXPECT_EQ(crash.failure.signal, SIGKILL);
  EXPECT_EQ(crash.failure.what, "killed by signal 9");

  Reply exit = Ask(pool, "exit");
  EXPECT_EQ(exit.status, ExchangeStatus::kCrashed);
  EXPECT_EQ(exit.failure.exit_code, 3);

  // An answer that is not a frame (a length past the limit) ends the helper too.
  EXPECT_EQ(Ask(pool, "garbage").status, ExchangeStatus::kRefused);

  EXPECT_EQ(Ask(pool, "echo 1 fine").answers, std::vector<std::string>{"fine"});
  EXPECT_EQ(pool.starts(), 4u);
}

TEST(ProcessPool, AHelperThatHangsIsKilledAtTheDeadline) {
  ProcessPool pool(HelperOptions());
  const int64_t start = MonotonicMs();
  Reply hang = Ask(pool, "hang", 300);
  EXPECT_EQ(hang.status, ExchangeStatus::kTimedOut);
  EXPECT_EQ(hang.failure.what, "timed out");
  EXPECT_LT(MonotonicMs() - start, 3000);
  EXPECT_EQ(Ask(pool, "echo 1 after").answers, std::vector<std::string>{"after"});
}

TEST(ProcessPool, ACancelledRequestLeavesTheHelperReady) {
  ProcessPool pool(HelperOptions());
  Reply stopped = Ask(pool, "stream", 10'000, 5);
  EXPECT_EQ(stopped.status, ExchangeStatus::kOk);
  EXPECT_EQ(stopped.answers.size(), 5u);
  // What the helper wrote before it saw the cancel was drained, not left for the next request.
  EXPECT_EQ(Ask(pool, "echo 2 next").answers, (std::vector<std::string>{"next", "next"}));
  EXPECT_EQ(pool.starts(), 1u);
}

TEST(ProcessPool, AMissingProgramIsUnavailableWithTheReason) {
  PoolOptions options = HelperOptions();
  options.program = "/nonexistent/helper";
  ProcessPool pool(options);
  Reply reply = Ask(pool, "echo 1 x");
  EXPECT_EQ(reply.status, ExchangeStatus::kUnavailable);
  EXPECT_NE(reply.failure.what.find("No such file"), std::string::npos) << reply.failure.what;
  EXPECT_EQ(pool.starts(), 0u);
}

TEST(ProcessPool, ThreadsShareHelpersUpToTheSize) {
  ProcessPool pool(HelperOptions(3));
  std::atomic<int> good{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 25; ++i) {
        // Some of the requests crash their helper; the rest must not notice.
        std::string command = (i % 10 == 9) ? "crash" : "echo 2 t" + std::to_string(t);
        Reply reply = Ask(pool, command);
        if (command == "crash") continue;
        if (reply.status == ExchangeStatus::kOk &&
            reply.answers == std::vector<std::string>(2, "t" + std::to_string(t)))
          ++good;
      }
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(good, 8 * 23);
  EXPECT_LE(pool.starts(), 3u + 8 * 2);
}

// Helpers inherit nothing but their three standard descriptors, and a pool leaves no
// descriptors or processes behind.
TEST(ProcessPool, HelpersInheritNoDescriptorsAndTheParentLeaksNone) {
  auto open_fds = [] {
    int n = 0;
    for (auto& e : std::filesystem::directory_iterator("/proc/self/fd")) n += e.path().filename() != "." ? 1 : 0;
    return n;
  };
  const int before = open_fds();
  {
    ProcessPool pool(HelperOptions(2));
    EXPECT_EQ(Ask(pool, "fds").answers, std::vector<std::string>{"3"});
    Ask(pool, "crash");
    Ask(pool, "hang", 100);
    Ask(pool, "echo 1 x");
  }
  EXPECT_EQ(open_fds(), before);
  errno = 0;
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

// A helper is started with nothing of the user's session: no terminal, a session of its own,
// an environment of a few names.
TEST(ProcessPool, HelpersGetNoTerminalNoSessionAndAShortEnvironment) {
  setenv("SSH_AUTH_SOCK", "/nonexistent/agent", 1);
  setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
  setenv("TZ", "Europe/Paris", 1);
  setenv("TROVIX_POOL_TEST_PASSED", "yes", 1);
  PoolOptions options = HelperOptions();
  options.environment = {"TROVIX_POOL_TEST_PASSED"};
  ProcessPool pool(options);
  EXPECT_EQ(Ask(pool, "session").answers, std::vector<std::string>{"own"});
  const std::string env = Ask(pool, "env").answers.at(0);
  EXPECT_NE(env.find("TZ=Europe/Paris\n"), std::string::npos) << env;
  EXPECT_NE(env.find("TROVIX_POOL_TEST_PASSED=yes\n"), std::string::npos) << env;
  EXPECT_EQ(env.find("SSH_AUTH_SOCK"), std::string::npos) << env;
  EXPECT_EQ(env.find("DBUS_SESSION_BUS_ADDRESS"), std::string::npos) << env;
  EXPECT_EQ(env.find("HOME="), std::string::npos) << env;
  unsetenv("TZ");
}

// Standard error is a log: drained (a helper that writes megabytes does not block), escaped,
// each distinct line passed on once, and kept within its bound.
TEST(ProcessPool, HelperStandardErrorIsABoundedEscapedLog) {
  ProcessPool pool(HelperOptions());
  EXPECT_EQ(Ask(pool, "stderr 20000 " + std::string(300, 'n')).answers, std::vector<std::string>{"written"});
  EXPECT_EQ(Ask(pool, "stderr 2 \x1b]0;title\x07 typed").answers, std::vector<std::string>{"written"});
  std::string log;
  for (int i = 0; i < 200 && log.find("typed") == std::string::npos; ++i) {
    usleep(10'000);
    log = pool.helper_log();
  }
  EXPECT_LE(log.size(), 64u * 1024);
  EXPECT_NE(log.find("\\x1b]0;title\\x07 typed\n\\x1b]0;title\\x07 typed\n"), std::string::npos);
  EXPECT_EQ(log.find('\x1b'), std::string::npos);
  EXPECT_EQ(pool.starts(), 1u);
}

// An answer beyond the client's limits ends the helper, whether one frame is too large (it is
// refused before it is read) or all of them together; the next request gets a fresh helper.
TEST(ProcessPool, AnAnswerBeyondItsLimitsKillsTheHelper) {
  ProcessPool pool(HelperOptions());
  Reply big = Ask(pool, "echo 1 " + std::string(5000, 'x'), 10'000, SIZE_MAX, {4096, 1 << 20});
  EXPECT_EQ(big.status, ExchangeStatus::kRefused);
  EXPECT_EQ(big.failure.what, "answer too large");
  EXPECT_TRUE(big.answers.empty());
  Reply many = Ask(pool, "echo 100 " + std::string(1000, 'x'), 10'000, SIZE_MAX, {4096, 50'000});
  EXPECT_EQ(many.status, ExchangeStatus::kRefused);
  EXPECT_LE(many.answers.size(), 50u);
  Reply refused;
  refused.status = pool.Exchange(kRequest, "echo 3 x", kEnd, [](const Frame&) { return FrameVerdict::kRefuse; },
                                 10'000, &refused.failure);
  EXPECT_EQ(refused.status, ExchangeStatus::kRefused);
  EXPECT_EQ(Ask(pool, "echo 1 fine", 10'000, SIZE_MAX, {4096, 50'000}).answers, std::vector<std::string>{"fine"});
  EXPECT_EQ(pool.starts(), 4u);
}

// The sandbox is entered in a helper, since it cannot be left again.
TEST(Sandbox, AHelperMayReadButNotWriteConnectOrRun) {
  testing::TempTree tree({"readable.txt=x"});
  ProcessPool pool(HelperOptions());
  EXPECT_EQ(Ask(pool, "try-write " + tree.path("before.txt")).answers, std::vector<std::string>{"ok"});

  std::string described = Ask(pool, "sandbox").answers.at(0);
  EXPECT_NE(described.find("no_new_privs=yes"), std::string::npos) << described;
  EXPECT_NE(described.find("seccomp=allow-list"), std::string::npos) << described;
  if (LandlockAbi() > 0) {
    EXPECT_NE(described.find("landlock=abi" + std::to_string(LandlockAbi())), std::string::npos) << described;
  }

  const std::vector<std::string> denied{"Operation not permitted"};
  EXPECT_EQ(Ask(pool, "try-read " + tree.path("readable.txt")).answers, std::vector<std::string>{"ok"});
  EXPECT_EQ(Ask(pool, "try-write " + tree.path("after.txt")).answers, denied);
  EXPECT_EQ(Ask(pool, "try-write " + tree.path("readable.txt")).answers, denied);
  EXPECT_EQ(Ask(pool, "try-socket").answers, denied);
  EXPECT_EQ(Ask(pool, "try-exec").answers, denied);
  EXPECT_FALSE(std::filesystem::exists(tree.path("after.txt")));
  EXPECT_EQ(pool.starts(), 1u);
}

}  // namespace
}  // namespace trovix::platform
