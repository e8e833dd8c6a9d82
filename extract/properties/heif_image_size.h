// The pixel size of a HEIF picture (HEIC, HEIF, AVIF): the image spatial extent ('ispe') that
// the item properties ('iprp': the property list 'ipco' and its associations 'ipma') give the
// primary item ('pitm'), all inside the top-level 'meta' box. This is the size of the picture
// itself; the EXIF block a camera adds may name another (the sensor's, before an edit or a
// crop). Stored, not displayed: a rotation ('irot') is not applied, as a JPEG's size ignores
// its EXIF orientation.
#pragma once

#include <cstdint>
#include <string_view>

#include "extract/document_input.h"

namespace trovix::extract {

struct ImageSize {
  uint32_t width = 0;
  uint32_t height = 0;
};

// False when the input has no meta box, no primary item, or no size for it.
bool ReadHeifImageSize(const DocumentInput& input, ImageSize* size);

// The same over a meta box's contents (after its 8-byte header, from its version and flags
// on), for tests and fuzzing.
bool ImageSizeInMeta(std::string_view meta, ImageSize* size);

}  // namespace trovix::extract
