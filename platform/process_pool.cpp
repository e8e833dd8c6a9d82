#include "platform/process_pool.h"

#include <errno.h>
#include <limits.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <deque>
#include <optional>
#include <set>
#include <thread>

extern char** environ;

namespace trovix::platform {

struct ProcessPool::Helper {
  pid_t pid = -1;
  int to = -1;    // the helper's standard input
  int from = -1;  // the helper's standard output
  FrameInbox inbox;  // what was read from `from` beyond the last frame
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

bool NameIn(std::string_view entry, std::string_view name) {
  return entry.size() > name.size() && entry.compare(0, name.size(), name) == 0 && entry[name.size()] == '=';
}

}  // namespace

std::string ThisProgram() {
  char self[PATH_MAX];
  const ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
  return n > 0 ? std::string(self, static_cast<size_t>(n)) : std::string();
}

std::string HelperBesideThisProgram(const char* override, const char* name) {
  if (const char* set = getenv(override); set && *set) return set;
  const std::string self = ThisProgram();
  if (self.empty()) return name;
  return self.substr(0, self.find_last_of('/') + 1) + name;
}

std::vector<std::string> HelperEnvironment(const std::vector<std::string>& extra) {
  static const char* const kNames[] = {"LANG", "LANGUAGE", "LC_ALL", "LC_CTYPE", "LC_COLLATE", "LC_MESSAGES",
                                       "LC_NUMERIC", "LC_TIME", "LC_MONETARY", "TZ",
#if defined(TROVIX_SANITIZED)
                                       "ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS",
#endif
  };
  std::vector<std::string> env;
  for (char** entry = environ; entry && *entry; ++entry) {
    std::string_view e(*entry);
    bool wanted = false;
    for (const char* name : kNames) wanted = wanted || NameIn(e, name);
    for (const std::string& name : extra) wanted = wanted || NameIn(e, name);
    if (wanted) env.emplace_back(e);
  }
  return env;
}

// The helpers' standard error: one thread reads every helper's pipe, so a helper that writes
// a lot never blocks on it, and what it writes reaches a person only escaped, once per
// distinct line, and within a bound.
class ProcessPool::StderrLog {
 public:
  static constexpr size_t kLineBytes = 1024;
  static constexpr size_t kKeptBytes = 64 * 1024;
  static constexpr size_t kSaidBytes = 64 * 1024;

  ~StderrLog() {
    if (thread_.joinable()) {
      {
        std::lock_guard<std::mutex> lock(mutex_);
        stop_ = true;
      }
      (void)!::write(wake_[1], "x", 1);
      thread_.join();
    }
    for (int fd : added_) ::close(fd);
    for (int fd : wake_)
      if (fd >= 0) ::close(fd);
  }

  // Takes over the read end of a helper's standard error.
  void Add(int fd) {
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    std::lock_guard<std::mutex> lock(mutex_);
    if (!thread_.joinable()) {
      if (::pipe2(wake_, O_CLOEXEC | O_NONBLOCK) != 0) {
        ::close(fd);  // the helper's messages go nowhere, but it never blocks on a full pipe
        return;
      }
      thread_ = std::thread([this] { Loop(); });
    }
    added_.push_back(fd);
    (void)!::write(wake_[1], "x", 1);
  }

  std::string Text() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return kept_;
  }

 private:
  struct Source {
    int fd;
    std::string partial;
    bool cut = false;
  };

  void Loop() {
    std::vector<Source> sources;
    for (;;) {
      bool stop;
      {
        std::lock_guard<std::mutex> lock(mutex_);
        for (int fd : added_) sources.push_back({fd, {}});
        added_.clear();
        stop = stop_;
      }
      std::vector<pollfd> polled{{wake_[0], POLLIN, 0}};
      for (const Source& source : sources) polled.push_back({source.fd, POLLIN, 0});
      // After the stop, one last look at what the helpers left, without waiting.
      if (::poll(polled.data(), polled.size(), stop ? 0 : -1) < 0 && errno != EINTR) stop = true;
      char drained[64];
      while (::read(wake_[0], drained, sizeof drained) > 0) {
      }
      for (size_t i = sources.size(); i-- > 0;) {
        if (polled[i + 1].revents == 0 && !stop) continue;
        if (Drain(sources[i])) continue;
        ::close(sources[i].fd);
        sources.erase(sources.begin() + static_cast<long>(i));
      }
      if (stop) {
        for (Source& source : sources) ::close(source.fd);
        return;
      }
    }
  }

