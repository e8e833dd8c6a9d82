#include "platform/file_status.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "platform/long_path.h"

namespace trovix::platform {
namespace {

base::FileTime FromStatx(const struct statx_timestamp& t) {
  return base::FileTimeFromUnix(t.tv_sec, t.tv_nsec);
}

FileType TypeOf(uint32_t mode) {
  switch (mode & S_IFMT) {
    case S_IFREG: return FileType::kRegular;
    case S_IFDIR: return FileType::kDirectory;
    case S_IFLNK: return FileType::kSymlink;
    case S_IFIFO: return FileType::kFifo;
    case S_IFSOCK: return FileType::kSocket;
    case S_IFCHR: return FileType::kCharDevice;
    case S_IFBLK: return FileType::kBlockDevice;
    default: return FileType::kUnknown;
  }
}

}  // namespace

int StatPath(int dir_fd, const std::string& path, bool follow, FileStatus* out) {
  return StatPath(dir_fd, path.c_str(), follow, out);
}

int StatPath(int dir_fd, const char* path, bool follow, FileStatus* out) {
  struct statx sx {};
  int flags = AT_NO_AUTOMOUNT | (follow ? 0 : AT_SYMLINK_NOFOLLOW);
  unsigned mask = STATX_BASIC_STATS | STATX_BTIME;
  PathAnchor anchor(dir_fd, path);
  if (anchor.error() != 0) return anchor.error();
  if (statx(anchor.dir(), anchor.name(), flags, mask, &sx) != 0) return errno ? errno : EIO;
  FileStatus s;
  s.mode = sx.stx_mode;
  s.type = TypeOf(sx.stx_mode);
  s.size = sx.stx_size;
  s.allocated = sx.stx_blocks * 512;
  s.device = (static_cast<uint64_t>(sx.stx_dev_major) << 32) | sx.stx_dev_minor;
  s.inode = sx.stx_ino;
  s.links = sx.stx_nlink;
  s.uid = sx.stx_uid;
  s.gid = sx.stx_gid;
  s.block_size = sx.stx_blksize;
  s.modified = FromStatx(sx.stx_mtime);
  s.accessed = FromStatx(sx.stx_atime);
  s.changed = FromStatx(sx.stx_ctime);
  if (sx.stx_mask & STATX_BTIME) {
    s.created = FromStatx(sx.stx_btime);
  } else {
    s.created = s.modified < s.changed ? s.modified : s.changed;
  }
  s.compressed = (sx.stx_attributes_mask & STATX_ATTR_COMPRESSED) && (sx.stx_attributes & STATX_ATTR_COMPRESSED);
  s.encrypted = (sx.stx_attributes_mask & STATX_ATTR_ENCRYPTED) && (sx.stx_attributes & STATX_ATTR_ENCRYPTED);
  *out = s;
  return 0;
}

bool ReadLinkTarget(const std::string& path, std::string* target) {
  std::vector<char> buffer(256);
  for (;;) {
    ssize_t n = readlink(path.c_str(), buffer.data(), buffer.size());
    if (n < 0) return false;
    if (static_cast<size_t>(n) < buffer.size()) {
      target->assign(buffer.data(), static_cast<size_t>(n));
      return true;
    }
    if (buffer.size() >= (1u << 20)) return false;
    buffer.resize(buffer.size() * 2);
  }
}

std::string UserName(uint32_t uid) {
  struct passwd pwd {};
  struct passwd* result = nullptr;
  std::vector<char> buffer(4096);
  if (getpwuid_r(uid, &pwd, buffer.data(), buffer.size(), &result) == 0 && result) return pwd.pw_name;
  return std::to_string(uid);
}

uint32_t FileAttributesOf(const FileStatus& s, std::string_view name) {
  uint32_t a = 0;
  if (s.IsDirectory()) a |= FILE_ATTRIBUTE_DIRECTORY;
  if (s.IsSymlink()) a |= FILE_ATTRIBUTE_REPARSE_POINT;
  if (s.IsSpecial()) a |= FILE_ATTRIBUTE_SYSTEM;
  if (!name.empty() && name[0] == '.' && name != "." && name != "..") a |= FILE_ATTRIBUTE_HIDDEN;
  if (!s.IsSymlink() && (s.mode & 0222) == 0) a |= FILE_ATTRIBUTE_READONLY;
  if (s.compressed) a |= FILE_ATTRIBUTE_COMPRESSED;
  if (s.encrypted) a |= FILE_ATTRIBUTE_ENCRYPTED;
  if (s.type == FileType::kRegular && s.size > 0 && s.allocated + s.block_size < s.size)
    a |= FILE_ATTRIBUTE_SPARSE_FILE;
  if (a == 0) a = FILE_ATTRIBUTE_NORMAL;
  return a;
}

}  // namespace trovix::platform
