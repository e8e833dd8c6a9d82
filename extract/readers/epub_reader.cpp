#include "extract/readers/epub_reader.h"

#include <map>
#include <string>
#include <vector>

#include "extract/readers/html_reader.h"
#include "extract/archive/zip_package.h"

namespace trovix::extract {
namespace {

constexpr std::string_view kDcNs = "http://purl.org/dc/elements/1.1/";
constexpr size_t kMaxSmallXmlBytes = 1 << 20;

// Font obfuscation scrambles only embedded fonts; a book that uses it is still readable.
bool IsFontObfuscation(std::string_view algorithm) {
  return algorithm == "http://www.idpf.org/2008/embedding" ||
         algorithm == "http://ns.adobe.com/pdf/enc#RC";
}

Outcome CheckEncryption(ZipPackage& package) {
  if (!package.Has("META-INF/encryption.xml")) return Outcome::Ok();
  bool encrypted = false;
  Outcome o = package.ReadXmlPart("META-INF/encryption.xml", [&](SafeXmlReader& r) {
    while (r.Next()) {
      if (r.type() == XML_READER_TYPE_ELEMENT && r.local_name() == "EncryptionMethod" &&
          !IsFontObfuscation(r.Attribute("Algorithm")))
        encrypted = true;
    }
    return Outcome::Ok();
  });
  if (encrypted) return Outcome::Fail(kEndEncrypted, "encrypted");
  // A damaged encryption.xml says nothing for sure; the chapters will tell.
  return o.code == kEndLimit ? o : Outcome::Ok();
}

Outcome FindPackageDocument(ZipPackage& package, std::string* opf) {
  if (!package.Has("META-INF/container.xml"))
    return Outcome::Fail(kEndUnreadable, "not an EPUB: no container");
  Outcome o = package.ReadXmlPart("META-INF/container.xml", [&](SafeXmlReader& r) {
    while (opf->empty() && r.Next()) {
      if (r.type() == XML_READER_TYPE_ELEMENT && r.local_name() == "rootfile")
        *opf = r.Attribute("full-path");
    }
    return Outcome::Ok();
  });
  if (!o.ok() && opf->empty()) return o;
  if (opf->empty() || !package.Has(*opf))
    return Outcome::Fail(kEndUnreadable, "not an EPUB: no package document");
  return Outcome::Ok();
}

struct PackageDocument {
  std::map<std::string, std::string> hrefs;                   // manifest id -> part name
  std::vector<std::string> spine;                             // manifest ids in reading order
  std::vector<std::pair<std::string, std::string>> metadata;  // Dublin Core element -> text
};

Outcome ReadPackageDocument(ZipPackage& package, const std::string& opf, uint32_t max_items,
                            PackageDocument* doc) {
  return package.ReadXmlPart(opf, [&](SafeXmlReader& r) {
    std::string dc_name, dc_text;
    while (r.Next()) {
      const int type = r.type();
      if (type == XML_READER_TYPE_ELEMENT) {
        const std::string_view name = r.local_name();
        if (name == "item" && doc->hrefs.size() < max_items) {
          std::string part = ResolvePartHref(opf, r.Attribute("href"));
          if (!part.empty()) doc->hrefs[r.Attribute("id")] = std::move(part);
        } else if (name == "itemref" && doc->spine.size() < max_items) {
          doc->spine.push_back(r.Attribute("idref"));
        } else if (r.namespace_uri() == kDcNs && !r.is_empty_element()) {
          dc_name = std::string(name);
          dc_text.clear();
        }
      } else if (!dc_name.empty() && r.IsText()) {
        if (dc_text.size() < kMaxSmallXmlBytes) dc_text.append(r.value());
      } else if (type == XML_READER_TYPE_END_ELEMENT && !dc_name.empty()) {
        if (doc->metadata.size() < max_items) doc->metadata.emplace_back(dc_name, dc_text);
        dc_name.clear();
      }
    }
    return Outcome::Ok();
  });
}

Outcome OpenBook(const DocumentInput& input, ExtractContext& context, ZipPackage& package,
                 PackageDocument* doc) {
  Outcome o = package.Open(input, context.budget, context.limits.max_members);
  if (!o.ok()) return o;
  o = CheckEncryption(package);
  if (!o.ok()) return o;
  std::string opf;
  o = FindPackageDocument(package, &opf);
  if (!o.ok()) return o;
  return ReadPackageDocument(package, opf, context.limits.max_members, doc);
}

std::string Trim(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  const size_t last = text.find_last_not_of(" \t\r\n");
  return std::string(text.substr(first, last - first + 1));
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  c = static_cast<char>(c | 0x20);
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

}  // namespace

std::string ResolvePartHref(std::string_view base, std::string_view href) {
  href = href.substr(0, href.find_first_of("#?"));
  if (href.empty() || href.front() == '/' || href.find("://") != std::string_view::npos) return {};
  std::string decoded;
  for (size_t i = 0; i < href.size(); ++i) {
    if (href[i] == '%' && i + 2 < href.size() && HexValue(href[i + 1]) >= 0 &&
        HexValue(href[i + 2]) >= 0) {
      decoded.push_back(static_cast<char>(HexValue(href[i + 1]) * 16 + HexValue(href[i + 2])));
      i += 2;
    } else {
      decoded.push_back(href[i]);
    }
  }
  std::vector<std::string> parts;
  const size_t slash = base.rfind('/');
  std::string joined =
      slash == std::string_view::npos ? decoded : std::string(base.substr(0, slash + 1)) + decoded;
  size_t start = 0;
  while (start <= joined.size()) {
    size_t end = joined.find('/', start);
    if (end == std::string::npos) end = joined.size();
    std::string piece = joined.substr(start, end - start);
    if (piece == "..") {
      if (parts.empty()) return {};
      parts.pop_back();
    } else if (!piece.empty() && piece != ".") {
      parts.push_back(std::move(piece));
    }
    start = end + 1;
  }
  std::string out;
  for (const std::string& p : parts) (out += out.empty() ? "" : "/") += p;
  return out;
}

Outcome ReadEpub(const DocumentInput& input, std::string_view, ExtractContext& context) {
  ZipPackage package;
  PackageDocument doc;
  Outcome o = OpenBook(input, context, package, &doc);
  if (!o.ok()) return o;
  TextSink& sink = *context.sink;
  std::string chapter;
  for (const std::string& id : doc.spine) {
    auto it = doc.hrefs.find(id);
    if (it == doc.hrefs.end() || !package.Has(it->second)) continue;
    if (!sink.Poll()) break;
    o = package.ReadSmallPart(it->second, kMaxChapterBytes, &chapter);
    // One oversized or damaged chapter costs only itself; an exhausted budget ends the book.
    if (o.code == kEndLimit && context.budget->left() == 0) return o;
    if (!o.ok()) continue;
    if (!sink.NewLine()) break;
    Outcome read = ReadHtml(DocumentInput::Memory(&chapter, it->second), "xhtml", context);
    if (sink.stopped()) break;
    if (!read.ok() && read.code != kEndUnreadable) return read;
  }
  return Outcome::Ok();
}

Outcome ReadEpubProperties(const DocumentInput& input, ExtractContext& context,
                           const PropertyOut& out) {
  ZipPackage package;
  PackageDocument doc;
  Outcome o = OpenBook(input, context, package, &doc);
  if (!o.ok()) return o;
  std::string title;
  std::vector<std::string> creators, subjects;
  int64_t date = 0;
  for (const auto& [name, raw] : doc.metadata) {
    std::string text = Trim(raw);
    if (text.empty()) continue;
    if (name == "title" && title.empty())
      title = text;
    else if (name == "creator")
      creators.push_back(text);
    else if (name == "subject")
      subjects.push_back(text);
    else if (name == "date" && date == 0) {
      // Books often give only a year or a month: the first day of it.
      if (text.size() == 4)
        text += "-01-01";
      else if (text.size() == 7)
        text += "-01";
      if (!ParseIsoDate(text, &date)) date = 0;
    }
  }
  bool sent = true;
  if (!title.empty()) sent = sent && out(ExtractedProperty::Text("System.Title", title));
  if (!creators.empty()) sent = sent && out(ExtractedProperty::Texts("System.Author", creators));
  if (!subjects.empty()) {
    std::string joined;
    for (const std::string& s : subjects) (joined += joined.empty() ? "" : "; ") += s;
    sent = sent && out(ExtractedProperty::Text("System.Subject", joined));
    sent = sent && out(ExtractedProperty::Texts("System.Keywords", subjects));
  }
  if (date != 0)
    sent = sent && out(ExtractedProperty::Number("System.Document.DateCreated", date,
                                                 ExtractedProperty::kTime));
  return Outcome::Ok();
}

}  // namespace trovix::extract
