// Reads arbitrary bytes as an RTF document in pieces of a size the input picks: malformed
// groups, escapes and numbers must give well-formed UTF-8 or nothing, and the reader must end.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/utf.h"
#include "text/rtf_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace trovix::text;
  std::string bytes(reinterpret_cast<const char*>(data), size);
  const size_t piece = size > 0 ? 1 + data[size - 1] % 128 : 1;
  std::unique_ptr<TextReader> reader = OpenRtfReader(MemorySource(std::move(bytes)));
  std::string text;
  while (reader->Read(&text, piece) == ReadStatus::kOk) {
  }
  if (!trovix::base::IsValidUtf8(text)) std::abort();
  return 0;
}
