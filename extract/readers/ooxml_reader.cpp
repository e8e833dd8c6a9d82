#include "extract/readers/ooxml_reader.h"

#include <array>
#include <string>
#include <vector>

#include "extract/archive/package_parts.h"
#include "extract/xml_skipper.h"
#include "extract/archive/zip_package.h"

namespace trovix::extract {
namespace {

constexpr std::string_view kWordExtensions[] = {"docx", "docm", "dotx", "dotm"};
constexpr std::string_view kSheetExtensions[] = {"xlsx", "xlsm", "xltx", "xltm"};
constexpr std::string_view kSlideExtensions[] = {"pptx", "pptm", "ppsx", "ppsm", "potx"};

template <size_t N>
bool OneOf(std::string_view ext, const std::string_view (&list)[N]) {
  for (std::string_view e : list)
    if (e == ext) return true;
  return false;
}

bool IsElement(const SafeXmlReader& r) { return r.type() == XML_READER_TYPE_ELEMENT; }
bool IsEnd(const SafeXmlReader& r) { return r.type() == XML_READER_TYPE_END_ELEMENT; }

// The main part named by the package relationships (the officeDocument relationship), which
// lets a producer put it elsewhere than word/document.xml.
std::string MainDocumentPart(ZipPackage& package) {
  std::string target;
  if (package.Has("_rels/.rels")) {
    package.ReadXmlPart("_rels/.rels", [&](SafeXmlReader& r) {
      while (r.Next()) {
        if (!IsElement(r) || r.local_name() != "Relationship") continue;
        std::string type = r.Attribute("Type");
        if (type.size() >= 15 && type.compare(type.size() - 15, 15, "/officeDocument") == 0) {
          target = r.Attribute("Target");
          break;
        }
      }
      return Outcome::Ok();
    });
  }
  while (!target.empty() && target.front() == '/') target.erase(0, 1);
  if (!target.empty() && package.Has(target)) return target;
  return "word/document.xml";
}

// WordprocessingML: w:t text, tabs, breaks, paragraph ends.
Outcome ReadWordPart(SafeXmlReader& r, TextSink& sink) {
  XmlSkipper skipper;
  bool in_text = false;
  int in_tab_stops = 0;
  while (r.Next()) {
    if (skipper.Skipping(r)) continue;
    if (IsElement(r)) {
      std::string_view name = r.local_name();
      if (name == "t") {
        in_text = !r.is_empty_element();
      } else if (name == "Fallback" || name == "delText" || name == "instrText") {
        skipper.Skip(r);
      } else if (name == "tabs") {
        if (!r.is_empty_element()) ++in_tab_stops;
      } else if (name == "tab" && in_tab_stops == 0) {
        if (!sink.Append("\t")) break;
      } else if (name == "br" || name == "cr") {
        if (!sink.Append("\n")) break;
      } else if (name == "noBreakHyphen") {
        if (!sink.Append("-")) break;
      } else if (name == "p" && r.is_empty_element()) {
        if (!sink.NewLine()) break;
      }
    } else if (IsEnd(r)) {
      std::string_view name = r.local_name();
      if (name == "t") {
        in_text = false;
      } else if (name == "tabs" && in_tab_stops > 0) {
        --in_tab_stops;
      } else if (name == "p") {
        if (!sink.NewLine()) break;
      }
    } else if (in_text && r.IsText()) {
      if (!sink.Append(r.value())) break;
    }
  }
  return Outcome::Ok();
}

Outcome ReadWord(ZipPackage& package, ExtractContext& context) {
  std::string main = MainDocumentPart(package);
  std::vector<std::string> parts = {main};
  std::string folder = PartFolder(main);
  for (const char* kind : {"header", "footer"})
    for (std::string& p : NumberedParts(package.part_names(), folder + kind, ".xml")) parts.push_back(std::move(p));
  for (const char* single : {"footnotes.xml", "endnotes.xml", "comments.xml"})
    if (package.Has(folder + single)) parts.push_back(folder + single);
  for (const std::string& part : parts) {
    Outcome o = package.ReadXmlPart(part, [&](SafeXmlReader& r) { return ReadWordPart(r, *context.sink); });
    if (!o.ok() || context.sink->stopped()) return o;
    if (!context.sink->NewLine()) break;
  }
  return Outcome::Ok();
}

// sharedStrings.xml: one line per string item; phonetic runs (rPh) are readings, not text.
Outcome ReadSharedStrings(SafeXmlReader& r, TextSink& sink) {
  XmlSkipper skipper;
  bool in_text = false;
  while (r.Next()) {
    if (skipper.Skipping(r)) continue;
    if (IsElement(r)) {
      if (r.local_name() == "t") in_text = !r.is_empty_element();
      if (r.local_name() == "rPh") skipper.Skip(r);
    } else if (IsEnd(r)) {
      if (r.local_name() == "t") in_text = false;
      if (r.local_name() == "si" && !sink.NewLine()) break;
    } else if (in_text && r.IsText()) {
      if (!sink.Append(r.value())) break;
    }
  }
  return Outcome::Ok();
}

// A worksheet: values of cells that are not shared-string references.
Outcome ReadWorksheet(SafeXmlReader& r, TextSink& sink) {
  bool cell_shared = false;
  bool in_value = false;
  bool row_has_text = false;
  while (r.Next()) {
    if (IsElement(r)) {
      std::string_view name = r.local_name();
      if (name == "c") {
        cell_shared = r.Attribute("t") == "s";
      } else if (name == "v" || name == "t") {
        in_value = !cell_shared && !r.is_empty_element();
      }
    } else if (IsEnd(r)) {
      std::string_view name = r.local_name();
      if (name == "v" || name == "t") {
        in_value = false;
      } else if (name == "row" && row_has_text) {
        row_has_text = false;
        if (!sink.NewLine()) break;
      }
    } else if (in_value && r.IsText()) {
      if (row_has_text && !sink.Append("\t")) break;
      row_has_text = true;
      if (!sink.Append(r.value())) break;
    }
  }
  return Outcome::Ok();
}

Outcome ReadSpreadsheet(ZipPackage& package, ExtractContext& context) {
  if (package.Has("xl/sharedStrings.xml")) {
    Outcome o = package.ReadXmlPart("xl/sharedStrings.xml",
                                    [&](SafeXmlReader& r) { return ReadSharedStrings(r, *context.sink); });
    if (!o.ok() || context.sink->stopped()) return o;
  }
  for (const std::string& sheet : NumberedParts(package.part_names(), "xl/worksheets/sheet", ".xml")) {
    Outcome o = package.ReadXmlPart(sheet, [&](SafeXmlReader& r) { return ReadWorksheet(r, *context.sink); });
    if (!o.ok() || context.sink->stopped()) return o;
  }
  return Outcome::Ok();
}

// DrawingML text of a slide: a:t runs, a:br, paragraph ends.
Outcome ReadSlide(SafeXmlReader& r, TextSink& sink) {
  XmlSkipper skipper;
  bool in_text = false;
  while (r.Next()) {
    if (skipper.Skipping(r)) continue;
    if (IsElement(r)) {
      std::string_view name = r.local_name();
      if (name == "t") in_text = !r.is_empty_element();
      if (name == "Fallback") skipper.Skip(r);
      if (name == "br" && !sink.Append("\n")) break;
    } else if (IsEnd(r)) {
      if (r.local_name() == "t") in_text = false;
      if (r.local_name() == "p" && !sink.NewLine()) break;
    } else if (in_text && r.IsText()) {
      if (!sink.Append(r.value())) break;
    }
  }
  return Outcome::Ok();
}

Outcome ReadPresentation(ZipPackage& package, ExtractContext& context) {
  for (const std::string& slide : NumberedParts(package.part_names(), "ppt/slides/slide", ".xml")) {
    Outcome o = package.ReadXmlPart(slide, [&](SafeXmlReader& r) { return ReadSlide(r, *context.sink); });
    if (!o.ok() || context.sink->stopped()) return o;
    if (!context.sink->NewLine()) break;
  }
  return Outcome::Ok();
}

}  // namespace

bool IsOoxmlExtension(std::string_view ext) {
  return OneOf(ext, kWordExtensions) || OneOf(ext, kSheetExtensions) || OneOf(ext, kSlideExtensions);
}

Outcome ReadOoxml(const DocumentInput& input, std::string_view ext, ExtractContext& context) {
  ZipPackage package;
  Outcome opened = package.Open(input, context.budget, context.limits.max_members);
  if (!opened.ok()) return opened;
  if (OneOf(ext, kSheetExtensions)) return ReadSpreadsheet(package, context);
  if (OneOf(ext, kSlideExtensions)) return ReadPresentation(package, context);
  return ReadWord(package, context);
}

}  // namespace trovix::extract
