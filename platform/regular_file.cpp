#include "platform/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace trovix::platform {

int ReadRegularFile(const std::string& path, std::string* bytes, size_t limit) {
  bytes->clear();
  // O_NONBLOCK: opening a FIFO for reading would otherwise wait for a writer before fstat
  // could tell us what it is.
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) return errno;
  struct stat st;
  int err = 0;
  if (fstat(fd, &st) != 0) {
    err = errno;
  } else if (S_ISDIR(st.st_mode)) {
    err = EISDIR;
  } else if (!S_ISREG(st.st_mode)) {
    err = kNotRegularFile;
  } else if (static_cast<unsigned long long>(st.st_size) > limit) {
    err = EFBIG;
  }
  char buffer[65536];
  while (err == 0) {
    ssize_t n = read(fd, buffer, sizeof buffer);
    if (n < 0) {
      if (errno != EINTR) err = errno;
      continue;
    }
    if (n == 0) break;
    bytes->append(buffer, static_cast<size_t>(n));
    if (bytes->size() > limit) err = EFBIG;
  }
  close(fd);
  if (err != 0) bytes->clear();
  return err;
}

std::string DescribeReadError(int error, size_t limit) {
  if (error == kNotRegularFile) return "is not a regular file";
  if (error == EISDIR) return "is a folder";
  if (error == EFBIG) {
    return "is larger than " + std::to_string(limit >> 20) + " MiB";
  }
  return std::strerror(error);
}

}  // namespace trovix::platform
