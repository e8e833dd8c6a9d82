// The C library's iconv, for the encodings that ICU has no table for.
#include <errno.h>
#include <iconv.h>
#include <strings.h>

#include "text/byte_decoder.h"

namespace trovix::text {
namespace {

constexpr std::string_view kReplacementUtf8 = "\xEF\xBF\xBD";

// Encodings read through iconv: only those ICU lacks, so every other file reads the same
// whatever the C library's tables say.
constexpr const char* kIconvOnly[] = {"ISO-8859-16", "VISCII", "JOHAB"};

class IconvDecoder : public ByteDecoder {
 public:
  explicit IconvDecoder(iconv_t cd) : cd_(cd) {}
  ~IconvDecoder() override { iconv_close(cd_); }
  IconvDecoder(const IconvDecoder&) = delete;
  IconvDecoder& operator=(const IconvDecoder&) = delete;

  void Decode(std::string_view bytes, bool last, std::string* out) override {
    held_.append(bytes);
    char* in = held_.data();
    size_t in_left = held_.size();
    char buffer[16 * 1024];
    while (in_left > 0) {
      char* target = buffer;
      size_t target_left = sizeof(buffer);
      size_t r = iconv(cd_, &in, &in_left, &target, &target_left);
      out->append(buffer, sizeof(buffer) - target_left);
      if (r != static_cast<size_t>(-1)) continue;
      if (errno == E2BIG) continue;
      if (errno == EINVAL && !last) break;  // a character cut short: wait for the rest
      // Ill-formed, or cut short at the very end: one byte becomes U+FFFD.
      out->append(kReplacementUtf8);
      ++in;
      --in_left;
    }
    held_.erase(0, held_.size() - in_left);
    if (last) iconv(cd_, nullptr, nullptr, nullptr, nullptr);
  }

 private:
  iconv_t cd_;
  std::string held_;  // the input not yet converted
};

bool IsIconvOnly(const std::string& encoding) {
  for (const char* name : kIconvOnly) {
    if (strcasecmp(encoding.c_str(), name) == 0) return true;
  }
  return false;
}

}  // namespace

std::unique_ptr<ByteDecoder> OpenIconvDecoder(const std::string& encoding) {
  if (!IsIconvOnly(encoding)) return nullptr;
  iconv_t cd = iconv_open("UTF-8", encoding.c_str());
  if (cd == reinterpret_cast<iconv_t>(-1)) return nullptr;
  return std::make_unique<IconvDecoder>(cd);
}

}  // namespace trovix::text
