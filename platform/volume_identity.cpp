#include "platform/volume_identity.h"

#include <cstdio>

#ifdef __linux__
#include <blkid/blkid.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statfs.h>

// Linux 6.8's unique mount number, newer than this system's headers.
#ifndef STATX_MNT_ID_UNIQUE
#define STATX_MNT_ID_UNIQUE 0x00004000U
#endif
#endif

namespace trovix::platform {
namespace {

// mountinfo writes a space, tab, newline or backslash of a path as "\" and three octal digits.
#ifdef __linux__
// The UUID in the file system's superblock, when its device can be read (root, or a disk
// group member, usually).
std::string ProbeUuid(const std::string& source) {
  if (source.rfind("/dev/", 0) != 0) return {};
  blkid_probe probe = blkid_new_probe_from_filename(source.c_str());
  if (probe == nullptr) return {};
  blkid_probe_enable_superblocks(probe, 1);
  blkid_probe_set_superblocks_flags(probe, BLKID_SUBLKS_UUID);
  std::string uuid;
  const char* value = nullptr;
  size_t length = 0;
  if (blkid_do_safeprobe(probe) == 0 && blkid_probe_lookup_value(probe, "UUID", &value, &length) == 0 &&
      value != nullptr)
    uuid.assign(value);  // the length blkid gives counts the closing NUL
  blkid_free_probe(probe);
  return uuid;
}
#endif

}  // namespace

const MountEntry* FindMountByDevice(const std::vector<MountEntry>& table, uint64_t device) {
  const MountEntry* found = nullptr;
  for (const MountEntry& v : table)
    if (v.device == device) found = &v;
  return found;
}

const MountEntry* FindMountAt(const std::vector<MountEntry>& table, std::string_view path) {
  const MountEntry* found = nullptr;
  for (const MountEntry& v : table)
    if (v.mount_point == path) found = &v;
  return found;
}

std::string VolumeIdentity(const MountEntry& volume) {
#ifdef __linux__
  if (std::string uuid = ProbeUuid(volume.source); !uuid.empty()) return "uuid:" + uuid;
  struct statfs fs {};
  if (::statfs(volume.mount_point.c_str(), &fs) == 0) {
    unsigned words[2];
    static_assert(sizeof words == sizeof fs.f_fsid);
    __builtin_memcpy(words, &fs.f_fsid, sizeof words);
    if (words[0] != 0 || words[1] != 0) {
      char text[32];
      std::snprintf(text, sizeof text, "fsid:%08x%08x", words[0], words[1]);
      return text;
    }
  }
#else
  (void)volume;
#endif
  return {};
}

int64_t UniqueMountId(const MountEntry& volume) {
#ifdef __linux__
  if (FileSystemMayStopAnswering(volume.fs_type)) return 0;
  struct statx st {};
  if (::statx(AT_FDCWD, volume.mount_point.c_str(), AT_STATX_DONT_SYNC | AT_NO_AUTOMOUNT | AT_SYMLINK_NOFOLLOW,
              STATX_MNT_ID_UNIQUE, &st) != 0 ||
      !(st.stx_mask & STATX_MNT_ID_UNIQUE))
    return 0;
  return static_cast<int64_t>(st.stx_mnt_id);
#else
  (void)volume;
  return 0;
#endif
}

bool KeepsInodeNumbers(std::string_view fs_type) {
  // FAT through FUSE numbers its items anew at each mount as the kernel's driver does.
  if (fs_type.substr(0, 5) == "fuse.") fs_type.remove_prefix(5);
  return fs_type != "vfat" && fs_type != "msdos" && fs_type != "exfat" && fs_type != "fat" && fs_type != "fusefat";
}

}  // namespace trovix::platform
