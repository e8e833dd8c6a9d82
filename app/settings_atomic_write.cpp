#include "app/settings_atomic_write.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace trovix::app {
namespace {

std::string ParentFolder(const std::string& path) {
  size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

// The file that a write should replace: the target of a symbolic link, so that a settings file
// kept elsewhere and linked into place stays linked.
std::string ResolveTarget(const std::string& path) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return path;
  char resolved[PATH_MAX];
  if (realpath(path.c_str(), resolved) == nullptr) return path;
  return resolved;
}

int WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t n = write(fd, bytes.data(), bytes.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return 0;
}

// Makes the rename itself durable; a folder that cannot be opened or synced (some network
// file systems) is not an error, the data is already on the disk.
void SyncFolder(const std::string& folder) {
  int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  fsync(fd);
  close(fd);
}

}  // namespace

int WriteFileAtomically(const std::string& path, std::string_view bytes,
                        const BeforeRenameHook& before_rename) {
  static std::atomic<unsigned> counter{0};
  const std::string target = ResolveTarget(path);

  int fd = -1;
  std::string temp;
  for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
    temp = target + ".tmp" + std::to_string(getpid()) + "_" + std::to_string(counter++);
    fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0 && errno != EEXIST) return errno;
  }
  if (fd < 0) return EEXIST;

  struct stat old_stat;
  if (stat(target.c_str(), &old_stat) == 0) fchmod(fd, old_stat.st_mode & 07777);

  int err = WriteAll(fd, bytes);
  if (err == 0 && fsync(fd) != 0) err = errno;
  if (close(fd) != 0 && err == 0) err = errno;
  if (err != 0) {
    unlink(temp.c_str());
    return err;
  }
  if (before_rename && !before_rename(temp)) return EINTR;
  if (rename(temp.c_str(), target.c_str()) != 0) {
    err = errno;
    unlink(temp.c_str());
    return err;
  }
  SyncFolder(ParentFolder(target));
  return 0;
}

}  // namespace trovix::app
