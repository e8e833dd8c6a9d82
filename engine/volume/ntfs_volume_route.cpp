#include "engine/volume/ntfs_volume_route.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "engine/volume/volume_table_scan.h"
#include "platform/ntfs/mount_table.h"

namespace trovix::engine {
namespace {

using platform::ntfs::MountEntry;

bool CanRead(const std::string& device) {
  if (device.empty() || device[0] != '/') return false;
  int fd = ::open(device.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  ::close(fd);
  return true;
}

// Scans the volume of one mount, showing its paths through the mount point. -1 when the
// device cannot be read as NTFS (a FUSE mount of something else, or no right to read it).
int64_t ScanMount(const MountEntry& mount, const std::string& scope_in_volume, rules::RuleSet& rule_set,
                  int hidden_mode, ResultSink& sink, std::stop_token stop, bool* stopped) {
  platform::ntfs::MftReader reader;
  if (reader.Open(mount.source) != 0) return -1;
  VolumeScanScope scope;
  scope.mounted_folder = mount.root;
  scope.shown_root = mount.mount_point;
  scope.scope = scope_in_volume;
  return ScanOpenVolume(reader, rule_set, scope, hidden_mode, sink, stop, stopped);
}

}  // namespace

bool NtfsVolumeScan::Allowed() {
  for (const MountEntry& m : mounts_())
    if (platform::ntfs::MayBeNtfs(m) && CanRead(m.source)) return true;
  return false;
}

int64_t NtfsVolumeScan::ScanVolumeTable(rules::RuleSet& rule_set, const std::string& root, int hidden_mode,
                                        ResultSink& sink, std::stop_token stop) {
  const std::vector<MountEntry> mounts = mounts_();
  if (root.empty()) {
    // Each volume once, however often it is mounted: through its first whole-volume mount.
    std::vector<std::string> done;
    int64_t count = -1;
    for (const MountEntry& m : mounts) {
      if (!platform::ntfs::MayBeNtfs(m) || m.root != "/") continue;
      if (std::find(done.begin(), done.end(), m.source) != done.end()) continue;
      bool stopped = false;
      const int64_t n = ScanMount(m, "/", rule_set, hidden_mode, sink, stop, &stopped);
      if (n < 0) continue;
      done.push_back(m.source);
      count = std::max<int64_t>(count, 0) + n;
      if (stopped) break;
    }
    return count;
  }
  if (root[0] != '/') return -1;
  const MountEntry* mount = platform::ntfs::FindMount(mounts, root);
  if (mount == nullptr || !platform::ntfs::MayBeNtfs(*mount)) return -1;
  // The root as a path inside the volume: the mounted folder, then the part below the mount point.
  const std::string below = platform::ntfs::PathBelow(root, mount->mount_point);
  std::string scope = mount->root == "/" ? below : platform::ntfs::JoinPath(mount->root, below);
  return ScanMount(*mount, scope, rule_set, hidden_mode, sink, stop, nullptr);
}

}  // namespace trovix::engine
