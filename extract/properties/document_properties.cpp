#include "extract/properties/document_properties.h"

#include <poppler/cpp/poppler-document.h>
#include <poppler/cpp/poppler-global.h>

#include <charconv>
#include <climits>
#include <memory>
#include <string>
#include <vector>

#include "base/ascii.h"
#include "base/file_time.h"
#include "base/utf.h"
#include "extract/readers/cfb_file.h"
#include "extract/readers/epub_reader.h"
#include "extract/readers/mail_reader.h"
#include "extract/properties/media_properties.h"
#include "extract/readers/pdf_reader.h"
#include "extract/properties/pe_signature.h"
#include "extract/properties/photo_properties.h"
#include "extract/archive/zip_package.h"
#include "text/rtf_reader.h"
#include "base/document_types.h"

namespace trovix::extract {
namespace {

// A metadata part is small; one larger than this is not a real one.
constexpr size_t kMaxMetaBytes = 4 << 20;

std::string Trim(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  const size_t last = text.find_last_not_of(" \t\r\n");
  return std::string(text.substr(first, last - first + 1));
}

// "a; b, c" -> {"a", "b", "c"}: the separators people type between keywords or authors.
std::vector<std::string> SplitList(std::string_view text, std::string_view separators) {
  std::vector<std::string> items;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find_first_of(separators, start);
    if (end == std::string_view::npos) end = text.size();
    std::string item = Trim(text.substr(start, end - start));
    if (!item.empty()) items.push_back(std::move(item));
    start = end + 1;
  }
  return items;
}


}  // namespace

std::string DecodeOoxmlEscapes(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '_' && i + 6 < text.size() && text[i + 1] == 'x' && text[i + 6] == '_') {
      int code = 0;
      bool hex = true;
      for (size_t k = i + 2; k < i + 6; ++k) {
        const int d = HexDigitValue(text[k]);
        hex = hex && d >= 0;
        code = code * 16 + (d < 0 ? 0 : d);
      }
      if (hex && !(code >= 0xD800 && code <= 0xDFFF)) {
        // A carriage return before a line feed is one line break.
        if (!(code == '\r' && i + 7 < text.size() && text[i + 7] == '\n')) base::AppendUtf8(out, static_cast<char32_t>(code));
        i += 6;
        continue;
      }
    }
    out.push_back(text[i]);
  }
  return out;
}

namespace {

// Sends what is there, and nothing for an empty value.
class Emitter {
 public:
  explicit Emitter(const PropertyOut& out) : out_(out) {}
  bool Text(const char* name, std::string_view value) {
    std::string v = Trim(value);
    return v.empty() || Send(ExtractedProperty::Text(name, std::move(v)));
  }
  bool List(const char* name, std::string_view value, std::string_view separators) {
    std::vector<std::string> items = SplitList(value, separators);
    return items.empty() || Send(ExtractedProperty::Texts(name, std::move(items)));
  }
  bool Count(const char* name, std::string_view value) {
    std::string v = Trim(value);
    int64_t n = 0;
    auto [end, ec] = std::from_chars(v.data(), v.data() + v.size(), n);
    if (ec != std::errc() || end != v.data() + v.size() || n < 0 || n > INT32_MAX) return true;
    return Send(ExtractedProperty::Number(name, n));
  }
  bool Date(const char* name, std::string_view value) {
    int64_t ticks = 0;
    return !ParseIsoDate(Trim(value), &ticks) || Send(ExtractedProperty::Number(name, ticks, ExtractedProperty::kTime));
  }
  bool Send(const ExtractedProperty& p) { return out_(p); }

