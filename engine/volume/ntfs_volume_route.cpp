#include "engine/volume/ntfs_volume_route.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
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
// `shown` (when given) is what the scope folder is shown as instead: a root reached through a
// symbolic link keeps the path it was given, as the walk from it shows its items.
int64_t ScanMount(const MountEntry& mount, const std::string& scope_in_volume, rules::RuleSet& rule_set,
                  int hidden_mode, ResultSink& sink, std::stop_token stop, bool* stopped,
                  const std::string& shown = {}) {
  platform::ntfs::MftReader reader;
  if (reader.Open(mount.source) != 0) return -1;
  VolumeScanScope scope;
  scope.mounted_folder = shown.empty() ? mount.root : scope_in_volume;
  scope.shown_root = shown.empty() ? mount.mount_point : shown;
  scope.scope = scope_in_volume;
  return ScanOpenVolume(reader, rule_set, scope, hidden_mode, sink, stop, stopped);
}

// The folder `root` names once its symbolic links are followed, when it lies on a file system
// that answers (resolving a path asks each of its steps, which a network mount whose server
// is gone would never answer); `root` itself otherwise.
std::string FollowedRoot(const std::vector<MountEntry>& mounts, const std::string& root) {
  const MountEntry* lexical = platform::ntfs::FindMount(mounts, root);
  if (lexical == nullptr || platform::ntfs::MayBeNtfs(*lexical) || platform::FileSystemMayStopAnswering(lexical->fs_type))
    return root;
  char* real = ::realpath(root.c_str(), nullptr);
  if (real == nullptr) return root;
  std::string followed(real);
  std::free(real);
  return followed;
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
  // A root reached through a symbolic link into the volume is the volume's folder it leads to.
  const std::string folder = FollowedRoot(mounts, root);
  const MountEntry* mount = platform::ntfs::FindMount(mounts, folder);
  if (mount == nullptr || !platform::ntfs::MayBeNtfs(*mount)) return -1;
  // The root as a path inside the volume: the mounted folder, then the part below the mount point.
  const std::string below = platform::ntfs::PathBelow(folder, mount->mount_point);
  std::string scope = mount->root == "/" ? below : platform::ntfs::JoinPath(mount->root, below);
  return ScanMount(*mount, scope, rule_set, hidden_mode, sink, stop, nullptr, folder == root ? std::string() : root);
}

}  // namespace trovix::engine
