#include "platform/process_priority.h"

#include <dirent.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace trovix::platform {
namespace {

// The I/O priority system call has no libc wrapper; its constants are the kernel's ABI.
constexpr int kIoprioWhoProcess = 1;
constexpr int kIoprioClassShift = 13;
constexpr int kIoprioClassIdle = 3;

int IoprioSet(pid_t tid, int value) {
  return static_cast<int>(::syscall(SYS_ioprio_set, kIoprioWhoProcess, tid, value));
}

// Every thread of the process: a thread started before the call (a signal relay, a pool's
// reader) would otherwise keep competing at normal priority.
std::vector<pid_t> Threads() {
  std::vector<pid_t> out;
  if (DIR* dir = ::opendir("/proc/self/task")) {
    while (dirent* e = ::readdir(dir))
      if (e->d_name[0] != '.') out.push_back(static_cast<pid_t>(std::atoi(e->d_name)));
    ::closedir(dir);
  }
  if (out.empty()) out.push_back(static_cast<pid_t>(::syscall(SYS_gettid)));
  return out;
}

}  // namespace

bool EnterBackgroundPriority(std::string* error) {
  std::string refused;
  auto note = [&refused](const char* what) {
    if (!refused.empty()) refused += "; ";
    refused += std::string(what) + ": " + std::strerror(errno);
  };
  bool said_idle = false, said_nice = false, said_io = false;
  for (pid_t tid : Threads()) {
    sched_param param{};
    param.sched_priority = 0;
    if (::sched_setscheduler(tid, SCHED_IDLE, &param) != 0 && errno != ESRCH && !said_idle) {
      note("idle CPU scheduling");
      said_idle = true;
    }
    if (::setpriority(PRIO_PROCESS, static_cast<id_t>(tid), 19) != 0 && errno != ESRCH && !said_nice) {
      note("nice 19");
      said_nice = true;
    }
    if (IoprioSet(tid, kIoprioClassIdle << kIoprioClassShift) != 0 && errno != ESRCH && !said_io) {
      note("idle I/O class");
      said_io = true;
    }
  }
  if (!refused.empty() && error != nullptr) *error = "the system refused " + refused;
  return refused.empty();
}

PriorityState CurrentPriority() {
  PriorityState state;
  state.idle_cpu = ::sched_getscheduler(0) == SCHED_IDLE;
  errno = 0;
  const int nice = ::getpriority(PRIO_PROCESS, static_cast<id_t>(::syscall(SYS_gettid)));
  state.nice = errno == 0 ? nice : 0;
  const long io = ::syscall(SYS_ioprio_get, kIoprioWhoProcess, 0);
  state.idle_io = io >= 0 && (io >> kIoprioClassShift) == kIoprioClassIdle;
  return state;
}

namespace {

double Seconds(const timeval& t) { return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6; }

// utime + stime + cutime + cstime of a running process, from its stat line (the fields after
// the command name, which may itself hold blanks and parentheses).
double RunningCpuSeconds(long pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(in, line)) return 0;
  const size_t close = line.rfind(')');
  if (close == std::string::npos) return 0;
  std::istringstream fields(line.substr(close + 2));
  std::string field;
  double ticks = 0;
  for (int i = 1; i <= 15 && fields >> field; ++i)
    if (i >= 12) ticks += std::strtod(field.c_str(), nullptr);
  static const long per_second = ::sysconf(_SC_CLK_TCK);
  return per_second > 0 ? ticks / static_cast<double>(per_second) : 0;
}

}  // namespace

double ProcessTreeCpuSeconds() {
  double total = ProcessCpuSeconds();
  rusage ended{};
  if (::getrusage(RUSAGE_CHILDREN, &ended) == 0) total += Seconds(ended.ru_utime) + Seconds(ended.ru_stime);
  for (pid_t tid : Threads()) {
    std::ifstream children("/proc/self/task/" + std::to_string(tid) + "/children");
    long pid = 0;
    while (children >> pid) total += RunningCpuSeconds(pid);
  }
  return total;
}

double ProcessCpuSeconds() {
  rusage usage{};
  if (::getrusage(RUSAGE_SELF, &usage) != 0) return 0;
  return Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
}

}  // namespace trovix::platform
