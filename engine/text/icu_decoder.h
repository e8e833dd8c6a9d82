// IcuDecoder: bytes in one encoding to UTF-8 through one ICU converter, fed block by block.
// The converter keeps a character that a block boundary cuts in two until the next block, so
// only the last block is flushed. Bytes that are ill-formed or have no mapping become U+FFFD
// (never the code page's own substitute character).
//
// Not thread-safe: one decoder per reader. It owns its converter.
#pragma once

#include <memory>
#include <string>
#include <string_view>

struct UConverter;

namespace trovix::text {

class IcuDecoder {
 public:
  // Null when ICU has no converter by that name.
  static std::unique_ptr<IcuDecoder> Open(const std::string& encoding);
  ~IcuDecoder();
  IcuDecoder(const IcuDecoder&) = delete;
  IcuDecoder& operator=(const IcuDecoder&) = delete;

  // Appends the text of `bytes` to *out. `last`: no more bytes follow, so a character left
  // incomplete at the end becomes U+FFFD.
  void Decode(std::string_view bytes, bool last, std::string* out);

 private:
  explicit IcuDecoder(UConverter* converter) : converter_(converter) {}

  UConverter* converter_;
  char16_t pending_lead_ = 0;  // a lead surrogate that ended the previous piece
};

// The ICU converter name of a Windows code page number (1252 -> "windows-1252", 65001 ->
// "UTF-8", 932 -> "Shift_JIS" ...), or empty when ICU has no converter for it.
std::string ConverterNameOfCodePage(unsigned code_page);

}  // namespace trovix::text
