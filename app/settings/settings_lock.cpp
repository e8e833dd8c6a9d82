#include "app/settings/settings_lock.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>

#include "platform/file_lock.h"
#include "platform/no_replace_rename.h"

namespace trovix::app {
namespace {

// The locks this process holds, by path, with how many holders each has. A FileLock belongs to
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
      return std::unique_ptr<SettingsLock>(new SettingsLock(nullptr, lock_path));
    }
  }
  int err = 0;
  int64_t holder = 0;
  auto lock = platform::FileLock::Acquire(lock_path, timeout, &err, &holder);
  if (!lock && err == ENOENT) {
    // The first save of a new store: its folder may not exist yet.
    platform::MakePrivateFolders(std::filesystem::path(lock_path).parent_path().string());
    lock = platform::FileLock::Acquire(lock_path, timeout, &err, &holder);
  }
  if (!lock) {
    if (err != EWOULDBLOCK) {
      *error = "the settings lock " + lock_path + " cannot be opened: " + std::strerror(err);
    } else {
      *error = "the settings are locked by process " + (holder > 0 ? std::to_string(holder) : "(unknown)") + " (" +
               lock_path + "); gave up after " + std::to_string(timeout.count()) + " ms";
    }
    return nullptr;
  }
  std::lock_guard guard(HeldMutex());
  Held()[lock_path] = 1;
  return std::unique_ptr<SettingsLock>(new SettingsLock(std::move(lock), lock_path));
}

SettingsLock::~SettingsLock() {
  std::lock_guard guard(HeldMutex());
  auto held = Held().find(path_);
  if (held != Held().end() && --held->second == 0) Held().erase(held);
}

}  // namespace trovix::app
