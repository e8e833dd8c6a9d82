// Film and picture headers of any shape: the box walks (the movie box of a film, the item
// properties of a HEIF picture) and an AIFF's common chunk must stay inside the bytes and
// never crash.
#include <cstddef>
#include <cstdint>
#include <string>

#include "extract/properties/heif_image_size.h"
#include "extract/properties/media_properties.h"
#include "extract/properties/mp4_frame_size.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string film(reinterpret_cast<const char*>(data), size);
  trovix::extract::FrameSize frame;
  (void)trovix::extract::ReadMp4FrameSize(trovix::extract::DocumentInput::Memory(&film, "f.mp4"), &frame);
  (void)trovix::extract::FrameSizeInMovie(film, &frame);
  trovix::extract::ImageSize picture;
  (void)trovix::extract::ReadHeifImageSize(trovix::extract::DocumentInput::Memory(&film, "f.heic"), &picture);
  (void)trovix::extract::ImageSizeInMeta(film, &picture);
  trovix::extract::AiffCommon common;
  (void)trovix::extract::ReadAiffCommon(film, &common);
  return 0;
}
