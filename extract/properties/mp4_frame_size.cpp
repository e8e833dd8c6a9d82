#include "extract/properties/mp4_frame_size.h"

#include <string>

#include "extract/properties/iso_boxes.h"

namespace trovix::extract {
namespace {

// A movie box larger than this is not read (real ones are kilobytes to a few megabytes).
constexpr uint64_t kMaxMovieBytes = 64ull << 20;

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
        track.width = static_cast<uint32_t>(BigEndian(end - 8, 4) >> 16);
        track.height = static_cast<uint32_t>(BigEndian(end - 4, 4) >> 16);
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
  std::string moov;
  return ReadTopLevelBox(input, "moov", kMaxMovieBytes, &moov) && FrameSizeInMovie(moov, size);
}

}  // namespace trovix::extract
