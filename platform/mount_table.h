// Which mounted file systems may stop answering: network file systems and FUSE file systems,
// whose server can go away and leave every stat and every listing below them waiting for
// minutes. A walk reads folders there under a time-out (engine/walk/folder_read_ahead.h).
//
// The table is read from /proc/self/mountinfo, which the kernel answers from its own mount
// list without asking any file system: finding out never waits on the mounts in question.
// Where that file cannot be read the table is empty and nothing is guarded.
//
// Thread-safety: a MountTable is a value; const use from any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace trovix::platform {

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
