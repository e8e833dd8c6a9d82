// What a background job may take of the machine: its priority (in a child process, so that
// this one keeps its own), the CPU it has spent, whether the machine runs on battery, and
// whether a file system reports changes.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <ctime>
#include <thread>

#include <gtest/gtest.h>

#include "platform/change_events.h"
#include "platform/power_source.h"
#include "platform/process_priority.h"
#include "tests/support/temp_tree.h"

namespace trovix::platform {
namespace {

using testing::TempTree;

// Runs `body` in a child; its exit status is the number of the first failed check, 0 for none.
int InChild(const std::function<int()>& body) {
  const pid_t pid = ::fork();
  if (pid == 0) ::_exit(body());
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 100;
}

TEST(ProcessPriority, BackgroundReachesThreadsStartedBeforeAndAfterAndChildren) {
  EXPECT_EQ(InChild([] {
              std::atomic<int> earlier_ok{-1};
              std::atomic<bool> go{false};
              // A thread that was already running when the priority was lowered.
              std::thread earlier([&] {
                while (!go) std::this_thread::sleep_for(std::chrono::milliseconds(1));
                const PriorityState s = CurrentPriority();
                earlier_ok = s.idle_cpu && s.nice == 19 && s.idle_io;
              });
              std::string error;
              if (!EnterBackgroundPriority(&error)) return 1;
              go = true;
              earlier.join();
              if (earlier_ok != 1) return 2;
              PriorityState later{};
              std::thread([&] { later = CurrentPriority(); }).join();
              if (!later.idle_cpu || later.nice != 19 || !later.idle_io) return 3;
              // A helper the job starts runs at the same priority.
              return InChild([] {
                       const PriorityState s = CurrentPriority();
                       return s.idle_cpu && s.nice == 19 && s.idle_io ? 0 : 1;
                     }) == 0
                         ? 0
                         : 4;
            }),
            0);
  // This process was left as it was.
  EXPECT_FALSE(CurrentPriority().idle_cpu);
}

TEST(ProcessPriority, CpuSecondsCountEveryThread) {
  auto spin = [] {
    // Each thread burns 0.1 s of its own CPU time, however busy the machine is.
    timespec start{}, now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &start);
    do ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    while ((now.tv_sec - start.tv_sec) + (now.tv_nsec - start.tv_nsec) / 1e9 < 0.1);
  };
  const double before = ProcessCpuSeconds();
  std::thread a(spin), b(spin);
  a.join();
  b.join();
  EXPECT_GE(ProcessCpuSeconds() - before, 0.19);
}

// A helper's time counts while it still runs (a pool's helpers live as long as the job) and
// after it has ended and been waited for.
TEST(ProcessPriority, TreeCpuSecondsCountRunningAndEndedHelpers) {
  const double before = ProcessTreeCpuSeconds();
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t helper = ::fork();
  if (helper == 0) {
    timespec start{}, now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &start);
    do ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    while ((now.tv_sec - start.tv_sec) + (now.tv_nsec - start.tv_nsec) / 1e9 < 0.3);
    char done = 1;
    if (::write(ready[1], &done, 1) != 1) ::_exit(1);
    ::pause();  // alive until killed
    ::_exit(0);
  }
  char done = 0;
  ASSERT_EQ(::read(ready[0], &done, 1), 1);
  // The kernel's count goes by ticks: allow one.
  EXPECT_GE(ProcessTreeCpuSeconds() - before, 0.25);
  ::kill(helper, SIGKILL);
  ::waitpid(helper, nullptr, 0);
  EXPECT_GE(ProcessTreeCpuSeconds() - before, 0.25);
  ::close(ready[0]);
  ::close(ready[1]);
}

TEST(PowerSource, TheKernelsSuppliesAreReadAsAPersonWould) {
  struct Case {
    const char* what;
    std::vector<std::string> files;
    PowerSource expected;
  };
  const Case cases[] = {
      {"laptop unplugged", {"AC/type=Mains", "AC/online=0", "BAT0/type=Battery", "BAT0/status=Discharging"},
       PowerSource::kBattery},
      {"laptop plugged in", {"AC/type=Mains", "AC/online=1", "BAT0/type=Battery", "BAT0/status=Charging"},
       PowerSource::kMains},
      {"full battery on mains", {"AC/type=Mains", "AC/online=1", "BAT0/type=Battery", "BAT0/status=Full"},
       PowerSource::kMains},
      {"charged through USB-C", {"ucsi/type=USB", "ucsi/online=1", "BAT0/type=Battery", "BAT0/status=Discharging"},
       PowerSource::kMains},
      {"a mouse's battery on a desktop",
       {"hid/type=Battery", "hid/scope=Device", "hid/status=Discharging"},
       PowerSource::kMains},
      {"no supplies at all", {}, PowerSource::kUnknown},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    TempTree tree;
    ::mkdir(tree.path("supplies").c_str(), 0700);
    for (const std::string& f : c.files) {
      const size_t eq = f.find('=');
      tree.File("supplies/" + f.substr(0, eq), f.substr(eq + 1) + "\n");
    }
    EXPECT_EQ(PowerSourceFromSupplies(tree.path("supplies")), c.expected);
  }
  EXPECT_EQ(PowerSourceFromSupplies("/nonexistent/power_supply"), PowerSource::kUnknown);
  // The machine's own answer, whoever gives it, is one of the three and says who gave it.
  std::string via;
  CurrentPowerSource(&via);
  EXPECT_TRUE(via == "UPower" || via == "/sys/class/power_supply") << via;
}

TEST(ChangeEvents, LocalFileSystemsReportChanges) {
  TempTree tree({"a.txt=x"});
  std::string kind = "untouched";
  EXPECT_TRUE(HasChangeEvents(tree.path(""), &kind));
  EXPECT_EQ(kind, "untouched");
  EXPECT_TRUE(HasChangeEvents(tree.path("gone/away")));
}

}  // namespace
}  // namespace trovix::platform
