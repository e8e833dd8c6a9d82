// Reads arbitrary bytes as a PE image: its layout, its certificate table and, when the table
// holds a signature, the PKCS #7 signature with its time stamps. Nothing may crash, read past
// the bytes or leak; every outcome is acceptable.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "extract/properties/pe_signature.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace trovix::extract;
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  if (std::optional<PeLayout> layout = ReadPeLayout(bytes)) {
    for (const CertificateEntry& entry : CertificateEntries(bytes, *layout)) ParseSignature(entry.data);
  }
  // The bytes as a bare signature too, so the PKCS #7 side is explored without a PE around it.
  ParseSignature(bytes);
  return 0;
}