 private:
  const PropertyOut& out_;
};

int Digits(std::string_view text, size_t at, size_t count, bool* ok) {
  int v = 0;
  if (at + count > text.size()) {
    *ok = false;
    return 0;
  }
  for (size_t i = at; i < at + count; ++i) {
    if (text[i] < '0' || text[i] > '9') *ok = false;
    v = v * 10 + (text[i] - '0');
  }
  return v;
}

// --- PDF ------------------------------------------------------------------------------------

// PDFDocEncoding's characters at 0x80 to 0x9F (0x9F is unassigned); elsewhere it is Latin-1.
// 0xA0 stays a no-break space, as producers mean it (the table's euro sign there is rare).
constexpr char16_t kPdfDocHigh[32] = {
    0x2022, 0x2020, 0x2021, 0x2026, 0x2014, 0x2013, 0x0192, 0x2044, 0x2039, 0x203A, 0x2212,
    0x2030, 0x201E, 0x201C, 0x201D, 0x2018, 0x2019, 0x201A, 0x2122, 0xFB01, 0xFB02, 0x0141,
    0x0152, 0x0160, 0x0178, 0x017D, 0x0131, 0x0142, 0x0153, 0x0161, 0x017E, 0xFFFD};


// An information string as the document meant it. poppler-cpp hands a string without a
// Unicode mark over byte for byte (each byte one character); such a string is PDFDocEncoding,
// except that many producers write UTF-8 there: bytes that form UTF-8 with at least one
// character beyond ASCII are read as UTF-8.
std::string Utf8(const poppler::ustring& text) {
  bool bytewise = true;
  for (unsigned short unit : text) bytewise = bytewise && unit <= 0xFF;
  if (!bytewise) {
    poppler::byte_array bytes = text.to_utf8();
    return std::string(bytes.data(), bytes.size());
  }
  std::string raw;
  for (unsigned short unit : text) raw.push_back(static_cast<char>(unit));
  bool high = false;
  for (char c : raw) high = high || (static_cast<unsigned char>(c) & 0x80);
  if (high && base::IsValidUtf8(raw)) return raw;
  std::string out;
  for (unsigned char c : raw) base::AppendUtf8(out, c >= 0x80 && c <= 0x9F ? kPdfDocHigh[c - 0x80] : c);
  return out;
}

Outcome ReadPdfProperties(const DocumentInput& input, Emitter& emit) {
  std::unique_ptr<poppler::document> doc = LoadPdf(input);
  if (!doc) return Outcome::Fail(kEndUnreadable, "not a PDF that can be read");
  // A locked document's dictionary is encrypted too, and its pages must not be touched.
  if (doc->is_locked()) return Outcome::Fail(kEndEncrypted, "encrypted");
  emit.Text("System.Title", Utf8(doc->get_title()));
  emit.List("System.Author", Utf8(doc->get_author()), ";");
  emit.Text("System.Subject", Utf8(doc->get_subject()));
  emit.List("System.Keywords", Utf8(doc->get_keywords()), ",;");
  emit.Text("System.ApplicationName", Utf8(doc->get_creator()));
  emit.Send(ExtractedProperty::Number("System.Document.PageCount", doc->pages()));
  // The dates are read from their text here: poppler's own reading adds an offset written
  // after "Z" (see ParsePdfDate).
  for (auto [key, name] : {std::pair{"CreationDate", "System.Document.DateCreated"},
                           std::pair{"ModDate", "System.Document.DateSaved"}}) {
    int64_t ticks = 0;
    if (ParsePdfDate(Utf8(doc->info_key(key)), &ticks))
      emit.Send(ExtractedProperty::Number(name, ticks, ExtractedProperty::kTime));
  }
  return Outcome::Ok();
}

// --- RTF ------------------------------------------------------------------------------------

Outcome ReadRtfProperties(const DocumentInput& input, Emitter& emit) {
  std::unique_ptr<text::ByteSource> source =
      input.in_memory() ? text::MemorySource(*input.bytes) : text::OpenFileSource(input.path);
  if (!source) return Outcome::Fail(kEndUnreadable, "cannot open");
  const text::RtfInfo info = text::ReadRtfInfo(std::move(source));
  auto text = [&info](const char* word) {
    auto it = info.text.find(word);
    return it == info.text.end() ? std::string_view() : std::string_view(it->second);
  };
  emit.Text("System.Title", text("title"));
  emit.Text("System.Subject", text("subject"));
  emit.List("System.Author", text("author"), ";");
  emit.Text("System.Document.LastAuthor", text("operator"));
  emit.List("System.Keywords", text("keywords"), ",;");
  emit.Text("System.Comment", text("doccomm"));
  emit.Text("System.Company", text("company"));
  emit.List("System.Category", text("category"), ";");
  for (auto [word, name] : {std::pair{"nofpages", "System.Document.PageCount"},
                            std::pair{"nofwords", "System.Document.WordCount"},
                            std::pair{"nofchars", "System.Document.CharacterCount"}}) {
    auto it = info.number.find(word);
    if (it != info.number.end() && it->second >= 0) emit.Send(ExtractedProperty::Number(name, it->second));
  }
  // The times are the author's wall clock, without a zone: read as this machine's local time.
  for (auto [word, name] : {std::pair{"creatim", "System.Document.DateCreated"},
                            std::pair{"revtim", "System.Document.DateSaved"}}) {
    auto it = info.time.find(word);
    if (it == info.time.end() || it->second.year < 1601 || !base::IsValidCivil(it->second)) continue;
    emit.Send(ExtractedProperty::Number(name, base::LocalToUtc(base::FileTimeFromCivil(it->second)),
                                        ExtractedProperty::kTime));
  }
  return Outcome::Ok();
}

// --- Windows programs -----------------------------------------------------------------------

Outcome ReadSignatureProperty(const DocumentInput& input, Emitter& emit) {
  if (std::optional<std::string> signer = SignedByOf(input)) emit.Text("Stock.SignedBy", *signer);
  return Outcome::Ok();
}

// --- OOXML and ODF --------------------------------------------------------------------------

// Calls `on_element(local_name, text)` for every element of the part that holds text directly,
// and `on_attributes(reader)` for every element, so a reader can take what it knows.
Outcome ReadMetaPart(ZipPackage& package, const std::string& part,
                     const std::function<void(std::string_view, std::string_view)>& on_element,
                     const std::function<void(SafeXmlReader&)>& on_attributes = {}) {
  return package.ReadXmlPart(part, [&](SafeXmlReader& r) {
    std::string name, text;
    while (r.Next()) {
      const int type = r.type();
      if (type == XML_READER_TYPE_ELEMENT) {
        if (on_attributes) on_attributes(r);
        name = std::string(r.local_name());
        text.clear();
        if (r.is_empty_element()) name.clear();
      } else if (type == XML_READER_TYPE_TEXT || type == XML_READER_TYPE_CDATA ||
                 type == XML_READER_TYPE_SIGNIFICANT_WHITESPACE) {
        if (!name.empty() && text.size() < kMaxMetaBytes) text.append(r.value());
      } else if (type == XML_READER_TYPE_END_ELEMENT) {
        if (!name.empty() && name == r.local_name()) on_element(name, text);
        name.clear();
      }
    }
    return Outcome::Ok();
  });
}

Outcome ReadOoxmlProperties(const DocumentInput& input, ExtractContext& context, Emitter& emit) {
  ZipPackage package;
  Outcome opened = package.Open(input, context.budget, context.limits.max_members);
  if (!opened.ok()) return opened;
  if (package.Has("docProps/core.xml")) {
    Outcome o = ReadMetaPart(package, "docProps/core.xml", [&](std::string_view name, std::string_view raw) {
      const std::string decoded = DecodeOoxmlEscapes(raw);
      const std::string_view text = decoded;
      if (name == "title") emit.Text("System.Title", text);
      else if (name == "subject") emit.Text("System.Subject", text);
      else if (name == "creator") emit.List("System.Author", text, ";");
      else if (name == "keywords") emit.List("System.Keywords", text, ",;");
      else if (name == "description") emit.Text("System.Comment", text);
      else if (name == "lastModifiedBy") emit.Text("System.Document.LastAuthor", text);
      else if (name == "category") emit.List("System.Category", text, ";");
      else if (name == "created") emit.Date("System.Document.DateCreated", text);
      else if (name == "modified") emit.Date("System.Document.DateSaved", text);
    });
    if (!o.ok()) return o;
  }
  if (package.Has("docProps/app.xml")) {
    Outcome o = ReadMetaPart(package, "docProps/app.xml", [&](std::string_view name, std::string_view raw) {
      const std::string decoded = DecodeOoxmlEscapes(raw);
      const std::string_view text = decoded;
      if (name == "Application") emit.Text("System.ApplicationName", text);
      else if (name == "Company") emit.Text("System.Company", text);
      else if (name == "Pages") emit.Count("System.Document.PageCount", text);
      else if (name == "Words") emit.Count("System.Document.WordCount", text);
      else if (name == "Characters") emit.Count("System.Document.CharacterCount", text);
      else if (name == "Slides") emit.Count("System.Document.SlideCount", text);
    });
    if (!o.ok()) return o;
  }
  return Outcome::Ok();
}

Outcome ReadOdfProperties(const DocumentInput& input, ExtractContext& context, Emitter& emit) {
  ZipPackage package;
  Outcome opened = package.Open(input, context.budget, context.limits.max_members);
  if (!opened.ok()) return opened;
  if (!package.Has("meta.xml")) return Outcome::Ok();
  std::vector<std::string> keywords;
  Outcome o = ReadMetaPart(
      package, "meta.xml",
      [&](std::string_view name, std::string_view text) {
        if (name == "title") emit.Text("System.Title", text);
        else if (name == "subject") emit.Text("System.Subject", text);
        else if (name == "description") emit.Text("System.Comment", text);
        else if (name == "initial-creator") emit.List("System.Author", text, ";");
        else if (name == "creator") emit.Text("System.Document.LastAuthor", text);
        else if (name == "keyword") keywords.push_back(Trim(text));
        else if (name == "generator") emit.Text("System.ApplicationName", text);
        else if (name == "creation-date") emit.Date("System.Document.DateCreated", text);
        else if (name == "date") emit.Date("System.Document.DateSaved", text);
      },
      [&](SafeXmlReader& r) {
        if (r.local_name() != "document-statistic") return;
        emit.Count("System.Document.PageCount", r.Attribute("page-count"));
        emit.Count("System.Document.WordCount", r.Attribute("word-count"));
        emit.Count("System.Document.CharacterCount", r.Attribute("character-count"));
      });
  std::erase(keywords, std::string());
  if (!keywords.empty()) emit.Send(ExtractedProperty::Texts("System.Keywords", std::move(keywords)));
  return o;
}

// --- Word, Excel and PowerPoint 97-2003 -------------------------------------------------------

Outcome ReadCompoundProperties(const DocumentInput& input, Emitter& emit) {
  CfbFile file;
  if (Outcome o = file.Open(input); !o.ok()) return o;
  file.ReadSummaries([&](std::string_view name, std::string_view text) {
    if (name == "dc:title") emit.Text("System.Title", text);
    else if (name == "dc:subject") emit.Text("System.Subject", text);
    else if (name == "dc:creator") emit.List("System.Author", text, ";");
    else if (name == "dc:keywords") emit.List("System.Keywords", text, ",;");
    else if (name == "dc:description") emit.Text("System.Comment", text);
    else if (name == "gsf:last-saved-by") emit.Text("System.Document.LastAuthor", text);
    else if (name == "meta:generator") emit.Text("System.ApplicationName", text);
    else if (name == "dc:publisher") emit.Text("System.Company", text);
    else if (name == "gsf:category") emit.List("System.Category", text, ";");
    else if (name == "gsf:page-count") emit.Count("System.Document.PageCount", text);
    else if (name == "gsf:word-count") emit.Count("System.Document.WordCount", text);
    else if (name == "gsf:character-count") emit.Count("System.Document.CharacterCount", text);
    else if (name == "gsf:slide-count") emit.Count("System.Document.SlideCount", text);
    else if (name == "meta:creation-date") emit.Date("System.Document.DateCreated", text);
    else if (name == "dc:date") emit.Date("System.Document.DateSaved", text);
  });
  return Outcome::Ok();
}

}  // namespace

