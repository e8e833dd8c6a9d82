// Named streams: the data that a file carries beside its contents. On this platform they are
// the extended attributes of the user namespace ("user.comment"), one stream per attribute;
// the other namespaces (security, system, trusted) hold what the system keeps about a file,
// not data of the user's, and are never listed as streams.
//
// `StreamSystem` is the seam between the stock properties and the file system, as DirSystem
// is for the walk. The real one is `DefaultStreamSystem()`; it keeps no state and may be called
// from any thread. Failures are errno values, never exceptions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace trovix::platform {

// One named stream: its name without the "user." prefix (raw bytes, as stored) and its size
// in bytes, or -1 when the size could not be had (the stream went away while listing).
struct NamedStream {
  std::string name;
  int64_t size = -1;
};

class StreamSystem {
 public:
  virtual ~StreamSystem() = default;
  // The named streams of `path`, in the order the file system lists them. `follow` follows a
  // final symbolic link. Regular files and folders are opened for reading first, so a file the
  // user may not read lists nothing (EACCES), exactly as its contents cannot be read; other
  // items are asked by path. 0 or the errno of the failure; ENOTSUP when the file system keeps
  // no such attributes (then the item simply has none).
  virtual int List(const std::string& path, bool follow, std::vector<NamedStream>* out) = 0;
  // Up to `limit` bytes of the stream `name` (without the "user." prefix). 0 or errno
  // (ENODATA when the item has no such stream).
  virtual int Read(const std::string& path, std::string_view name, bool follow, size_t limit,
                   std::string* out) = 0;
  // The allocation unit of the file system holding `path`: what one more byte can cost on
  // disk. 4096 when the file system will not say.
  virtual uint32_t ClusterSize(const std::string& path) = 0;
};

StreamSystem& DefaultStreamSystem();

}  // namespace trovix::platform
