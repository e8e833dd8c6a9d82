#include "platform/no_replace_rename.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace trovix::platform {
namespace {

RenameOutcome Failed(int error, std::string message, bool no_atomic_way = false) {
  return RenameOutcome{error, no_atomic_way, std::move(message)};
}

bool Exists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

}  // namespace

RenameOutcome LinkRenameNoReplace(const std::string& from, const std::string& to) {
  struct stat st;
  if (lstat(from.c_str(), &st) != 0) return Failed(errno, from + ": " + std::strerror(errno));
  if (S_ISDIR(st.st_mode)) {
    return Failed(EOPNOTSUPP,
                  "this file system cannot rename a folder without the risk of replacing another "
                  "item of the new name; rename it in the file manager",
                  true);
  }
  // link() without AT_SYMLINK_FOLLOW links a symbolic link itself, as a rename would move it.
  if (link(from.c_str(), to.c_str()) != 0) {
    const int err = errno;
    if (err == EEXIST) return Failed(err, to + " already exists");
    if (err == EPERM || err == EOPNOTSUPP || err == EXDEV || err == EMLINK) {
      return Failed(err,
                    "this file system can neither rename without replacing nor make a second "
                    "name for a file (" +
                        std::string(std::strerror(err)) + "); nothing was renamed",
                    true);
    }
    return Failed(err, to + ": " + std::strerror(err));
  }
  if (unlink(from.c_str()) != 0) {
    const int err = errno;
    // Both names now reach the file; take the new one back so that nothing changed.
    unlink(to.c_str());
    return Failed(err, from + ": " + std::strerror(err));
  }
  return {};
}

RenameOutcome RenameNoReplace(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return {};
  const int err = errno;
  if (err == EINVAL || err == ENOSYS || err == EOPNOTSUPP) return LinkRenameNoReplace(from, to);
  if (err == EEXIST) return Failed(err, to + " already exists");
  return Failed(err, to + ": " + std::strerror(err));
}

std::string SetAsideNumbered(const std::string& path, const std::vector<std::string>& suffixes,
                             int* error) {
  *error = 0;
  if (!Exists(path)) {
    *error = ENOENT;
    return {};
  }
  for (int n = 1; n < 100'000; ++n) {
    const std::string aside = path + ".bad." + std::to_string(n);
    bool taken = Exists(aside);
    for (const std::string& suffix : suffixes) taken = taken || Exists(aside + suffix);
    if (taken) continue;
    RenameOutcome moved = RenameNoReplace(path, aside);
    // Somebody took the name between the look and the move: try the next one.
    if (moved.error == EEXIST) continue;
    if (moved.error != 0) {
      *error = moved.error;
      return {};
    }
    // The companions follow; one that is missing is no loss, one that cannot be moved stays
    // where it is rather than being deleted.
    for (const std::string& suffix : suffixes) {
      if (Exists(path + suffix)) RenameNoReplace(path + suffix, aside + suffix);
    }
    return aside;
  }
  *error = EEXIST;
  return {};
}

bool MakePrivateFolders(const std::string& folder) {
  if (folder.empty()) return true;
  struct stat st;
  if (stat(folder.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) return true;
    errno = ENOTDIR;
    return false;
  }
  const size_t slash = folder.find_last_of('/', folder.size() > 1 ? folder.size() - 2 : 0);
  if (slash != std::string::npos && slash > 0 && !MakePrivateFolders(folder.substr(0, slash))) {
    return false;
  }
  if (mkdir(folder.c_str(), 0700) != 0) return errno == EEXIST;
  // The umask may have taken bits away, never added them; 0700 is what was asked.
  chmod(folder.c_str(), 0700);
  return true;
}

}  // namespace trovix::platform
