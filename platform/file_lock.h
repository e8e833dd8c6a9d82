// An exclusive advisory lock (flock) on a lock file, for writers in different processes that
// must take turns: the settings store's read-modify-write, the index's single writer. The kernel
// drops it when its holder dies, so a killed process never leaves anything locked. The holder
// writes its pid into the lock file, so that a process that cannot have the lock can name the
// one holding it.
//
// flock belongs to an open file: a second FileLock on the same path in the same process waits
// for the first like any other process would. Callers that need re-entrancy keep count
// themselves. One FileLock is one holder; not shared between threads. The lock file is created
// 0600 and kept when the lock is let go: removing it would let a waiter lock a file that a
// newcomer no longer finds under the name.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace trovix::platform {

class FileLock {
 public:
  // Takes the lock on `path` (the file created when missing, never through a symbolic link),
  // trying again with short naps until `timeout` has passed; a zero timeout tries once. Null
  // when it cannot be had, with *error set to EWOULDBLOCK when another holder keeps it (and
  // *holder to the pid it wrote, 0 when unknown) or to the errno of the open that failed.
  static std::unique_ptr<FileLock> Acquire(const std::string& path, std::chrono::milliseconds timeout,
                                           int* error, int64_t* holder);
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

 private:
  explicit FileLock(int fd) : fd_(fd) {}
  int fd_;
};

}  // namespace trovix::platform
