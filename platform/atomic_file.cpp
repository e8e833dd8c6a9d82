#include "platform/atomic_file.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <ctime>
#include <string_view>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace trovix::platform {
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

// Temporaries are named "<file>.tmp<pid>_<counter>". The writer's pid in the name lets the next
// save tell a temporary left by a killed writer from one that is being written right now.
std::string TempName(const std::string& target, unsigned counter) {
  return target + ".tmp" + std::to_string(getpid()) + "_" + std::to_string(counter);
}

// The writer's pid when `name` is one of our temporaries of `base`, else 0.
pid_t TempWriter(std::string_view name, std::string_view base) {
  const std::string prefix = std::string(base) + ".tmp";
  if (name.substr(0, prefix.size()) != prefix) return 0;
  name.remove_prefix(prefix.size());
  size_t underscore = name.find('_');
  if (underscore == 0 || underscore == std::string_view::npos || underscore + 1 == name.size()) {
    return 0;
  }
  auto all_digits = [](std::string_view text) {
    return text.find_first_not_of("0123456789") == std::string_view::npos;
  };
  std::string_view pid_text = name.substr(0, underscore);
  if (!all_digits(pid_text) || !all_digits(name.substr(underscore + 1)) || pid_text.size() > 9) {
    return 0;
  }
  return static_cast<pid_t>(std::stol(std::string(pid_text)));
}

// A writer gets a minute before its temporary counts as abandoned even when its pid is still
// in use: pids are reused, and no settings file takes that long to write.
constexpr time_t kStaleTempAge = 60;

void RemoveStaleTemporaries(const std::string& target) {
  const std::string folder = ParentFolder(target);
  const size_t slash = target.rfind('/');
  const std::string base = slash == std::string::npos ? target : target.substr(slash + 1);
  DIR* dir = opendir(folder.c_str());
  if (dir == nullptr) return;
  const time_t now = time(nullptr);
  while (const dirent* entry = readdir(dir)) {
    const pid_t writer = TempWriter(entry->d_name, base);
    if (writer <= 0 || writer == getpid()) continue;
    struct stat st;
    if (fstatat(dirfd(dir), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(st.st_mode)) {
      continue;
    }
    const bool writer_gone = kill(writer, 0) != 0 && errno == ESRCH;
    if (writer_gone || now - st.st_mtime > kStaleTempAge) unlinkat(dirfd(dir), entry->d_name, 0);
  }
  closedir(dir);
}

}  // namespace

int WriteFileAtomically(const std::string& path, std::string_view bytes,
                        const BeforeRenameHook& before_rename) {
  static std::atomic<unsigned> counter{0};
  const std::string target = ResolveTarget(path);
  RemoveStaleTemporaries(target);

  int fd = -1;
  std::string temp;
  for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
    temp = TempName(target, counter++);
    fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0 && errno != EEXIST) return errno;
  }
  if (fd < 0) return EEXIST;

  // Settings are the user's own: never readable by others, and never wider than the file was
  // (a file its owner made read-only stays so). The umask may have narrowed the new file
  // further; the mode is set, not left to it.
  struct stat old_stat;
  const bool had_file = stat(target.c_str(), &old_stat) == 0;
  fchmod(fd, had_file ? (old_stat.st_mode & 0600) : 0600);

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

}  // namespace trovix::platform
