#include "platform/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace trovix::platform {

int OpenRegularFile(const std::string& path, int* fd, struct stat* st, Links links) {
  // O_NONBLOCK: opening a FIFO for reading would otherwise wait for a writer before fstat
  // could tell us what it is.
  *fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | (links == Links::kRefuse ? O_NOFOLLOW : 0));
  if (*fd < 0) return errno;
  int err = 0;
  if (fstat(*fd, st) != 0) {
    err = errno;
  } else if (S_ISDIR(st->st_mode)) {
    err = EISDIR;
  } else if (!S_ISREG(st->st_mode)) {
    err = kNotRegularFile;
  }
  if (err != 0) {
    close(*fd);
    *fd = -1;
  }
  return err;
}

int ProbeRegularFile(const std::string& path) {
  int fd = -1;
  struct stat st;
  const int err = OpenRegularFile(path, &fd, &st);
  if (err == EISDIR || err == kNotRegularFile) return 0;
  if (err != 0) return err;
  char byte;
  (void)!pread(fd, &byte, 1, 0);
  (void)!flistxattr(fd, nullptr, 0);
  close(fd);
  return 0;
}

int ReadRegularFile(const std::string& path, std::string* bytes, size_t limit, Links links) {
  bytes->clear();
  int fd = -1;
  struct stat st;
  int err = OpenRegularFile(path, &fd, &st, links);
  if (err != 0) return err;
  if (static_cast<unsigned long long>(st.st_size) > limit) err = EFBIG;
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
