// The lock that makes a change to the settings store a read-modify-write: whoever changes the
// store takes it, reads the store afresh, changes it, writes it and lets go, so that two
// processes saving at the same moment both keep their change. It is a platform::FileLock
// on a file beside the store ("<store>.lock"), which the kernel drops when its holder dies, so
// a killed process never leaves the settings locked. The holder writes its pid into the lock
// file; a process that gives up waiting can then name the one it waited for.
//
// Hold it for as short a time as possible: every other change waits. The lock is re-entrant
// within one process: taking a lock this process already holds succeeds at once (a caller that
// reads, changes and commits the store under the lock, and the commit's own taking of it). So
// it orders processes, not the threads of one process; the store guards its threads itself.
// One SettingsLock is one holder; not shared between threads. The lock file is the owner's
// only (0600), its folder made 0700 when missing.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "platform/file_lock.h"

namespace trovix::app {

inline constexpr std::chrono::milliseconds kSettingsLockTimeout{5000};

class SettingsLock {
 public:
  // Takes the lock on `lock_path` (created, with its folder, when missing), waiting up to
  // `timeout`. Null with a message in *error when it cannot be had; the message names the
  // holder's pid when one is known.
  static std::unique_ptr<SettingsLock> Acquire(const std::string& lock_path,
                                               std::chrono::milliseconds timeout,
                                               std::string* error);
  ~SettingsLock();
  SettingsLock(const SettingsLock&) = delete;
  SettingsLock& operator=(const SettingsLock&) = delete;

 private:
  SettingsLock(std::unique_ptr<platform::FileLock> lock, std::string path)
      : lock_(std::move(lock)), path_(std::move(path)) {}
  std::unique_ptr<platform::FileLock> lock_;  // null for a nested holder
  std::string path_;
};

// The lock file of the store kept at `store_path` (the settings file or the key store's
// database).
std::string SettingsLockPath(const std::string& store_path);

}  // namespace trovix::app
