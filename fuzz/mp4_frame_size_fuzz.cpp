// Film headers of any shape: the box walk must stay inside the bytes and never crash.
#include <cstddef>
#include <cstdint>
#include <string>

#include "extract/properties/mp4_frame_size.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string film(reinterpret_cast<const char*>(data), size);
  trovix::extract::FrameSize frame;
  (void)trovix::extract::ReadMp4FrameSize(trovix::extract::DocumentInput::Memory(&film, "f.mp4"), &frame);
  (void)trovix::extract::FrameSizeInMovie(film, &frame);
  return 0;
}
