// The Authenticode digest and the whole "signed by" check over arbitrary bytes: every range the
// digest skips comes from the file, so a hostile layout must give no digest, never a read past
// the bytes.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "extract/properties/pe_signature.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace trovix::extract;
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  if (std::optional<PeLayout> layout = ReadPeLayout(bytes)) {
    AuthenticodeDigest(bytes, *layout, "SHA256");
    // A layout taken from one file and applied to a shorter one must be refused, not trusted.
    AuthenticodeDigest(bytes.substr(0, size / 2), *layout, "SHA1");
  }
  SignedByOf(bytes);
  return 0;
}