  // Reads what is there, 64 KiB at most so that one chatty helper cannot hold the others
  // back; false when the helper's end is closed (its last line is kept).
  bool Drain(Source& source) {
    char buffer[4096];
    for (int reads = 0; reads < 16; ++reads) {
      ssize_t n = ::read(source.fd, buffer, sizeof buffer);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && errno == EAGAIN) return true;
      if (n <= 0) {
        if (!source.partial.empty()) Said(source);
        return false;
      }
      for (ssize_t i = 0; i < n; ++i) {
        const unsigned char c = static_cast<unsigned char>(buffer[i]);
        if (c == '\n') {
          Said(source);
        } else if (source.partial.size() >= kLineBytes) {
          source.cut = true;
        } else if (c >= 0x20 && c < 0x7f) {
          source.partial.push_back(static_cast<char>(c));
        } else {
          // Escape sequences of a taken-over helper must never reach a terminal.
          static const char kHex[] = "0123456789abcdef";
          source.partial += {'\\', 'x', kHex[c >> 4], kHex[c & 15]};
        }
      }
    }
    return true;
  }

  void Said(Source& source) {
    std::string line = std::move(source.partial) + (source.cut ? "..." : "") + "\n";
    source.partial.clear();
    source.cut = false;
    std::lock_guard<std::mutex> lock(mutex_);
    kept_ += line;
    if (kept_.size() > kKeptBytes) kept_.erase(0, kept_.size() - kKeptBytes);
    if (said_bytes_ >= kSaidBytes || !said_.insert(line).second) return;
    said_bytes_ += line.size();
    if (said_bytes_ >= kSaidBytes) line += "(further messages of helpers are not shown)\n";
    (void)!::write(2, line.data(), line.size());
  }

  mutable std::mutex mutex_;
  std::vector<int> added_;  // handed over, not yet taken by the thread
  int wake_[2] = {-1, -1};
  bool stop_ = false;
  std::thread thread_;
  std::string kept_;
  std::set<std::string> said_;
  size_t said_bytes_ = 0;
};

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

