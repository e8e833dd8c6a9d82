#include "platform/process_pool.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <deque>
#include <thread>

namespace trovix::platform {

struct ProcessPool::Helper {
  pid_t pid = -1;
  int to = -1;    // the helper's standard input
  int from = -1;  // the helper's standard output
};

namespace {

void CloseFd(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

// Writes one frame with SIGPIPE held back for this thread: a helper that died must show up
// as a failed write, never as a signal that ends the search process. A SIGPIPE the write
// raised is taken off the thread's pending set before the old mask comes back.
FrameStatus WriteQuietly(int fd, uint32_t type, std::string_view payload) {
  sigset_t pipe_only, old;
  sigemptyset(&pipe_only);
  sigaddset(&pipe_only, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe_only, &old);
  FrameStatus status = WriteFrame(fd, type, payload);
  if (status != FrameStatus::kOk && !sigismember(&old, SIGPIPE)) {
    const timespec zero{0, 0};
    while (sigtimedwait(&pipe_only, nullptr, &zero) > 0) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  return status;
}

void Describe(int wait_status, ExchangeFailure* failure) {
  if (failure == nullptr) return;
  if (WIFSIGNALED(wait_status)) {
    failure->signal = WTERMSIG(wait_status);
    failure->what = "killed by signal " + std::to_string(failure->signal);
  } else if (WIFEXITED(wait_status)) {
    failure->exit_code = WEXITSTATUS(wait_status);
    failure->what = "exited with code " + std::to_string(failure->exit_code);
  }
}

// Waits for `pid` to end by itself for up to `grace_ms`, then kills its group. Returns the
// wait status.
int Reap(pid_t pid, int grace_ms) {
  int status = 0;
  const int64_t until = MonotonicMs() + grace_ms;
  for (;;) {
    pid_t r = ::waitpid(pid, &status, WNOHANG);
    if (r == pid) return status;
    if (r < 0 && errno != EINTR) return 0;
    if (MonotonicMs() >= until) break;
    const timespec pause{0, 2'000'000};
    nanosleep(&pause, nullptr);
  }
  ::kill(-pid, SIGKILL);
  ::kill(pid, SIGKILL);
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

}  // namespace

// Helpers are started from one thread that lives as long as the pool. The death signal a
// helper asks for (PR_SET_PDEATHSIG) follows the thread that forked it, not the process: a
// helper forked by a search's worker thread would be killed when that worker ends, in the
// middle of another thread's exchange.
class ProcessPool::Launcher {
 public:
  ~Launcher() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stop_ = true;
    }
    cv_.notify_all();
    if (thread_.joinable()) thread_.join();
  }

  // Runs `task` on the launcher thread and waits for it.
  void Run(const std::function<void()>& task) {
    bool done = false;
    std::unique_lock<std::mutex> lock(mutex_);
    if (!thread_.joinable()) thread_ = std::thread([this] { Loop(); });
    tasks_.push_back([&] {
      task();
      std::lock_guard<std::mutex> inner(mutex_);
      done = true;
    });
    cv_.notify_all();
    cv_.wait(lock, [&] { return done; });
  }

 private:
  void Loop() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      cv_.wait(lock, [this] { return stop_ || !tasks_.empty(); });
      if (tasks_.empty()) return;
      std::function<void()> task = std::move(tasks_.front());
      tasks_.pop_front();
      lock.unlock();
      task();
      lock.lock();
      cv_.notify_all();
    }
  }

  std::mutex mutex_;
  std::condition_variable cv_;
  std::deque<std::function<void()>> tasks_;
  bool stop_ = false;
  std::thread thread_;
};

ProcessPool::ProcessPool(PoolOptions options) : options_(std::move(options)), launcher_(new Launcher) {
  if (options_.size <= 0) {
    unsigned cores = std::thread::hardware_concurrency();
    options_.size = cores == 0 ? 1 : static_cast<int>(cores);
  }
}

ProcessPool::~ProcessPool() {
  std::vector<std::unique_ptr<Helper>> idle;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    idle.swap(idle_);
  }
  // Closing its input ends a helper that waits for a request; one that does not end soon is
  // killed.
  for (auto& helper : idle) CloseFd(helper->to);
  for (auto& helper : idle) {
    Reap(helper->pid, 200);
    CloseFd(helper->from);
  }
  launcher_.reset();
}

uint64_t ProcessPool::starts() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return starts_;
}

