#include "platform/named_streams.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace trovix::platform {
namespace {

constexpr std::string_view kUserPrefix = "user.";

// The attribute calls on an open descriptor or, when there is none, on a path (with or
// without following a final link), behind one face.
struct Target {
  int fd = -1;
  const char* path = nullptr;
  bool follow = false;

  ssize_t ListNames(char* buffer, size_t size) const {
    if (fd >= 0) return flistxattr(fd, buffer, size);
    return follow ? listxattr(path, buffer, size) : llistxattr(path, buffer, size);
  }
  ssize_t Get(const char* name, void* buffer, size_t size) const {
    if (fd >= 0) return fgetxattr(fd, name, buffer, size);
    return follow ? getxattr(path, name, buffer, size) : lgetxattr(path, name, buffer, size);
  }
};

// Closes what it opened.
class OpenTarget {
 public:
  OpenTarget(const std::string& path, bool follow) {
    target_.path = path.c_str();
    target_.follow = follow;
    struct stat st {};
    int rc = follow ? stat(path.c_str(), &st) : lstat(path.c_str(), &st);
    if (rc != 0) {
      error_ = errno;
      return;
    }
    // Only files and folders are opened: opening a pipe or a device can block or have effects
    // of its own, and a link that is not followed cannot be opened as itself.
    if (S_ISREG(st.st_mode) || S_ISDIR(st.st_mode)) {
      int flags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | (follow ? 0 : O_NOFOLLOW);
      target_.fd = open(path.c_str(), flags);
      if (target_.fd < 0) error_ = errno;
    }
  }
  ~OpenTarget() {
    if (target_.fd >= 0) close(target_.fd);
  }
  OpenTarget(const OpenTarget&) = delete;
  OpenTarget& operator=(const OpenTarget&) = delete;

  int error() const { return error_; }
  const Target& target() const { return target_; }

 private:
  Target target_;
  int error_ = 0;
};

// All attribute names of the target, NUL-separated; the list may grow between the two calls,
// so the size is asked again when it no longer fits.
int ListAllNames(const Target& target, std::string* names) {
  for (int attempt = 0; attempt < 4; ++attempt) {
    ssize_t size = target.ListNames(nullptr, 0);
    if (size < 0) return errno;
    names->assign(static_cast<size_t>(size), '\0');
    if (size == 0) return 0;
    ssize_t got = target.ListNames(names->data(), names->size());
    if (got >= 0) {
      names->resize(static_cast<size_t>(got));
      return 0;
    }
    if (errno != ERANGE) return errno;
  }
  return ERANGE;
}

class LinuxStreamSystem final : public StreamSystem {
 public:
  int List(const std::string& path, bool follow, std::vector<NamedStream>* out) override {
    out->clear();
    OpenTarget open(path, follow);
    if (open.error() != 0) return open.error();
    std::string names;
    if (int error = ListAllNames(open.target(), &names); error != 0) return error;
    for (size_t at = 0; at < names.size();) {
      size_t end = names.find('\0', at);
      if (end == std::string::npos) end = names.size();
      std::string_view full(names.data() + at, end - at);
      if (full.starts_with(kUserPrefix) && full.size() > kUserPrefix.size()) {
        ssize_t size = open.target().Get(std::string(full).c_str(), nullptr, 0);
        out->push_back(NamedStream{std::string(full.substr(kUserPrefix.size())), size < 0 ? -1 : size});
      }
      at = end + 1;
    }
    return 0;
  }

  int Read(const std::string& path, std::string_view name, bool follow, size_t limit,
           std::string* out) override {
    out->clear();
    Target target;
    target.path = path.c_str();
    target.follow = follow;
    const std::string full = std::string(kUserPrefix) + std::string(name);
    for (int attempt = 0; attempt < 4; ++attempt) {
      ssize_t size = target.Get(full.c_str(), nullptr, 0);
      if (size < 0) return errno;
      // A value is read whole (the call cannot read part of one); they are small by nature.
      out->assign(static_cast<size_t>(size), '\0');
      ssize_t got = size == 0 ? 0 : target.Get(full.c_str(), out->data(), out->size());
      if (got >= 0) {
        out->resize(std::min(static_cast<size_t>(got), limit));
        return 0;
      }
      if (errno != ERANGE) return errno;
    }
    return ERANGE;
  }

  uint32_t ClusterSize(const std::string& path) override {
    struct statvfs vfs {};
    if (statvfs(path.c_str(), &vfs) != 0) return kDefaultCluster;
    // The fragment size is the unit blocks are counted in; the "block size" of some network
    // file systems is their transfer size, far larger than anything is allocated in.
    unsigned long unit = vfs.f_frsize ? vfs.f_frsize : vfs.f_bsize;
    return unit == 0 || unit > (1u << 24) ? kDefaultCluster : static_cast<uint32_t>(unit);
  }

 private:
  static constexpr uint32_t kDefaultCluster = 4096;
};

}  // namespace

StreamSystem& DefaultStreamSystem() {
  static LinuxStreamSystem system;
  return system;
}

}  // namespace trovix::platform
