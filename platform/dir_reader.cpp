#include "platform/dir_reader.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/long_path.h"

namespace trovix::platform {
namespace {

// The record getdents64 writes; glibc does not declare it.
struct LinuxDirent64 {
  uint64_t d_ino;
  int64_t d_off;
  unsigned short d_reclen;
  unsigned char d_type;
  char d_name[];
};

// Large enough that most folders are read in one or two system calls.
constexpr size_t kBufferSize = 32 * 1024;

class PosixDirReader final : public DirReader {
 public:
  PosixDirReader(int fd, FolderIdentity identity)
      : fd_(fd), identity_(identity), buffer_(new char[kBufferSize]) {}
  ~PosixDirReader() override { close(fd_); }
  PosixDirReader(const PosixDirReader&) = delete;
  PosixDirReader& operator=(const PosixDirReader&) = delete;

  bool Next(DirEntry* out) override {
    for (;;) {
      if (offset_ >= filled_) {
        if (done_) return false;
        long n = syscall(SYS_getdents64, fd_, buffer_.get(), kBufferSize);
        if (n < 0) {
          if (errno == EINTR) continue;
          error_ = errno ? errno : EIO;
          done_ = true;
          return false;
        }
        if (n == 0) {
          done_ = true;
          return false;
        }
        filled_ = static_cast<size_t>(n);
        offset_ = 0;
      }
      auto* d = reinterpret_cast<const LinuxDirent64*>(buffer_.get() + offset_);
      offset_ += d->d_reclen;
      std::string_view name(d->d_name, strnlen(d->d_name, d->d_reclen));
      if (name == "." || name == "..") continue;
      out->name = name;
      out->type = FileTypeOfDirentType(d->d_type);
      out->inode = d->d_ino;
      return true;
    }
  }

  int error() const override { return error_; }
  FolderIdentity identity() const override { return identity_; }

  // The name still lies in the buffer, ended by its NUL, until the next getdents64.
  int StatEntry(const DirEntry& entry, bool follow, FileStatus* out) override {
    return StatPath(fd_, entry.name.data(), follow, out);
  }

 private:
  int fd_;
  FolderIdentity identity_;
  std::unique_ptr<char[]> buffer_;
  size_t filled_ = 0;
  size_t offset_ = 0;
  bool done_ = false;
  int error_ = 0;
};

class PosixDirSystem final : public DirSystem {
 public:
  int OpenDir(const std::string& path, bool follow_link, std::unique_ptr<DirReader>* out) override {
    // O_DIRECTORY makes the kernel refuse a FIFO or device before opening it, so a special
    // file can never block or wake a device here; O_NONBLOCK is the second guard.
    int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK | (follow_link ? 0 : O_NOFOLLOW);
    PathAnchor anchor(AT_FDCWD, path.c_str());
    if (anchor.error() != 0) return anchor.error();
    int fd;
    do {
      fd = openat(anchor.dir(), anchor.name(), flags);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return errno ? errno : EIO;
    struct statx sx {};
    if (statx(fd, "", AT_EMPTY_PATH, STATX_INO, &sx) != 0) {
      int err = errno ? errno : EIO;
      close(fd);
      return err;
    }
    // The same device encoding as StatPath, so identities and statuses can be compared.
    FolderIdentity id{(static_cast<uint64_t>(sx.stx_dev_major) << 32) | sx.stx_dev_minor, sx.stx_ino};
    *out = std::make_unique<PosixDirReader>(fd, id);
    return 0;
  }

  int Stat(const std::string& path, bool follow, FileStatus* out) override {
    return StatPath(AT_FDCWD, path, follow, out);
  }
};

}  // namespace

DirSystem& DefaultDirSystem() {
  static PosixDirSystem system;
  return system;
}

FileType FileTypeOfDirentType(unsigned char d_type) {
  switch (d_type) {
    case DT_REG: return FileType::kRegular;
    case DT_DIR: return FileType::kDirectory;
    case DT_LNK: return FileType::kSymlink;
    case DT_FIFO: return FileType::kFifo;
    case DT_SOCK: return FileType::kSocket;
    case DT_CHR: return FileType::kCharDevice;
    case DT_BLK: return FileType::kBlockDevice;
    default: return FileType::kUnknown;
  }
}

}  // namespace trovix::platform