Outcome ReadProperties(const DocumentInput& input, std::string_view extension, ExtractContext& context,
                       const PropertyOut& out) {
  Emitter emit(out);
  if (extension == "pdf") return ReadPdfProperties(input, emit);
  if (extension == "rtf") return ReadRtfProperties(input, emit);
  if (base::IsOneOf(extension, base::kOoxmlTypes)) return ReadOoxmlProperties(input, context, emit);
  if (base::IsOneOf(extension, base::kOdfTypes)) return ReadOdfProperties(input, context, emit);
  if (base::IsOneOf(extension, base::kLegacyOfficeTypes)) return ReadCompoundProperties(input, emit);
  if (extension == "epub") return ReadEpubProperties(input, context, out);
  if (extension == "eml") return ReadMailProperties(input, context, out);
  if (base::HasPhotoPropertyReader(extension)) return ReadPhotoProperties(input, extension, out);
  if (base::HasSignatureReader(extension)) return ReadSignatureProperty(input, emit);
  if (base::HasMediaPropertyReader(extension)) return ReadMediaProperties(input, extension, out);
  return Outcome::Fail(kEndNoReader, "no property reader for ." + std::string(extension));
}

bool ParseIsoDate(std::string_view text, int64_t* ticks) {
  bool ok = text.size() >= 10 && text[4] == '-' && text[7] == '-';
  base::CivilTime c{};
  c.year = Digits(text, 0, 4, &ok);
  c.month = Digits(text, 5, 2, &ok);
  c.day = Digits(text, 8, 2, &ok);
  size_t at = 10;
  int64_t offset_minutes = 0;
  if (ok && at < text.size() && (text[at] == 'T' || text[at] == ' ')) {
    ok = text.size() >= at + 6 && text[at + 3] == ':';
    c.hour = Digits(text, at + 1, 2, &ok);
    c.minute = Digits(text, at + 4, 2, &ok);
    at += 6;
    if (ok && at < text.size() && text[at] == ':') {
      c.second = Digits(text, at + 1, 2, &ok);
      at += 3;
    }
    while (ok && at < text.size() && (text[at] == '.' || (text[at] >= '0' && text[at] <= '9'))) ++at;  // fraction
    if (ok && at < text.size()) {
      if (text[at] == 'Z') {
        ++at;
      } else if ((text[at] == '+' || text[at] == '-') && text.size() >= at + 6 && text[at + 3] == ':') {
        const int sign = text[at] == '-' ? -1 : 1;
        offset_minutes = sign * (Digits(text, at + 1, 2, &ok) * 60 + Digits(text, at + 4, 2, &ok));
        at += 6;
      } else {
        ok = false;
      }
    }
  }
  if (c.second == 60) c.second = 59;  // a leap second
  if (!ok || at != text.size() || c.year < 1601 || !base::IsValidCivil(c)) return false;
  *ticks = base::FileTimeFromCivil(c) - offset_minutes * 60 * base::kTicksPerSecond;
  return true;
}

