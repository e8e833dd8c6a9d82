#include "text/byte_decoder.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <memory>

namespace trovix::text {
namespace {

constexpr UChar kReplacement = 0xFFFD;
constexpr int32_t kPivotUnits = 16 * 1024;

// Every byte sequence the converter cannot map reads as U+FFFD, whatever the code page's
// table says its substitute is (many single-byte tables say U+001A).
void SubstituteReplacement(const void*, UConverterToUnicodeArgs* args, const char*, int32_t,
                           UConverterCallbackReason reason, UErrorCode* status) {
  if (reason > UCNV_IRREGULAR) return;  // close, clone, reset: nothing to write
  *status = U_ZERO_ERROR;
  ucnv_cbToUWriteUChars(args, &kReplacement, 1, 0, status);
}

void AppendCodePoint(UChar32 c, std::string* out) {
  char bytes[4];
  int32_t length = 0;
  UBool error = false;
  U8_APPEND(bytes, length, 4, c, error);
  if (error) return;
  out->append(bytes, static_cast<size_t>(length));
}

class IcuDecoder : public ByteDecoder {
 public:
  explicit IcuDecoder(UConverter* converter) : converter_(converter) {}
  ~IcuDecoder() override { ucnv_close(converter_); }
  IcuDecoder(const IcuDecoder&) = delete;
  IcuDecoder& operator=(const IcuDecoder&) = delete;

  void Decode(std::string_view bytes, bool last, std::string* out) override;

 private:
  UConverter* converter_;
  char16_t pending_lead_ = 0;  // a lead surrogate that ended the previous piece
};

}  // namespace

std::unique_ptr<ByteDecoder> OpenDecoder(const std::string& encoding) {
  std::unique_ptr<ByteDecoder> decoder = OpenIcuDecoder(encoding);
  return decoder != nullptr ? std::move(decoder) : OpenIconvDecoder(encoding);
}

std::unique_ptr<ByteDecoder> OpenIcuDecoder(const std::string& encoding) {
  UErrorCode status = U_ZERO_ERROR;
  UConverter* converter = ucnv_open(encoding.c_str(), &status);
  if (U_FAILURE(status) || converter == nullptr) return nullptr;
  ucnv_setToUCallBack(converter, SubstituteReplacement, nullptr, nullptr, nullptr, &status);
  if (U_FAILURE(status)) {
    ucnv_close(converter);
    return nullptr;
  }
  return std::make_unique<IcuDecoder>(converter);
}

void IcuDecoder::Decode(std::string_view bytes, bool last, std::string* out) {
  UChar pivot[kPivotUnits];
  const char* source = bytes.data();
  const char* source_end = source + bytes.size();
  out->reserve(out->size() + bytes.size() + bytes.size() / 2);
  for (;;) {
    UChar* target = pivot;
    UErrorCode status = U_ZERO_ERROR;
    ucnv_toUnicode(converter_, &target, pivot + kPivotUnits, &source, source_end, nullptr, last,
                   &status);
    const int32_t units = static_cast<int32_t>(target - pivot);
    for (int32_t i = 0; i < units;) {
      UChar32 c = pivot[i++];
      if (pending_lead_ != 0) {
        if (U16_IS_TRAIL(c)) {
          AppendCodePoint(U16_GET_SUPPLEMENTARY(pending_lead_, c), out);
          pending_lead_ = 0;
          continue;
        }
        AppendCodePoint(kReplacement, out);
        pending_lead_ = 0;
      }
      if (U16_IS_SURROGATE(c)) {
        if (U16_IS_LEAD(c) && i < units && U16_IS_TRAIL(pivot[i])) {
          c = U16_GET_SUPPLEMENTARY(c, pivot[i]);
          ++i;
        } else if (U16_IS_LEAD(c) && i == units) {
          pending_lead_ = static_cast<char16_t>(c);  // its trail may come with the next piece
          continue;
        } else {
          c = kReplacement;
        }
      }
      AppendCodePoint(c, out);
    }
    if (status == U_BUFFER_OVERFLOW_ERROR) continue;
    break;  // all input taken (other failures cannot be helped: what was decoded stands)
  }
  if (last && pending_lead_ != 0) {
    AppendCodePoint(kReplacement, out);
    pending_lead_ = 0;
  }
}

std::string ConverterNameOfCodePage(unsigned code_page) {
  struct Named {
    unsigned code_page;
    const char* name;
  };
  // Numbers whose ICU name is not "windows-N", "ibm-N" or "cpN".
  static constexpr Named kSpecial[] = {
      {65001, "UTF-8"},
      {1200, "UTF-16LE"},
      {1201, "UTF-16BE"},
      {12000, "UTF-32LE"},
      {12001, "UTF-32BE"},
      {20127, "US-ASCII"},
      {28591, "ISO-8859-1"},
      {28592, "ISO-8859-2"},
      {28593, "ISO-8859-3"},
      {28594, "ISO-8859-4"},
      {28595, "ISO-8859-5"},
      {28596, "ISO-8859-6"},
      {28597, "ISO-8859-7"},
      {28598, "ISO-8859-8"},
      {28599, "ISO-8859-9"},
      {28603, "ISO-8859-13"},
      {28605, "ISO-8859-15"},
      {20866, "KOI8-R"},
      {21866, "KOI8-U"},
      {932, "Shift_JIS"},
      {936, "GBK"},
      {949, "windows-949"},
      {950, "Big5"},
      {54936, "GB18030"},
      {50220, "ISO-2022-JP"},
      {50221, "ISO-2022-JP"},
      {50222, "ISO-2022-JP"},
      {50225, "ISO-2022-KR"},
      {51932, "EUC-JP"},
      {51949, "EUC-KR"},
      {10000, "macintosh"},
      {10007, "x-mac-cyrillic"},
      {10029, "x-mac-centraleurroman"},
      {874, "windows-874"},
  };
  for (const Named& n : kSpecial) {
    if (n.code_page == code_page) return n.name;
  }
  for (const char* prefix : {"windows-", "ibm-", "cp"}) {
    std::string name = prefix + std::to_string(code_page);
    UErrorCode status = U_ZERO_ERROR;
    if (ucnv_getAlias(name.c_str(), 0, &status) != nullptr && U_SUCCESS(status)) return name;
  }
  return {};
}

}  // namespace trovix::text