ProcessPool::ProcessPool(PoolOptions options)
    : options_(std::move(options)), log_(new StderrLog), launcher_(new Launcher) {
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

std::string ProcessPool::helper_log() const { return log_->Text(); }

std::unique_ptr<ProcessPool::Helper> ProcessPool::Start(ExchangeFailure* failure) {
  // Everything the child needs is made before the fork: between fork and exec it may only make
  // async-signal-safe calls.
  std::vector<std::string> strings;
  strings.push_back(options_.program);
  for (const std::string& arg : options_.args) strings.push_back(arg);
  std::vector<char*> argv;
  for (std::string& s : strings) argv.push_back(s.data());
  argv.push_back(nullptr);
  std::vector<std::string> env_strings = HelperEnvironment(options_.environment);
  std::vector<char*> envp;
  for (std::string& s : env_strings) envp.push_back(s.data());
  envp.push_back(nullptr);

  // Pipes: requests, answers, standard error, and one that tells the parent whether exec
  // worked. All close-on-exec; the child moves its ends to 0, 1 and 2.
  int pipes[4][2];
  int made = 0;
  for (; made < 4; ++made)
    if (::pipe2(pipes[made], O_CLOEXEC) != 0) break;
  auto close_pipes = [&](int from) {
    for (int i = from; i < made; ++i) {
      if (pipes[i][0] >= 0) ::close(pipes[i][0]);
      if (pipes[i][1] >= 0) ::close(pipes[i][1]);
    }
  };
  if (made < 4) {
    if (failure) failure->what = std::string("cannot start a helper: ") + std::strerror(errno);
    close_pipes(0);
    return nullptr;
  }
  int (&in_pipe)[2] = pipes[0];
  int (&out_pipe)[2] = pipes[1];
  int (&err_pipe)[2] = pipes[2];
  int (&status_pipe)[2] = pipes[3];
  if (options_.quiet_stderr) {
    ::close(err_pipe[1]);
    err_pipe[1] = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  }
  const pid_t parent = ::getpid();
#if defined(TROVIX_SANITIZED)
  const rlim_t memory = 0;
#else
  const rlim_t memory = static_cast<rlim_t>(options_.memory_limit);
#endif

  pid_t pid = ::fork();
  if (pid == 0) {
    // The child: its three standard descriptors become the pipes, every other descriptor
    // closes at exec (the status pipe too, which tells the parent the exec worked).
    if (::dup2(in_pipe[0], 0) < 0 || ::dup2(out_pipe[1], 1) < 0 || ::dup2(err_pipe[1], 2) < 0) _exit(127);
    ::syscall(SYS_close_range, 3u, ~0u, 4u /* CLOSE_RANGE_CLOEXEC */);
    // A session of its own: no controlling terminal to reach, and its pid names the group
    // the pool kills.
    if (::setsid() < 0) _exit(127);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) _exit(127);  // the parent died before the line above
    rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    ::setrlimit(RLIMIT_FSIZE, &none);
    if (memory != 0) {
      rlimit as{memory, memory};
      ::setrlimit(RLIMIT_AS, &as);
    }
    sigset_t all;
    sigemptyset(&all);
    ::sigprocmask(SIG_SETMASK, &all, nullptr);
    ::signal(SIGPIPE, SIG_DFL);
    ::signal(SIGINT, SIG_DFL);
    ::signal(SIGXFSZ, SIG_DFL);
    ::execve(argv[0], argv.data(), envp.data());
    int error = errno;
    (void)!::write(status_pipe[1], &error, sizeof error);
    _exit(127);
  }
  const int fork_error = errno;
  for (int* end : {&in_pipe[0], &out_pipe[1], &err_pipe[1], &status_pipe[1]}) {
    if (*end >= 0) ::close(*end);
    *end = -1;
  }
  if (pid < 0) {
    close_pipes(0);
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
    ::close(err_pipe[0]);
    if (failure) failure->what = "cannot start " + options_.program + ": " + std::strerror(exec_error);
    return nullptr;
  }
  if (options_.quiet_stderr)
    ::close(err_pipe[0]);
  else
    log_->Add(err_pipe[0]);
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
                                     const std::function<FrameVerdict(const Frame&)>& on_frame, int64_t timeout_ms,
                                     ExchangeFailure* failure, const AnswerLimits& limits, uint32_t answers,
                                     std::stop_token stop) {
  auto stopped = [failure] {
    if (failure) failure->what = "stopped";
    return ExchangeStatus::kStopped;
  };
  if (stop.stop_requested()) return stopped();
  int64_t deadline = MonotonicMs() + timeout_ms;
  std::unique_ptr<Helper> helper;
  // A helper that died while idle (killed from outside, say) is no fault of this request: the
  // write finds it gone and a fresh one gets the request.
  for (int attempt = 0;; ++attempt) {
    helper = Lease(failure);
    if (helper == nullptr) return ExchangeStatus::kUnavailable;
    // A stop that came while every helper was busy: the helper has no request yet and stays.
    if (stop.stop_requested()) {
      Return(std::move(helper));
      return stopped();
    }
    if (WriteQuietly(helper->to, request_type, request) == FrameStatus::kOk) break;
    ExchangeFailure lost;
    Discard(std::move(helper), 0, &lost);
    if (attempt == 1) {
      if (failure) *failure = lost;
      return ExchangeStatus::kCrashed;
    }
  }

  // A stop kills the helper from the stopping thread, so the read below ends at once however
  // long the helper would hang. The helper is reaped only after the callback is gone (each
  // path out resets it first): until then its pid cannot name another process.
  std::atomic<bool> killed{false};
  std::optional<std::stop_callback<std::function<void()>>> on_stop;
  on_stop.emplace(stop, std::function<void()>([&killed, pid = helper->pid] {
                    killed.store(true);
                    ::kill(-pid, SIGKILL);
                    ::kill(pid, SIGKILL);
                  }));
  // Ends the exchange without the helper: killed, reaped, and replaced by a later lease.
  auto discard = [&](int grace_ms, ExchangeFailure* how) {
    on_stop.reset();
    Discard(std::move(helper), grace_ms, how);
    return killed.load();
  };
  auto refuse = [&](const char* why) {
    if (discard(0, nullptr)) return stopped();
    if (failure) failure->what = why;
    return ExchangeStatus::kRefused;
  };
  bool cancelled = false;
  uint64_t bytes = 0;
  uint32_t ended = 0;  // answers ended so far
  for (;;) {
    Frame frame;
    FrameStatus status = helper->inbox.Read(helper->from, &frame, deadline, limits.max_frame);
    if (status == FrameStatus::kTimedOut) {
      if (discard(0, nullptr)) return stopped();
      if (failure) failure->what = "timed out";
      return ExchangeStatus::kTimedOut;
    }
    if (status == FrameStatus::kTooLarge) return refuse("answer too large");
    if (status != FrameStatus::kOk) {
      // Give a helper that is dying a moment to finish, so its signal or exit code is known.
      ExchangeFailure how;
      if (discard(killed.load() ? 0 : 100, &how)) return stopped();
      if (failure) *failure = how;
      if (failure && failure->what.empty()) failure->what = "broke the protocol";
      return ExchangeStatus::kCrashed;
    }
    bytes += frame.payload.size();
    if (bytes > limits.max_bytes) return refuse("answer too large");
    if (cancelled && frame.type != end_type) continue;  // drained: written before the cancel
    const FrameVerdict verdict = on_frame(frame);
    if (verdict == FrameVerdict::kRefuse) return refuse("answer refused");
    if (frame.type == end_type) {
      if (++ended < answers) {
        // The next answer of a batch: its own deadline and bounds.
        cancelled = false;
        bytes = 0;
        deadline = MonotonicMs() + timeout_ms;
        continue;
      }
      on_stop.reset();
      // The whole answer came, but a stop that killed the helper meanwhile leaves it unusable.
      if (killed.load()) {
        Discard(std::move(helper), 0, nullptr);
      } else {
        helper->inbox.Trim();
        Return(std::move(helper));
      }
      return ExchangeStatus::kOk;
    }
    if (verdict == FrameVerdict::kCancel && !cancelled) {
      cancelled = true;
      // A helper that cannot be told has gone, but what it wrote before it went is still to be
      // read: the end of this answer and of the next ones of a batch, up to the one it died
      // in, which the read's failure then charges. Giving up here charged this answer with
      // the crash of a later file.
      WriteQuietly(helper->to, kFrameCancel, FrameWriter().U32(ended).Take());
    }
  }
}

}  // namespace trovix::platform
