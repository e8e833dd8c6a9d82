#include "extract/properties/mp4_frame_size.h"

#include <fcntl.h>
#include <unistd.h>

#include <string>

namespace trovix::extract {
namespace {

// A movie box larger than this is not read (real ones are kilobytes to a few megabytes).
constexpr uint64_t kMaxMovieBytes = 64ull << 20;

uint64_t Be(const unsigned char* p, int n) {
  uint64_t v = 0;
  for (int i = 0; i < n; ++i) v = (v << 8) | p[i];
  return v;
}

// Calls visit(type, contents) for each box of `data`; stops at a box that does not fit.
template <typename Visit>
void ForEachBox(std::string_view data, Visit visit) {
  size_t at = 0;
  while (data.size() - at >= 8) {
    const auto* p = reinterpret_cast<const unsigned char*>(data.data() + at);
    uint64_t size = Be(p, 4);
    size_t header = 8;
    if (size == 1) {
      if (data.size() - at < 16) return;
      size = Be(p + 8, 8);
      header = 16;
    } else if (size == 0) {
      size = data.size() - at;
    }
    if (size < header || size > data.size() - at) return;
    if (!visit(std::string_view(data.data() + at + 4, 4), data.substr(at + header, size - header))) return;
    at += size;
  }
}

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

bool FrameSizeInMovie(std::string_view moov, FrameSize* size) {
  bool found = false;
  ForEachBox(moov, [&](std::string_view type, std::string_view trak) {
    if (type != "trak") return true;
    FrameSize track;
    bool video = false;
    ForEachBox(trak, [&](std::string_view t, std::string_view body) {
      if (t == "tkhd" && body.size() >= 84) {
        // Width and height close the track header, as 16.16 fixed-point numbers.
        const auto* end = reinterpret_cast<const unsigned char*>(body.data() + body.size());
        track.width = static_cast<uint32_t>(Be(end - 8, 4) >> 16);
        track.height = static_cast<uint32_t>(Be(end - 4, 4) >> 16);
      } else if (t == "mdia") {
        ForEachBox(body, [&](std::string_view m, std::string_view hdlr) {
          if (m == "hdlr" && hdlr.size() >= 12 && hdlr.substr(8, 4) == "vide") video = true;
          return true;
        });
      }
      return true;
    });
    if (video && track.width > 0 && track.height > 0) {
      *size = track;
      found = true;
      return false;
    }
    return true;
  });
  return found;
}

bool ReadMp4FrameSize(const DocumentInput& input, FrameSize* size) {
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
  // Top-level boxes, header by header: the media data in between is never read.
  for (uint64_t at = 0; at + 8 <= file_size && !found;) {
    const std::string header = ReadAt(input, fd, at, 16);
    if (header.size() < 8) break;
    const auto* p = reinterpret_cast<const unsigned char*>(header.data());
    uint64_t box = Be(p, 4), head = 8;
    if (box == 1 && header.size() == 16) {
      box = Be(p + 8, 8);
      head = 16;
    } else if (box == 0) {
      box = file_size - at;
    }
    if (box < head || box > file_size - at) break;
    if (header.compare(4, 4, "moov") == 0) {
      if (box - head <= kMaxMovieBytes) found = FrameSizeInMovie(ReadAt(input, fd, at + head, box - head), size);
      break;
    }
    at += box;
  }
  if (fd >= 0) ::close(fd);
  return found;
}

}  // namespace trovix::extract
