#include "extract/readers/wordprocessor_reader.h"

#include <librevenge-generators/librevenge-generators.h>
#include <librevenge-stream/librevenge-stream.h>
#include <libwpd/libwpd.h>
#include <libwps/libwps.h>
#include <libmwaw/libmwaw.hxx>

#include <memory>
#include <string>

#include "base/utf.h"
#include "base/document_types.h"

namespace trovix::extract {
namespace {

enum class Verdict { kNotMine, kEncrypted, kRead, kFailed };

std::unique_ptr<librevenge::RVNGInputStream> StreamOf(const DocumentInput& input) {
  if (input.in_memory())
    return std::make_unique<librevenge::RVNGStringStream>(
        reinterpret_cast<const unsigned char*>(input.bytes->data()),
        static_cast<unsigned>(input.bytes->size()));
  return std::make_unique<librevenge::RVNGFileStream>(input.path.c_str());
}

Verdict TryWordPerfect(librevenge::RVNGInputStream& in, librevenge::RVNGTextInterface& out) {
  const libwpd::WPDConfidence c = libwpd::WPDocument::isFileFormatSupported(&in);
  if (c == libwpd::WPD_CONFIDENCE_NONE) return Verdict::kNotMine;
  if (c != libwpd::WPD_CONFIDENCE_EXCELLENT) return Verdict::kEncrypted;
  in.seek(0, librevenge::RVNG_SEEK_SET);
  const libwpd::WPDResult r = libwpd::WPDocument::parse(&in, &out, nullptr);
  if (r == libwpd::WPD_PASSWORD_MISSMATCH_ERROR || r == libwpd::WPD_UNSUPPORTED_ENCRYPTION_ERROR)
    return Verdict::kEncrypted;
  return r == libwpd::WPD_OK ? Verdict::kRead : Verdict::kFailed;
}

Verdict TryWorks(librevenge::RVNGInputStream& in, librevenge::RVNGTextInterface& out) {
  libwps::WPSKind kind = libwps::WPS_TEXT;
  libwps::WPSCreator creator = libwps::WPS_MSWORKS;
  bool need_encoding = false;
  const libwps::WPSConfidence c =
      libwps::WPSDocument::isFileFormatSupported(&in, kind, creator, need_encoding);
  if (c == libwps::WPS_CONFIDENCE_NONE || kind != libwps::WPS_TEXT) return Verdict::kNotMine;
  if (c == libwps::WPS_CONFIDENCE_SUPPORTED_ENCRYPTION) return Verdict::kEncrypted;
  in.seek(0, librevenge::RVNG_SEEK_SET);
  // Old DOS files name no character set; libwps then takes its default (CP437/CP850).
  const libwps::WPSResult r = libwps::WPSDocument::parse(&in, &out, nullptr, nullptr);
  if (r == libwps::WPS_ENCRYPTION_ERROR) return Verdict::kEncrypted;
  return r == libwps::WPS_OK ? Verdict::kRead : Verdict::kFailed;
}

Verdict TryMacintosh(librevenge::RVNGInputStream& in, librevenge::RVNGTextInterface& out) {
  MWAWDocument::Type type = MWAWDocument::MWAW_T_UNKNOWN;
  MWAWDocument::Kind kind = MWAWDocument::MWAW_K_UNKNOWN;
  const MWAWDocument::Confidence c = MWAWDocument::isFileFormatSupported(&in, type, kind);
  if (c == MWAWDocument::MWAW_C_NONE || kind != MWAWDocument::MWAW_K_TEXT) return Verdict::kNotMine;
  if (c != MWAWDocument::MWAW_C_EXCELLENT) return Verdict::kEncrypted;
  in.seek(0, librevenge::RVNG_SEEK_SET);
  const MWAWDocument::Result r = MWAWDocument::parse(&in, &out, nullptr);
  if (r == MWAWDocument::MWAW_R_PASSWORD_MISSMATCH_ERROR) return Verdict::kEncrypted;
  return r == MWAWDocument::MWAW_R_OK ? Verdict::kRead : Verdict::kFailed;
}

}  // namespace

bool IsWordProcessorExtension(std::string_view extension) {
  return base::IsOneOf(extension, base::kWordProcessorTypes);
}

Outcome ReadWordProcessor(const DocumentInput& input, std::string_view, ExtractContext& context) {
  const int64_t size = input.Size();
  if (size < 0) return Outcome::Fail(kEndUnreadable, "cannot open");
  if (size > kMaxWordProcessorBytes)
    return Outcome::Fail(kEndTooLarge, "document too large to read");
  std::unique_ptr<librevenge::RVNGInputStream> in = StreamOf(input);
  if (!in || in->isEnd()) return Outcome::Ok();  // empty: no text
  using Importer = Verdict (*)(librevenge::RVNGInputStream&, librevenge::RVNGTextInterface&);
  for (Importer importer : {Importer{TryWordPerfect}, Importer{TryWorks}, Importer{TryMacintosh}}) {
    librevenge::RVNGString text;
    librevenge::RVNGTextTextGenerator generator(text, false);
    in->seek(0, librevenge::RVNG_SEEK_SET);
    const Verdict v = importer(*in, generator);
    if (v == Verdict::kNotMine) continue;
    if (v == Verdict::kEncrypted) return Outcome::Fail(kEndEncrypted, "encrypted");
    const std::string_view view(text.cstr(), text.size());
    // What an importer gave before it failed is still the document's text.
    if (!view.empty()) {
      if (base::IsValidUtf8(view))
        context.sink->Append(view);
      else
        context.sink->Append(base::ToDisplayUtf8(view));
    }
    if (v == Verdict::kFailed && view.empty())
      return Outcome::Fail(kEndUnreadable, "damaged document");
    return Outcome::Ok();
  }
  return Outcome::Fail(kEndUnreadable, "not a word processor document that can be read");
}

}  // namespace trovix::extract
