// Arbitrary bytes given to the librevenge importers (WordPerfect, Works, the Macintosh word
// processors) through the reader that asks each in turn. Nothing may crash, hang or leak.
#include "extract/readers/wordprocessor_reader.h"
#include "fuzz/new_readers_common.h"

using namespace trovix::extract;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  fuzzing::ReadText(bytes, "fuzz.wpd", [](const DocumentInput& in, ExtractContext& c) {
    ReadWordProcessor(in, "wpd", c);
  });
  return 0;
}
