// The visible text of HTML documents (htm, html, xhtml) through libxml2's HTML parser, fed in
// blocks (a push parser with SAX callbacks, so a large page is never held as a tree): script,
// style and template contents are dropped, character references and entities are decoded by
// the parser, block elements end lines, table cells are separated by tabs, and runs of white
// space outside <pre> read as one space.
//
// Encoding: a charset the document declares (<meta charset>, http-equiv) wins and libxml2
// applies it; without one, a sample that is valid UTF-8 is UTF-8, and anything else is
// detected as for plain text files (text/plain_text_reader.h).
//
// Parser options: HTML_PARSE_NONET | HTML_PARSE_NOERROR | HTML_PARSE_NOWARNING |
// HTML_PARSE_RECOVER; never NOENT.
#pragma once

#include <string_view>

#include "extract/document_input.h"
#include "extract/extract_context.h"
#include "extract/outcome.h"

namespace trovix::extract {

bool IsHtmlExtension(std::string_view extension);
Outcome ReadHtml(const DocumentInput& input, std::string_view extension, ExtractContext& context);

}  // namespace trovix::extract
