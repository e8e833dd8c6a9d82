// Reads arbitrary bytes as a plain-text file under a few extensions, in pieces of a size the
// input picks: whatever the bytes, the reader must hand out well-formed UTF-8 and end.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/utf.h"
#include "text/plain_text_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace trovix::text;
  std::string bytes(reinterpret_cast<const char*>(data), size);
  const size_t piece = size > 0 ? 1 + data[0] % 64 : 1;
  for (const char* extension : {"txt", "rtf"}) {
    for (uint32_t mode : {kModeDetect, kModeFixedEncoding | (932u << 16)}) {
      TextOpen open = OpenTextReader(MemorySource(bytes), extension, mode);
      if (open.reader == nullptr) continue;
      std::string text;
      while (open.reader->Read(&text, piece) == ReadStatus::kOk) {
        if (text.size() > 8 * size + 64) std::abort();  // text cannot outgrow its bytes so far
      }
      if (!trovix::base::IsValidUtf8(text)) std::abort();
    }
  }
  return 0;
}
