#include "platform/change_events.h"

#include <sys/vfs.h>

#include <cstdint>

namespace trovix::platform {
namespace {

struct Kind {
  uint32_t magic;
  const char* name;
};

// The kernel's magic numbers of file systems without events for changes made elsewhere
// (linux/magic.h and the file systems' own headers, which do not all publish them).
constexpr Kind kWithoutEvents[] = {
    {0x6969, "nfs"},        {0x517B, "smb"},          {0xFF534D42, "cifs"}, {0xFE534D42, "smb2"},
    {0x65735546, "fuse"},   {0x01021997, "9p"},       {0x00C36400, "ceph"}, {0x5346414F, "afs"},
    {0x6B414653, "afs"},    {0x73757245, "coda"},     {0x47504653, "gpfs"}, {0x0BD00BD0, "lustre"},
    {0x786F4256, "vboxsf"}, {0x19830326, "fhgfs"},
};

}  // namespace

bool HasChangeEvents(const std::string& path, std::string* kind) {
  struct statfs fs {};
  if (::statfs(path.c_str(), &fs) != 0) return true;
  const auto magic = static_cast<uint32_t>(fs.f_type);
  for (const Kind& k : kWithoutEvents) {
    if (k.magic != magic) continue;
    if (kind != nullptr) *kind = k.name;
    return false;
  }
  return true;
}

}  // namespace trovix::platform
