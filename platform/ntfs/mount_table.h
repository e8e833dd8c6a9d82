// Which NTFS volumes are mounted, and where: read from the kernel's mount table
// (/proc/self/mountinfo), so that a folder can be traced to the block device that holds it.
//
// Stateless; thread-safe.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace trovix::platform::ntfs {

struct MountEntry {
  std::string root;         // the folder of the file system that is mounted ("/" for all of it)
  std::string mount_point;  // where it is mounted
  std::string fs_type;
  std::string source;       // the device, for block file systems
};

// Parses mountinfo text; lines that do not have its shape are skipped. Octal escapes of
// blanks and backslashes ("\040") are undone.
std::vector<MountEntry> ParseMountInfo(std::string_view text);

// The mounts of this process (empty when the table cannot be read).
std::vector<MountEntry> ReadMountTable();

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
