#include "extract/readers/odf_reader.h"

#include <algorithm>
#include <string>

#include "extract/xml_skipper.h"
#include "extract/archive/zip_package.h"
#include "base/document_types.h"

namespace trovix::extract {
namespace {

constexpr std::string_view kTextNs = "urn:oasis:names:tc:opendocument:xmlns:text:1.0";
// A manifest is small; a larger one is not read (and the package is read as unencrypted).
constexpr size_t kMaxManifestBytes = 1 << 20;
// text:c of one text:s; a document needs a handful, a hostile one must not get millions.
constexpr long kMaxSpaces = 1000;

bool IsEncrypted(ZipPackage& package) {
  std::string manifest;
  if (!package.Has("META-INF/manifest.xml")) return false;
  if (!package.ReadSmallPart("META-INF/manifest.xml", kMaxManifestBytes, &manifest).ok()) return false;
  return manifest.find("encryption-data") != std::string::npos;
}

Outcome ReadContent(SafeXmlReader& r, TextSink& sink) {
  XmlSkipper skipper;
  int in_paragraph = 0;
  while (r.Next()) {
    if (skipper.Skipping(r)) continue;
    int type = r.type();
    if (type == XML_READER_TYPE_ELEMENT) {
      std::string_view ns = r.namespace_uri();
      std::string_view name = r.local_name();
      if (ns != kTextNs) continue;
      if (name == "tracked-changes") {
        skipper.Skip(r);
      } else if (name == "p" || name == "h") {
        if (!r.is_empty_element()) ++in_paragraph;
        else if (!sink.NewLine()) break;
      } else if (in_paragraph > 0 && name == "s") {
        std::string c = r.Attribute("c");
        long count = c.empty() ? 1 : std::clamp(std::strtol(c.c_str(), nullptr, 10), 1L, kMaxSpaces);
        if (!sink.Append(std::string(static_cast<size_t>(count), ' '))) break;
      } else if (in_paragraph > 0 && name == "tab") {
        if (!sink.Append("\t")) break;
      } else if (in_paragraph > 0 && name == "line-break") {
        if (!sink.Append("\n")) break;
      }
    } else if (type == XML_READER_TYPE_END_ELEMENT) {
      if (r.namespace_uri() == kTextNs && (r.local_name() == "p" || r.local_name() == "h") && in_paragraph > 0) {
        --in_paragraph;
        if (!sink.NewLine()) break;
      }
    } else if (in_paragraph > 0 && r.IsText()) {
      if (!sink.Append(r.value())) break;
    }
  }
  return Outcome::Ok();
}

}  // namespace

bool IsOdfExtension(std::string_view ext) { return base::IsOneOf(ext, base::kOdfTypes); }

Outcome ReadOdf(const DocumentInput& input, std::string_view, ExtractContext& context) {
  ZipPackage package;
  Outcome opened = package.Open(input, context.budget, context.limits.max_members);
  if (!opened.ok()) return opened;
  if (IsEncrypted(package)) return Outcome::Fail(kEndEncrypted, "encrypted");
  return package.ReadXmlPart("content.xml", [&](SafeXmlReader& r) { return ReadContent(r, *context.sink); });
}

}  // namespace trovix::extract