std::unique_ptr<ProcessPool::Helper> ProcessPool::Start(ExchangeFailure* failure) {
  // Everything the child needs is made before the fork: between fork and exec it may only make
  // async-signal-safe calls.
  std::vector<std::string> strings;
  strings.push_back(options_.program);
  for (const std::string& arg : options_.args) strings.push_back(arg);
  std::vector<char*> argv;
  for (std::string& s : strings) argv.push_back(s.data());
  argv.push_back(nullptr);

  int in_pipe[2], out_pipe[2], status_pipe[2];
  if (::pipe2(in_pipe, O_CLOEXEC) != 0) return nullptr;
  if (::pipe2(out_pipe, O_CLOEXEC) != 0) {
    ::close(in_pipe[0]);
    ::close(in_pipe[1]);
    return nullptr;
  }
  if (::pipe2(status_pipe, O_CLOEXEC) != 0) {
    for (int fd : {in_pipe[0], in_pipe[1], out_pipe[0], out_pipe[1]}) ::close(fd);
    return nullptr;
  }
  int null_fd = options_.quiet_stderr ? ::open("/dev/null", O_WRONLY | O_CLOEXEC) : -1;
  const pid_t parent = ::getpid();
  const rlim_t memory = static_cast<rlim_t>(options_.memory_limit);

  pid_t pid = ::fork();
  if (pid == 0) {
    // The child: standard input and output become the pipes, every other descriptor closes
    // at exec (the status pipe too, which tells the parent the exec worked).
    if (::dup2(in_pipe[0], 0) < 0 || ::dup2(out_pipe[1], 1) < 0) _exit(127);
    if (null_fd >= 0) ::dup2(null_fd, 2);
    ::syscall(SYS_close_range, 3u, ~0u, 4u /* CLOSE_RANGE_CLOEXEC */);
    ::setpgid(0, 0);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) _exit(127);  // the parent died before the line above
    rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    if (memory != 0) {
      rlimit as{memory, memory};
      ::setrlimit(RLIMIT_AS, &as);
    }
    sigset_t all;
    sigemptyset(&all);
    ::sigprocmask(SIG_SETMASK, &all, nullptr);
    ::signal(SIGPIPE, SIG_DFL);
    ::signal(SIGINT, SIG_DFL);
    ::execv(argv[0], argv.data());
    int error = errno;
    (void)!::write(status_pipe[1], &error, sizeof error);
    _exit(127);
  }
  const int fork_error = errno;
  ::close(in_pipe[0]);
  ::close(out_pipe[1]);
  ::close(status_pipe[1]);
  if (null_fd >= 0) ::close(null_fd);
  if (pid < 0) {
    ::close(in_pipe[1]);
    ::close(out_pipe[0]);
    ::close(status_pipe[0]);
    if (failure) failure->what = std::string("cannot start a helper: ") + std::strerror(fork_error);
    return nullptr;
  }
  int exec_error = 0;
  ssize_t n;
  while ((n = ::read(status_pipe[0], &exec_error, sizeof exec_error)) < 0 && errno == EINTR) {
  }
  ::close(status_pipe[0]);
  if (n > 0) {
    while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
    ::close(in_pipe[1]);
    ::close(out_pipe[0]);
    if (failure) failure->what = "cannot start " + options_.program + ": " + std::strerror(exec_error);
    return nullptr;
  }
  auto helper = std::make_unique<Helper>();
  helper->pid = pid;
  helper->to = in_pipe[1];
  helper->from = out_pipe[0];
  return helper;
}

std::unique_ptr<ProcessPool::Helper> ProcessPool::Lease(ExchangeFailure* failure) {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    if (!idle_.empty()) {
      std::unique_ptr<Helper> helper = std::move(idle_.back());
      idle_.pop_back();
      return helper;
    }
    if (live_ < options_.size) break;
    idle_cv_.wait(lock);
  }
  ++live_;
  lock.unlock();
  std::unique_ptr<Helper> helper;
  launcher_->Run([&] { helper = Start(failure); });
  lock.lock();
  if (helper == nullptr) {
    --live_;
    idle_cv_.notify_one();
  } else {
    ++starts_;
  }
  return helper;
}

void ProcessPool::Return(std::unique_ptr<Helper> helper) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    idle_.push_back(std::move(helper));
  }
  idle_cv_.notify_one();
}

void ProcessPool::Discard(std::unique_ptr<Helper> helper, int grace_ms, ExchangeFailure* failure) {
  CloseFd(helper->to);
  int status = Reap(helper->pid, grace_ms);
  CloseFd(helper->from);
  Describe(status, failure);
  {
    std::lock_guard<std::mutex> lock(mutex_);
    --live_;
  }
  idle_cv_.notify_one();
}

ExchangeStatus ProcessPool::Exchange(uint32_t request_type, std::string_view request, uint32_t end_type,
                                     const std::function<bool(const Frame&)>& on_frame, int64_t timeout_ms,
                                     ExchangeFailure* failure) {
  const int64_t deadline = MonotonicMs() + timeout_ms;
  std::unique_ptr<Helper> helper;
  // A helper that died while idle (killed from outside, say) is no fault of this request: the
  // write finds it gone and a fresh one gets the request.
  for (int attempt = 0;; ++attempt) {
    helper = Lease(failure);
    if (helper == nullptr) return ExchangeStatus::kUnavailable;
    if (WriteQuietly(helper->to, request_type, request) == FrameStatus::kOk) break;
    ExchangeFailure lost;
    Discard(std::move(helper), 0, &lost);
    if (attempt == 1) {
      if (failure) *failure = lost;
      return ExchangeStatus::kCrashed;
    }
  }

  bool cancelled = false;
  for (;;) {
    Frame frame;
    FrameStatus status = ReadFrame(helper->from, &frame, deadline);
    if (status == FrameStatus::kTimedOut) {
      Discard(std::move(helper), 0, nullptr);
      if (failure) failure->what = "timed out";
      return ExchangeStatus::kTimedOut;
    }
    if (status != FrameStatus::kOk) {
      // Give a helper that is dying a moment to finish, so its signal or exit code is known.
      Discard(std::move(helper), 100, failure);
      if (failure && failure->what.empty()) failure->what = "broke the protocol";
      return ExchangeStatus::kCrashed;
    }
    if (frame.type == end_type) {
      if (!cancelled) on_frame(frame);
      Return(std::move(helper));
      return ExchangeStatus::kOk;
    }
    if (cancelled) continue;  // draining what the helper wrote before it saw the cancel
    if (!on_frame(frame)) {
      cancelled = true;
      if (WriteQuietly(helper->to, kFrameCancel, {}) != FrameStatus::kOk) {
        Discard(std::move(helper), 100, failure);
        return ExchangeStatus::kCrashed;
      }
    }
  }
}

}  // namespace trovix::platform
