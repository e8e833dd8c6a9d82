// Reading one folder: the entries of a directory as the kernel lists them (openat +
// getdents64), in the kernel's order, with the type the listing knows (d_type) and the
// inode, so that the walk needs no stat for the common case. "." and ".." are never returned.
// Names are raw bytes: a name that is not valid UTF-8 is returned exactly as stored.
//
// `DirSystem` is the seam between the walk and the file system: the walk opens folders and
// asks for an item's status only through it, so tests can put a fault-injecting DirSystem
// in front of the real one (denied folders, vanishing entries, read errors) without needing
// an unprivileged user. The real one is `DefaultDirSystem()`.
//
// Thread-safety: a DirReader belongs to one thread at a time. A DirSystem is shared by the
// walk's reading threads: implementations must allow concurrent calls (the default one keeps
// no state). Failures are errno values (EACCES, ENOENT, ENOTDIR, ELOOP, EIO ...), never
// exceptions.
#pragma once

#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/file_status.h"

namespace trovix::platform {

struct DirEntry {
  std::string_view name;  // valid until the next call of Next on the same reader
  FileType type = FileType::kUnknown;  // kUnknown when the file system does not say
  uint64_t inode = 0;
};

// Which folder an open directory is, for loop detection: the same (device, inode) pair seen
// twice in one walk means a link has led back into a folder already entered.
struct FolderIdentity {
  uint64_t device = 0;
  uint64_t inode = 0;
  bool operator==(const FolderIdentity&) const = default;
};

class DirReader {
 public:
  virtual ~DirReader() = default;
  // The next entry: true with `*out` filled; false at the end or on a read error, which
  // error() then tells (0 at a clean end).
  virtual bool Next(DirEntry* out) = 0;
  virtual int error() const = 0;
  virtual FolderIdentity identity() const = 0;
  // The status of the entry the last Next returned (`follow`: through a final link), asked
  // relative to the open folder, which spares the kernel the walk down the whole path.
  // 0 or errno; ENOSYS when this reader cannot, and the caller asks by path later instead.
  virtual int StatEntry(const DirEntry& entry, bool follow, FileStatus* out) {
    (void)entry, (void)follow, (void)out;
    return ENOSYS;
  }
};

class DirSystem {
 public:
  virtual ~DirSystem() = default;
  // Opens the folder at `path` for listing. `follow_link`: when the last component is a
  // symbolic link it is followed; otherwise such a path fails with ELOOP or ENOTDIR, so
  // that a folder swapped for a link after it was listed is not entered by accident.
  // Returns 0 and sets `*out`, or the errno of the failure. Never opens a non-directory
  // (a FIFO or a device is refused with ENOTDIR without being opened).
  virtual int OpenDir(const std::string& path, bool follow_link, std::unique_ptr<DirReader>* out) = 0;
  // The status of `path`, following a final link when `follow` is set. 0 or errno.
  virtual int Stat(const std::string& path, bool follow, FileStatus* out) = 0;
};

// The real file system. Stateless and shared; lives for the whole process.
DirSystem& DefaultDirSystem();

// The listed type of a d_type value (DT_REG ...); kUnknown for DT_UNKNOWN and anything else.
FileType FileTypeOfDirentType(unsigned char d_type);

}  // namespace trovix::platform
