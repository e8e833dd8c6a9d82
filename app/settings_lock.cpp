#include "app/settings_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <thread>

#include "platform/no_replace_rename.h"

namespace trovix::app {
namespace {

std::string HolderOf(int fd) {
  char text[32] = {};
  ssize_t n = pread(fd, text, sizeof text - 1, 0);
  if (n <= 0) return {};
  std::string pid(text, static_cast<size_t>(n));
  pid = pid.substr(0, pid.find_first_not_of("0123456789"));
  return pid;
}

// The locks this process holds, by path, with how many holders each has. flock() belongs to
// an open file, so a second open of the same lock file in this process would wait for the
// first: a save that commits under a lock its caller already holds would wait for itself.
std::mutex& HeldMutex() {
  static std::mutex mutex;
  return mutex;
}
std::map<std::string, int>& Held() {
  static std::map<std::string, int> held;
  return held;
}

}  // namespace

std::string SettingsLockPath(const std::string& store_path) { return store_path + ".lock"; }

std::unique_ptr<SettingsLock> SettingsLock::Acquire(const std::string& lock_path,
                                                    std::chrono::milliseconds timeout,
                                                    std::string* error) {
  {
    std::lock_guard guard(HeldMutex());
    auto held = Held().find(lock_path);
    if (held != Held().end()) {
      ++held->second;
      return std::unique_ptr<SettingsLock>(new SettingsLock(-1, lock_path));
    }
  }
  int fd = open(lock_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0 && errno == ENOENT) {
    // The first save of a new store: its folder may not exist yet.
    platform::MakePrivateFolders(std::filesystem::path(lock_path).parent_path().string());
    fd = open(lock_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  }
  if (fd < 0) {
    *error = "the settings lock " + lock_path + " cannot be opened: " + std::strerror(errno);
    return nullptr;
  }
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  // Short naps at first: a change holds the lock for milliseconds.
  auto nap = std::chrono::milliseconds(2);
  while (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno == EINTR) continue;
    if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() >= deadline) {
      const int err = errno;
      const std::string holder = HolderOf(fd);
      close(fd);
      if (err != EWOULDBLOCK) {
        *error = "the settings lock " + lock_path + " cannot be taken: " + std::strerror(err);
      } else {
        *error = "the settings are locked by process " + (holder.empty() ? "(unknown)" : holder) +
                 " (" + lock_path + "); gave up after " +
                 std::to_string(timeout.count()) + " ms";
      }
      return nullptr;
    }
    std::this_thread::sleep_for(nap);
    nap = std::min(nap * 2, std::chrono::milliseconds(50));
  }
  const std::string pid = std::to_string(getpid()) + "\n";
  // The pid is only a courtesy for the message above; failing to write it changes nothing.
  if (ftruncate(fd, 0) == 0) {
    [[maybe_unused]] ssize_t written = pwrite(fd, pid.data(), pid.size(), 0);
  }
  std::lock_guard guard(HeldMutex());
  Held()[lock_path] = 1;
  return std::unique_ptr<SettingsLock>(new SettingsLock(fd, lock_path));
}

SettingsLock::~SettingsLock() {
  std::lock_guard guard(HeldMutex());
  auto held = Held().find(path_);
  if (held != Held().end() && --held->second == 0) Held().erase(held);
  // Closing drops the lock. The file stays: removing it would let a waiter lock a file that a
  // newcomer no longer finds under the name.
  if (fd_ >= 0) close(fd_);
}

}  // namespace trovix::app
