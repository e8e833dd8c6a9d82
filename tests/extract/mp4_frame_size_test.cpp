#include "extract/properties/mp4_frame_size.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/temp_tree.h"

namespace trovix::extract {
namespace {

std::string Be32(uint32_t v) {
  return {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8), static_cast<char>(v)};
}

std::string Box(const char* type, const std::string& body) { return Be32(static_cast<uint32_t>(8 + body.size())) + type + body; }

// A track: its header (84 bytes, the size at its end as 16.16) and its handler type.
std::string Track(uint32_t width, uint32_t height, const char* handler) {
  std::string tkhd(76, '\0');
  tkhd += Be32(width << 16) + Be32(height << 16);
  std::string hdlr = std::string(8, '\0') + handler + std::string(12, '\0');
  return Box("trak", Box("tkhd", tkhd) + Box("mdia", Box("hdlr", hdlr)));
}

// The first video track's size, wherever the movie box stands; the sound track before it and
// the media data are passed over; broken boxes give nothing, never a read past the end.
TEST(Mp4FrameSize, TakesTheFirstVideoTrackWhereverTheMovieBoxIs) {
  const std::string moov = Box("moov", Box("mvhd", std::string(100, '\0')) + Track(0, 0, "soun") +
                                           Track(1920, 1080, "vide") + Track(640, 480, "vide"));
  const std::string film = Box("ftyp", "isom\0\0\0\0") + Box("mdat", std::string(300000, 'x')) + moov;
  FrameSize size;
  ASSERT_TRUE(ReadMp4FrameSize(DocumentInput::Memory(&film, "a.mp4"), &size));
  EXPECT_EQ(size.width, 1920u);
  EXPECT_EQ(size.height, 1080u);

  testing::TempTree tree;
  tree.File("film.mp4", film);
  size = {};
  ASSERT_TRUE(ReadMp4FrameSize(DocumentInput::File(tree.path("film.mp4")), &size));
  EXPECT_EQ(size.width, 1920u);

  const std::string sound_only = Box("ftyp", "M4A ") + Box("moov", Track(0, 0, "soun"));
  EXPECT_FALSE(ReadMp4FrameSize(DocumentInput::Memory(&sound_only, "a.m4a"), &size));
  for (size_t cut = 0; cut < film.size(); cut += 4099) {
    const std::string part = film.substr(0, cut);
    EXPECT_FALSE(ReadMp4FrameSize(DocumentInput::Memory(&part, "a.mp4"), &size)) << cut;
  }
  std::string lying = film;
  lying[3] = '\x01';  // a 64-bit size follows, and it does not fit
  EXPECT_FALSE(ReadMp4FrameSize(DocumentInput::Memory(&lying, "a.mp4"), &size));
  EXPECT_FALSE(FrameSizeInMovie(std::string("\0\0\0\x04trak", 8), &size));
}

}  // namespace
}  // namespace trovix::extract
