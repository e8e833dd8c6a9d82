// Reading a file that the user names as input (a rules file, the settings file): only a regular
// file of bounded size is read. A FIFO, a socket or a device is refused before a single byte is
// read, so that a name like /dev/zero or a pipe nobody writes to gives an error at once instead
// of a hang or a read without end.
//
// Stateless; thread-safe.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <string>

namespace trovix::platform {

// The most any input file may hold.
inline constexpr size_t kInputFileSizeLimit = 16u << 20;

// What ReadRegularFile answers for a path that names something other than a regular file or a
// folder. Not an errno of any call it makes, so it cannot be mistaken for one.
inline constexpr int kNotRegularFile = -1;

// Whether a symbolic link at the path itself is followed or refused (ELOOP).
enum class Links { kFollow, kRefuse };

// Opens `path` for reading without ever waiting: a FIFO nobody writes to, or a device, cannot
// block the open, and is then refused. Returns 0 with the descriptor (close-on-exec) in *fd and
// its status in *st, or ENOENT, EISDIR for a folder, kNotRegularFile for a FIFO, socket or
// device, or the errno of the open that failed; *fd is -1 then. The descriptor stays in
// non-blocking mode, which changes nothing for a regular file.
int OpenRegularFile(const std::string& path, int* fd, struct stat* st, Links links = Links::kFollow);

// Reads the whole file into *bytes. Returns 0, ENOENT for a missing file, EISDIR for a folder,
// kNotRegularFile for a FIFO, socket or device, EFBIG for more than `limit` bytes (also when it
// grows past the limit while being read), or the errno of the open or read that failed.
int ReadRegularFile(const std::string& path, std::string* bytes, size_t limit = kInputFileSizeLimit,
                    Links links = Links::kFollow);

// Asks of a file what reading its properties asks first: opens it without waiting, reads its
// first byte and lists its extended attributes. 0, or the errno of the open; anything but a
// regular file answers 0 without being read. For a probe under a time-out, of a file on a
// mount whose server may be gone.
int ProbeRegularFile(const std::string& path);

// A few words for messages: "is not a regular file", "is larger than 16 MiB", strerror's text.
std::string DescribeReadError(int error, size_t limit = kInputFileSizeLimit);

}  // namespace trovix::platform
