// The volume table scan route on Linux: a root on a mounted NTFS volume (the ntfs3 or ntfs
// kernel driver, or ntfs-3g through FUSE) is answered from the volume's master file table,
// read from its block device. Reading the device is what "elevated" means here: without the
// right to open it the route refuses (-1) and the search goes on to the index and the walk.
//
// Holds no state between calls: the mount table is read afresh, since volumes come and go.
// Called on the search's worker thread.
#pragma once

#include <functional>
#include <vector>

#include "engine/search/search_routes.h"
#include "platform/ntfs/mount_table.h"

namespace trovix::engine {

class NtfsVolumeScan : public VolumeScanRoute {
 public:
  using MountSource = std::function<std::vector<platform::ntfs::MountEntry>()>;
  // Reads the process's mount table; tests hand in their own, with images as devices.
  explicit NtfsVolumeScan(MountSource mounts = platform::ntfs::ReadMountTable) : mounts_(std::move(mounts)) {}

  // True when at least one mounted NTFS volume's device can be opened for reading.
  bool Allowed() override;
  // A root on a readable NTFS volume is scanned; an empty root (the computer) scans every
  // readable NTFS volume once, and is refused only when there is none. Paths are reported
  // through the mount point, and only those under the root.
  int64_t ScanVolumeTable(rules::RuleSet& rule_set, const std::string& root, int hidden_mode, ResultSink& sink,
                          std::stop_token stop) override;

 private:
  MountSource mounts_;
};

}  // namespace trovix::engine
