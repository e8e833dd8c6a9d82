#include "cli/exec_runner.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

extern char** environ;

namespace trovix::cli {
namespace {

// Arguments of one batch run stay well under the kernel's limit for a command line.
constexpr size_t kBatchBytes = 512 * 1024;

std::string LastComponent(const std::string& path) {
  size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string Folder(const std::string& path) {
  size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// Without the last extension: "a/b.tar.gz" -> "a/b.tar"; a leading dot is no extension.
std::string WithoutExtension(const std::string& path) {
  size_t start = path.find_last_of('/');
  start = start == std::string::npos ? 0 : start + 1;
  size_t dot = path.find_last_of('.');
  return dot == std::string::npos || dot <= start ? path : path.substr(0, dot);
}

// Reads both pipes to their ends; a child that writes much to one while we wait on the
// other must never block.
void Drain(int out_fd, int err_fd, std::string* out, std::string* err) {
  pollfd fds[2] = {{out_fd, POLLIN, 0}, {err_fd, POLLIN, 0}};
  std::string* sinks[2] = {out, err};
  int open = 2;
  char buffer[65536];
  while (open > 0) {
    if (poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) continue;
      ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
      if (n > 0) {
        sinks[i]->append(buffer, static_cast<size_t>(n));
      } else if (n == 0 || errno != EINTR) {
        fds[i].fd = -1;
        --open;
      }
    }
  }
}

}  // namespace

bool HasPlaceholder(const std::string& argument) {
  for (const char* token : {"{}", "{/}", "{//}", "{.}", "{/.}"})
    if (argument.find(token) != std::string::npos) return true;
  return false;
}

std::string ExpandPlaceholders(const std::string& argument, const std::string& path) {
  std::string out;
  for (size_t i = 0; i < argument.size();) {
    struct Token {
      const char* text;
      size_t size;
    };
    // Longest first: "{//}" before "{/}".
    static constexpr Token kTokens[] = {{"{//}", 4}, {"{/.}", 4}, {"{/}", 3}, {"{.}", 3}, {"{}", 2}};
    bool replaced = false;
    for (const Token& t : kTokens) {
      if (argument.compare(i, t.size, t.text) != 0) continue;
      const std::string_view name(t.text, t.size);
      if (name == "{}") out += path;
      else if (name == "{/}") out += LastComponent(path);
      else if (name == "{//}") out += Folder(path);
      else if (name == "{.}") out += WithoutExtension(path);
      else out += WithoutExtension(LastComponent(path));
      i += t.size;
      replaced = true;
      break;
    }
    if (!replaced) out += argument[i++];
  }
  return out;
}

ExecRunner::ExecRunner(std::vector<std::string> command, bool batch, int jobs, std::FILE* out, std::FILE* err)
    : command_(std::move(command)), batch_(batch), out_(out), err_(err) {
  if (!batch_)
    for (int i = 0; i < std::max(jobs, 1); ++i) workers_.emplace_back([this] { Worker(); });
}

ExecRunner::~ExecRunner() {
  {
    std::lock_guard lock(mutex_);
    closing_ = true;
  }
  work_.notify_all();
  for (std::thread& t : workers_)
    if (t.joinable()) t.join();
}

std::string SafeCommandPath(const std::string& path) {
  // A relative result named "--checkpoint-action=exec=..." would reach tar as an option: with
  // "./" before it, no command can take it for anything but a file.
  return !path.empty() && path[0] == '-' ? "./" + path : path;
}

void ExecRunner::Add(const std::string& path) {
  if (batch_) {
    batch_paths_.push_back(SafeCommandPath(path));
    return;
  }
  {
    std::lock_guard lock(mutex_);
    queue_.push_back(SafeCommandPath(path));
  }
  work_.notify_one();
}

void ExecRunner::Worker() {
  const bool placeholders = std::any_of(command_.begin(), command_.end(), HasPlaceholder);
  for (;;) {
    std::string path;
    {
      std::unique_lock lock(mutex_);
      work_.wait(lock, [&] { return closing_ || !queue_.empty(); });
      if (queue_.empty()) return;
      path = std::move(queue_.front());
      queue_.pop_front();
    }
    std::vector<std::string> argv;
    for (const std::string& a : command_) argv.push_back(ExpandPlaceholders(a, path));
    if (!placeholders) argv.push_back(path);
    if (!Run(argv)) {
      std::lock_guard lock(mutex_);
      all_ok_ = false;
    }
  }
}

void ExecRunner::RunBatches() {
  size_t next = 0;
  while (next < batch_paths_.size()) {
    std::vector<std::string> argv;
    size_t bytes = 0, end = next;
    while (end < batch_paths_.size() && (end == next || bytes + batch_paths_[end].size() < kBatchBytes)) {
      bytes += batch_paths_[end].size() + 1;
      ++end;
    }
    // Paths go where the placeholders are, one argument per path; with none, at the end.
    bool placed = false;
    for (const std::string& a : command_) {
      if (!HasPlaceholder(a)) {
        argv.push_back(a);
        continue;
      }
      for (size_t k = next; k < end; ++k) argv.push_back(ExpandPlaceholders(a, batch_paths_[k]));
      placed = true;
    }
    if (!placed)
      for (size_t k = next; k < end; ++k) argv.push_back(batch_paths_[k]);
    if (!Run(argv)) all_ok_ = false;
    next = end;
  }
}

bool ExecRunner::Finish() {
  {
    std::lock_guard lock(mutex_);
    closing_ = true;
  }
  work_.notify_all();
  for (std::thread& t : workers_)
    if (t.joinable()) t.join();
  if (batch_) RunBatches();
  return all_ok_;
}

bool ExecRunner::Run(const std::vector<std::string>& argv) {
  int out_pipe[2], err_pipe[2];
  if (pipe2(out_pipe, O_CLOEXEC) != 0) return false;
  if (pipe2(err_pipe, O_CLOEXEC) != 0) {
    close(out_pipe[0]), close(out_pipe[1]);
    return false;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out_pipe[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err_pipe[1], 2);
  std::vector<char*> args;
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  // Commands get the signals as a shell would give them: SIGPIPE is ignored only here.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  pid_t pid = 0;
  const int spawn_error = posix_spawnp(&pid, args[0], &actions, &attributes, args.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  close(out_pipe[1]);
  close(err_pipe[1]);
  std::string out, err;
  if (spawn_error == 0) Drain(out_pipe[0], err_pipe[0], &out, &err);
  close(out_pipe[0]);
  close(err_pipe[0]);
  int status = 0;
  if (spawn_error == 0)
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
  std::lock_guard lock(write_mutex_);
  if (spawn_error != 0) {
    // Said once: the same command fails the same way for every result.
    if (!spawn_failure_said_)
      std::fprintf(err_, "trovix-cli: cannot run %s: %s\n", argv[0].c_str(), std::strerror(spawn_error));
    spawn_failure_said_ = true;
    return false;
  }
  std::fwrite(out.data(), 1, out.size(), out_);
  std::fflush(out_);
  std::fwrite(err.data(), 1, err.size(), err_);
  std::fflush(err_);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace trovix::cli
