// Decoders: bytes in one encoding to UTF-8, fed block by block. A decoder keeps a character
// that a block boundary cuts in two until the next block, so only the last block is flushed.
// Bytes that are ill-formed or have no mapping become U+FFFD (never the code page's own
// substitute character).
//
// ICU's converters do the work; the few encodings ICU has no table for (ISO-8859-16, VISCII,
// Johab) go through the C library's iconv, which has them.
//
// Not thread-safe: one decoder per reader; it owns its converter.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace trovix::text {

class ByteDecoder {
 public:
  virtual ~ByteDecoder() = default;
  // Appends the text of `bytes` to *out. `last`: no more bytes follow, so a character left
  // incomplete at the end becomes U+FFFD.
  virtual void Decode(std::string_view bytes, bool last, std::string* out) = 0;
};

// Null when neither ICU nor iconv knows the encoding.
std::unique_ptr<ByteDecoder> OpenDecoder(const std::string& encoding);
std::unique_ptr<ByteDecoder> OpenIcuDecoder(const std::string& encoding);
std::unique_ptr<ByteDecoder> OpenIconvDecoder(const std::string& encoding);

// The ICU converter name of a Windows code page number (1252 -> "windows-1252", 65001 ->
// "UTF-8", 932 -> "Shift_JIS" ...), or empty when ICU has no converter for it.
std::string ConverterNameOfCodePage(unsigned code_page);

}  // namespace trovix::text
