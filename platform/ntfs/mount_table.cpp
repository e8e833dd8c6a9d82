#include "platform/ntfs/mount_table.h"

#include <algorithm>

#include "base/file_name.h"

namespace trovix::platform::ntfs {
bool MayBeNtfs(const MountEntry& mount) {
  return mount.fs_type == "ntfs3" || mount.fs_type == "ntfs" || mount.fs_type == "fuseblk";
}

bool IsUnder(std::string_view path, std::string_view folder) { return IsAtOrBelow(path, folder); }

std::string PathBelow(std::string_view path, std::string_view folder) {
  if (folder != "/") path.remove_prefix(std::min(folder.size(), path.size()));
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path.empty() ? std::string(1, '/') : std::string(path);
}

std::string JoinPath(std::string_view folder, std::string_view below) {
  if (folder.empty() || folder == "/") return std::string(below.empty() ? "/" : below);
  std::string out(folder);
  if (below != "/") out.append(below);
  return out;
}

const MountEntry* FindMount(const std::vector<MountEntry>& mounts, std::string_view path) {
  const MountEntry* best = nullptr;
  for (const MountEntry& m : mounts) {
    if (!IsUnder(path, m.mount_point)) continue;
    if (best == nullptr || m.mount_point.size() >= best->mount_point.size()) best = &m;
  }
  return best;
}

}  // namespace trovix::platform::ntfs
