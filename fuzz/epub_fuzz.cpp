// Arbitrary bytes as an EPUB: its text (container, package document, spine chapters through
// the HTML reader) and its properties. Nothing may crash, hang or leak.
#include "extract/readers/epub_reader.h"
#include "fuzz/new_readers_common.h"

using namespace trovix::extract;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  fuzzing::ReadText(bytes, "fuzz.epub",
                    [](const DocumentInput& in, ExtractContext& c) { ReadEpub(in, "epub", c); });
  fuzzing::ReadText(bytes, "fuzz.epub", [](const DocumentInput& in, ExtractContext& c) {
    ReadEpubProperties(in, c, [](const ExtractedProperty&) { return true; });
  });
  return 0;
}
