// The box structure of ISO base media files (MP4, QuickTime, HEIF): each box a 32-bit size
// (1: a 64-bit size follows the type; 0: to the end), a four-letter type and its contents.
// Shared by the readers that take one box out of such a file without reading the rest.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "extract/document_input.h"

namespace trovix::extract {

inline uint64_t BigEndian(const unsigned char* p, int n) {
  uint64_t v = 0;
  for (int i = 0; i < n; ++i) v = (v << 8) | p[i];
  return v;
}

// Calls visit(type, contents) for each box of `data` until it returns false; stops at a box
// that does not fit.
template <typename Visit>
void ForEachBox(std::string_view data, Visit visit) {
  size_t at = 0;
  while (data.size() - at >= 8) {
    const auto* p = reinterpret_cast<const unsigned char*>(data.data() + at);
    uint64_t size = BigEndian(p, 4);
    size_t header = 8;
    if (size == 1) {
      if (data.size() - at < 16) return;
      size = BigEndian(p + 8, 8);
      header = 16;
    } else if (size == 0) {
      size = data.size() - at;
    }
    if (size < header || size > data.size() - at) return;
    if (!visit(std::string_view(data.data() + at + 4, 4), data.substr(at + header, size - header))) return;
    at += size;
  }
}

// The contents of the first top-level box of `type` in the input, read alone: the boxes
// before it are skipped header by header (media data is never read). False when there is
// none, or it is larger than `max_bytes`.
bool ReadTopLevelBox(const DocumentInput& input, std::string_view type, uint64_t max_bytes, std::string* contents);

}  // namespace trovix::extract
