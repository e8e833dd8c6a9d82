// Which NTFS volumes are mounted, and where: read from the kernel's mount table
// (platform/mount_table.h), so that a folder can be traced to the block device that holds it.
//
// Stateless; thread-safe.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/mount_table.h"

namespace trovix::platform::ntfs {

// The mount table itself is the platform's; the volume scan reads it under these names.
using platform::MountEntry;
using platform::ParseMountInfo;
using platform::ReadMountTable;

// Whether the mount may be an NTFS volume: the kernel drivers by name, and the FUSE driver
// ("fuseblk"), which does not say which file system it serves; its device's boot sector
// settles that when it is read.
bool MayBeNtfs(const MountEntry& mount);

// The mount holding `path` (an absolute path without "." or ".." steps): the one with the
// longest mount point above it, the latest mounted on a tie. Null when none holds it.
const MountEntry* FindMount(const std::vector<MountEntry>& mounts, std::string_view path);

// The part of `path` below `folder` (which holds it), "/"-led, without a trailing "/": "/" for
// the folder itself.
std::string PathBelow(std::string_view path, std::string_view folder);

// `folder` and a path below it ("/" or "/x/y") joined into one path.
std::string JoinPath(std::string_view folder, std::string_view below);

// Whether `path` is `folder` or lies below it ("/a/b" is under "/a", "/ab" is not).
bool IsUnder(std::string_view path, std::string_view folder);

}  // namespace trovix::platform::ntfs
