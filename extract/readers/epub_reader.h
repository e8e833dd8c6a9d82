// E-books in EPUB (2 and 3): a zip whose META-INF/container.xml names the package document
// (the OPF); the OPF's spine lists the XHTML chapters in reading order, and each chapter is
// read by the HTML reader (html_reader.h) into the same sink, one after another. Items of the
// manifest that the spine does not name (navigation, covers, styles) are not text of the book.
//
// Properties: the OPF's Dublin Core title, creators, subjects and date, under the names the
// other document handlers use (System.Title, System.Author, System.Subject,
// System.Keywords, System.Document.DateCreated).
//
// Encryption: a book whose META-INF/encryption.xml encrypts anything with a cipher (font
// obfuscation is not encryption: the text is still there) is answered "encrypted".
//
// Bounds: the zip's bytes come from the request's ExpandBudget; a chapter above
// kMaxChapterBytes is passed over; at most max_members spine items are read.
#pragma once

#include <string_view>

#include "extract/document_input.h"
#include "extract/properties/document_properties.h"
#include "extract/extract_context.h"
#include "extract/outcome.h"

namespace trovix::extract {

inline constexpr size_t kMaxChapterBytes = 32 << 20;

Outcome ReadEpub(const DocumentInput& input, std::string_view extension, ExtractContext& context);
Outcome ReadEpubProperties(const DocumentInput& input, ExtractContext& context,
                           const PropertyOut& out);

// `href` (percent-encoded, relative to the folder of `base`, a part name) as a part name:
// "OEBPS/content.opf" + "../Text/ch%201.xhtml#x" -> "Text/ch 1.xhtml". Empty when it leaves
// the package or is absolute.
std::string ResolvePartHref(std::string_view base, std::string_view href);

}  // namespace trovix::extract
