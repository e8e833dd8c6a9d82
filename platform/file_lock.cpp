#include "platform/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <thread>

namespace trovix::platform {
namespace {

int64_t HolderOf(int fd) {
  char text[32] = {};
  const ssize_t n = pread(fd, text, sizeof text - 1, 0);
  return n > 0 ? std::strtoll(text, nullptr, 10) : 0;
}

}  // namespace

std::unique_ptr<FileLock> FileLock::Acquire(const std::string& path, std::chrono::milliseconds timeout,
                                            int* error, int64_t* holder) {
  *error = 0;
  *holder = 0;
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) {
    *error = errno;
    return nullptr;
  }
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  // Short naps at first: writers hold their locks for milliseconds.
  auto nap = std::chrono::milliseconds(2);
  while (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno == EINTR) continue;
    if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() >= deadline) {
      *error = errno;
      if (*error == EWOULDBLOCK) *holder = HolderOf(fd);
      close(fd);
      return nullptr;
    }
    std::this_thread::sleep_for(nap);
    nap = std::min(nap * 2, std::chrono::milliseconds(50));
  }
  const std::string pid = std::to_string(getpid()) + "\n";
  // The pid is only a courtesy for another process's message; failing to write it changes
  // nothing about the lock.
  if (ftruncate(fd, 0) == 0) {
    [[maybe_unused]] ssize_t written = pwrite(fd, pid.data(), pid.size(), 0);
  }
  return std::unique_ptr<FileLock>(new FileLock(fd));
}

FileLock::~FileLock() { close(fd_); }

}  // namespace trovix::platform
