// Which file system a path lies on, and how to know that file system again wherever it is
// mounted next: the removable and network drives of the index come and go, and their
// catalogues follow them by this identity, not by the folder they happened to be mounted on.
//
// On Linux a mounted file system is a line of the mount table (platform/mount_table.h); its
// identity is the UUID that blkid reads from its superblock (ext*,
// vfat's volume serial, btrfs, xfs ...) and, for those without one (tmpfs, most network and
// FUSE file systems) or when the device cannot be read, "fsid:" and the statfs file-system id.
// A Windows port answers the same questions with volume GUIDs and volume mount points.
//
// Plain functions; each call reads the system afresh (a mount may have changed in between).
// Safe from any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/mount_table.h"

namespace trovix::platform {

// The mount of `table` whose files carry `device`; the last one listed when several do (a
// bind mount repeats its file system). Null when none does.
const MountEntry* FindMountByDevice(const std::vector<MountEntry>& table, uint64_t device);
// The mount whose mount point is exactly `path` (the last one: it hides the others). Null
// when nothing is mounted there.
const MountEntry* FindMountAt(const std::vector<MountEntry>& table, std::string_view path);

// The identity of a mounted file system: "uuid:" and the UUID blkid reads from its device,
// else "fsid:" and the statfs id of its mount point; empty when neither can be had.
std::string VolumeIdentity(const MountEntry& volume);

// The number of the mount at `volume.mount_point` that the kernel never gives to another mount
// while it runs, so that the same number at the same place is the same file system; 0 where the
// kernel does not tell it (before Linux 6.8), or for a file system that may stop answering
// (it is not asked). The table's mount_id and device numbers are both reused by the next drive.
int64_t UniqueMountId(const MountEntry& volume);

// Whether the file system keeps an item's inode number from one mount to the next. FAT and
// exFAT make them up at each mount, so an inode there says nothing about a remounted item.
bool KeepsInodeNumbers(std::string_view fs_type);

}  // namespace trovix::platform
