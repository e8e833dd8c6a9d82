#include "platform/long_path.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace trovix::platform {
namespace {

// Well under PATH_MAX, so that every step and the rest are accepted.
constexpr size_t kStep = 3072;

}  // namespace

PathAnchor::PathAnchor(int dir_fd, const char* path) : dir_(dir_fd), name_(path) {
  size_t length = std::strlen(path);
  if (length < kStep) return;
  std::string chunk;
  while (length >= kStep) {
    // The longest run of whole components that fits one step ("/" of an absolute path included).
    size_t cut = kStep;
    while (cut > 0 && name_[cut] != '/') --cut;
    if (cut == 0) {
      error_ = ENAMETOOLONG;
      return;
    }
    chunk.assign(name_, cut == 0 ? 1 : cut);
    int fd;
    do {
      fd = openat(dir_, chunk.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
      error_ = errno ? errno : EIO;
      return;
    }
    if (owned_ >= 0) close(owned_);
    owned_ = dir_ = fd;
    while (name_[cut] == '/') ++cut;
    name_ += cut;
    length -= cut;
  }
}

PathAnchor::~PathAnchor() {
  if (owned_ >= 0) close(owned_);
}

}  // namespace trovix::platform
