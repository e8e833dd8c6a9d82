// Arbitrary bytes as a single compressed file whose inner file is plain text, HTML or an
// e-book: the filters, the bound and the hand-over to the inner reader. The first byte picks
// the inner name so one corpus reaches every route.
#include "extract/readers/compressed_reader.h"
#include "fuzz/new_readers_common.h"

using namespace trovix::extract;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  static const char* const kNames[] = {"f.txt.gz", "f.html.xz",   "f.epub.bz2",
                                       "f.zst",    "f.txt.gz.gz", "f.tar.gz"};
  const char* name = kNames[data[0] % (sizeof kNames / sizeof kNames[0])];
  const std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
  fuzzing::ReadText(bytes, name, [&](const DocumentInput& in, ExtractContext& c) {
    ReadCompressed(in, ExtensionOf(name), c);
  });
  return 0;
}
