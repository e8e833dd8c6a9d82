// Feeds arbitrary bytes to the NTFS table reader as a whole volume image: the boot sector, the
// table's own record and run list, the attribute lists and every record after them, read the
// way a scan of a device reads them. The image is an in-memory file, so reads past its end come
// back short as they would from a damaged disk. A boot sector may claim a table of billions of
// records; the scan is ended after a bounded number of positions so that each input stays
// quick (the reader's own bounds are what is tested, not the visitor's patience).
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/ntfs/mft_reader.h"

namespace {

constexpr uint64_t kMaxPositions = 4096;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const int fd = memfd_create("ntfs-image", MFD_CLOEXEC);
  if (fd < 0) return 0;
  size_t written = 0;
  while (written < size) {
    const ssize_t n = write(fd, data + written, size - written);
    if (n <= 0) break;
    written += static_cast<size_t>(n);
  }
  if (written == size) {
    trovix::platform::ntfs::MftReader reader;
    if (reader.Open("/proc/self/fd/" + std::to_string(fd)) == 0) {
      uint64_t positions = 0;
      uint64_t names = 0;
      reader.Scan([&](uint64_t, const std::vector<trovix::platform::ntfs::VolumeRecord>& found) {
        names += found.size();
        return ++positions < kMaxPositions;
      });
      // Records asked for by number, as the scan's follow-ups do: the first ones, one past the
      // end, and the last.
      trovix::platform::ntfs::FileRecord record;
      for (uint64_t number : {uint64_t{0}, uint64_t{5}, reader.record_count(), reader.record_count() - 1})
        reader.ReadRecord(number, &record);
    }
  }
  close(fd);
  return 0;
}
