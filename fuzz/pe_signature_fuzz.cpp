// Windows program images of any shape: the layout reader, the certificate table, the
// Authenticode digest and the signature check must stay inside the bytes and never crash.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "engine/extract/pe_signature.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view image(reinterpret_cast<const char*>(data), size);
  if (auto layout = trovix::extract::ReadPeLayout(image)) {
    (void)trovix::extract::FirstSignature(image, *layout);
    (void)trovix::extract::AuthenticodeDigest(image, *layout, "SHA256");
  }
  (void)trovix::extract::SignedByOf(image);
  return 0;
}
