// The frame size of an MP4 or QuickTime film, from its own header: the track header ('tkhd')
// of the first video track ('hdlr' of type 'vide') inside the movie box ('moov'). Only the
// box headers on the way and the movie box itself are read, wherever it stands in the file.
#pragma once

#include <cstdint>
#include <string_view>

#include "extract/document_input.h"

namespace trovix::extract {

struct FrameSize {
  uint32_t width = 0;
  uint32_t height = 0;
};

// False when the input holds no movie box with a video track of a known size.
bool ReadMp4FrameSize(const DocumentInput& input, FrameSize* size);

// The same over a movie box's contents (the bytes after its 8-byte header), for tests and
// fuzzing.
bool FrameSizeInMovie(std::string_view moov, FrameSize* size);

}  // namespace trovix::extract
