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
  // The kernel's number of this mount, never given to another while the system runs: the same
  // number at the same place is the same file system (a device number is handed out again).
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

}  // namespace trovix::platform
