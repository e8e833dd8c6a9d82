// What the file system says about one path: a thin layer over statx(2), and the mapping of
// that answer onto the platform-neutral file-attribute word the rest of Trovix speaks.
//
// Linux counterparts of the attribute bits:
//   DIRECTORY      a directory (or, when links are followed, a link to one)
//   HIDDEN         the name begins with "."
//   READONLY       nobody has write permission (mode & 0222 == 0)
//   SYSTEM         a special file: FIFO, socket, character or block device
//   REPARSE_POINT  a symbolic link (the item itself, not followed)
//   COMPRESSED     statx reports STATX_ATTR_COMPRESSED
//   ENCRYPTED      statx reports STATX_ATTR_ENCRYPTED
//   SPARSE_FILE    a regular file that occupies fewer blocks than its size needs
//   ARCHIVE, OFFLINE, NOT_CONTENT_INDEXED, TEMPORARY have no counterpart and stay clear.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/file_time.h"

namespace trovix::platform {

// File attribute bits (the platform's FILE_ATTRIBUTE_* values).
enum FileAttribute : uint32_t {
  FILE_ATTRIBUTE_READONLY = 0x1,
  FILE_ATTRIBUTE_HIDDEN = 0x2,
  FILE_ATTRIBUTE_SYSTEM = 0x4,
  FILE_ATTRIBUTE_DIRECTORY = 0x10,
  FILE_ATTRIBUTE_ARCHIVE = 0x20,
  FILE_ATTRIBUTE_DEVICE = 0x40,
  FILE_ATTRIBUTE_NORMAL = 0x80,
  FILE_ATTRIBUTE_TEMPORARY = 0x100,
  FILE_ATTRIBUTE_SPARSE_FILE = 0x200,
  FILE_ATTRIBUTE_REPARSE_POINT = 0x400,
  FILE_ATTRIBUTE_COMPRESSED = 0x800,
  FILE_ATTRIBUTE_OFFLINE = 0x1000,
  FILE_ATTRIBUTE_NOT_CONTENT_INDEXED = 0x2000,
  FILE_ATTRIBUTE_ENCRYPTED = 0x4000,
};
// Cache sentinels of the attribute word.
inline constexpr uint32_t kAttributesNotAsked = 0xDEADBEEF;
inline constexpr uint32_t kAttributesUnknown = 0xFFFFFFFF;

enum class FileType : uint8_t { kUnknown, kRegular, kDirectory, kSymlink, kFifo, kSocket, kCharDevice, kBlockDevice };

struct FileStatus {
  FileType type = FileType::kUnknown;
  uint32_t mode = 0;          // permission bits and type, as st_mode
  uint64_t size = 0;          // bytes
  uint64_t allocated = 0;     // bytes actually allocated (blocks x 512)
  uint64_t device = 0;
  uint64_t inode = 0;
  uint32_t links = 0;
  uint32_t uid = 0;
  uint32_t gid = 0;
  uint32_t block_size = 0;    // preferred I/O size; stands in for the cluster size
  base::FileTime modified = 0;
  base::FileTime accessed = 0;
  base::FileTime changed = 0;
  // Birth time when the file system reports one; otherwise the earlier of the
  // modification and change times, the best this platform knows of a creation time.
  base::FileTime created = 0;
  bool compressed = false;
  bool encrypted = false;

  bool IsDirectory() const { return type == FileType::kDirectory; }
  bool IsSymlink() const { return type == FileType::kSymlink; }
  bool IsSpecial() const {
    return type == FileType::kFifo || type == FileType::kSocket || type == FileType::kCharDevice ||
           type == FileType::kBlockDevice;
  }
};

// statx of `path` relative to `dir_fd` (AT_FDCWD for an absolute or working-folder path).
// `follow` follows a final symbolic link. Returns 0, or the errno of the failure.
int StatPath(int dir_fd, const std::string& path, bool follow, FileStatus* out);
int StatPath(int dir_fd, const char* path, bool follow, FileStatus* out);

// The target a symbolic link points to, as stored (raw bytes); false when `path` is no link.
bool ReadLinkTarget(const std::string& path, std::string* target);

// The login name of a user id; its decimal number when the user is unknown.
std::string UserName(uint32_t uid);

// The attribute word of an item with this status and (last path component) name.
uint32_t FileAttributesOf(const FileStatus& status, std::string_view name);

}  // namespace trovix::platform
