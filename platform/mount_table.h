// The kernel's table of mounted file systems (/proc/self/mountinfo): where each is mounted,
// which folder of it, its type, its source and the device number its files carry.
//
// Stateless; thread-safe.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace trovix::platform {

struct MountEntry {
  std::string root;         // the folder of the file system that is mounted ("/" for all of it)
  std::string mount_point;  // where it is mounted
  std::string fs_type;
  std::string source;       // the device, for block file systems
  uint64_t device = 0;      // its files' device number as FileStatus::device gives it (major << 32 | minor)
  // The kernel's number of this mount in the table. It is handed out again once the mount is
  // gone, as device numbers are: the next drive mounted at the same place may well get both
  // (UniqueMountId in volume_identity.h is the number that is never reused).
  int64_t mount_id = 0;
};

// Parses mountinfo text; lines that do not have its shape are skipped. Octal escapes of
// blanks and backslashes ("\040") are undone.
std::vector<MountEntry> ParseMountInfo(std::string_view text);

// The mounts of this process, in the order the kernel lists them (a later mount at the same
// place hides an earlier one); empty when the table cannot be read.
std::vector<MountEntry> ReadMountTable();

// Tells when the mount table has changed (a drive mounted, unmounted or moved): the kernel
// marks an open mount table file when it does. One holder; not shared between threads.
class MountTableWatch {
 public:
  MountTableWatch();
  ~MountTableWatch();
  MountTableWatch(const MountTableWatch&) = delete;
  MountTableWatch& operator=(const MountTableWatch&) = delete;

  // Whether the table changed since the last call (or since the watch was made); never waits.
  // False when the table cannot be watched at all.
  bool Changed();

 private:
  int fd_ = -1;
};


// Which mounted file systems may stop answering: network file systems and FUSE file systems,
// whose server can go away and leave every stat and every listing below them waiting for
// minutes. A walk reads folders there under a time-out (engine/walk/folder_read_ahead.h).
// Finding out reads only the kernel's table, so it never waits on the mounts in question;
// where the table cannot be read nothing is guarded.
class MountTable {
 public:
  // The mounts this process sees now.
  static MountTable Read();
  // From the text of a mountinfo file (tests).
  static MountTable Parse(std::string_view mountinfo);

  // Whether `path` (absolute, as the walk spells it) is the mount point of such a file
  // system or lies below one.
  bool MayStopAnswering(std::string_view path) const;
  // Whether `path` is itself the mount point of such a file system: listing its parent asks
  // nothing of it, but a status of the item does.
  bool IsMountPoint(std::string_view path) const;
  // The mount point of such a file system that `path` lies at or below (the deepest one), or
  // nothing.
  std::string_view MountPointOf(std::string_view path) const;
  bool empty() const { return points_.empty(); }
  const std::vector<std::string>& points() const { return points_; }

 private:
  std::vector<std::string> points_;  // mount points of file systems that may stop answering
};

// Whether a file-system type (mountinfo's, e.g. "nfs4", "fuse.sshfs") is one whose server may
// stop answering.
bool FileSystemMayStopAnswering(std::string_view fs_type);

}  // namespace trovix::platform