bool ParsePdfDate(std::string_view text, int64_t* ticks) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  if (text.substr(0, 2) == "D:") text.remove_prefix(2);
  size_t at = 0;
  auto digit = [&text](size_t i) { return i < text.size() && text[i] >= '0' && text[i] <= '9'; };
  // The next two digits as a number, or -1 (and nothing taken) when there are not two.
  auto two = [&]() {
    if (!digit(at) || !digit(at + 1)) return -1;
    const int v = (text[at] - '0') * 10 + (text[at + 1] - '0');
    at += 2;
    return v;
  };
  if (!digit(0) || !digit(1) || !digit(2) || !digit(3)) return false;
  base::CivilTime c{};
  c.year = std::stoi(std::string(text.substr(0, 4)));
  at = 4;
  c.month = 1;
  c.day = 1;
  // Each field is there only when the one before it is.
  int* fields[] = {&c.month, &c.day, &c.hour, &c.minute, &c.second};
  for (int* field : fields) {
    const int v = two();
    if (v < 0) break;
    *field = v;
  }
  int64_t offset_minutes = 0;
  if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
    const int sign = text[at] == '-' ? -1 : 1;
    ++at;
    const int hours = two();
    if (hours < 0 || hours > 23) return false;
    if (at < text.size() && text[at] == '\'') ++at;
    int minutes = two();
    if (minutes < 0) minutes = 0;
    if (minutes > 59) return false;
    offset_minutes = sign * (hours * 60 + minutes);
  }
  // "Z" is universal time. Writers that put an offset after it ("Z07'46'") break the format;
  // the offset is ignored, as "Z" says and as pdf.js reads it. poppler's own date reading adds
  // it as if it followed "+" and moves such a date by hours. Whatever else follows the last
  // field is ignored too, as both do.
  if (c.second == 60) c.second = 59;  // a leap second
  if (c.year < 1601 || !base::IsValidCivil(c)) return false;
  *ticks = base::FileTimeFromCivil(c) - offset_minutes * 60 * base::kTicksPerSecond;
  return true;
}

}  // namespace trovix::extract
