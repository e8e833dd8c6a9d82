#include "extract/properties/iso_boxes.h"

#include <fcntl.h>
#include <unistd.h>

namespace trovix::extract {
namespace {

// Reads `n` bytes at `offset` of the input; fewer at its end.
std::string ReadAt(const DocumentInput& input, int fd, uint64_t offset, uint64_t n) {
  if (input.in_memory()) {
    if (offset >= input.bytes->size()) return {};
    return input.bytes->substr(offset, n);
  }
  std::string out(n, '\0');
  size_t got = 0;
  while (got < n) {
    const ssize_t r = ::pread(fd, out.data() + got, n - got, static_cast<off_t>(offset + got));
    if (r <= 0) break;
    got += static_cast<size_t>(r);
  }
  out.resize(got);
  return out;
}

}  // namespace

bool ReadTopLevelBox(const DocumentInput& input, std::string_view type, uint64_t max_bytes, std::string* contents) {
  int fd = -1;
  uint64_t file_size = 0;
  if (input.in_memory()) {
    file_size = input.bytes->size();
  } else {
    fd = ::open(input.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    const off_t end = ::lseek(fd, 0, SEEK_END);
    file_size = end > 0 ? static_cast<uint64_t>(end) : 0;
  }
  bool found = false;
  for (uint64_t at = 0; at + 8 <= file_size;) {
    const std::string header = ReadAt(input, fd, at, 16);
    if (header.size() < 8) break;
    const auto* p = reinterpret_cast<const unsigned char*>(header.data());
    uint64_t box = BigEndian(p, 4), head = 8;
    if (box == 1 && header.size() == 16) {
      box = BigEndian(p + 8, 8);
      head = 16;
    } else if (box == 0) {
      box = file_size - at;
    }
    if (box < head || box > file_size - at) break;
    if (std::string_view(header).substr(4, 4) == type) {
      if (box - head <= max_bytes) {
        *contents = ReadAt(input, fd, at + head, box - head);
        found = contents->size() == box - head;
      }
      break;
    }
    at += box;
  }
  if (fd >= 0) ::close(fd);
  return found;
}

}  // namespace trovix::extract
