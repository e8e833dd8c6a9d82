// The choice of a reader by extension, for a file or an archive member:
//   pdf -> PDF; docx, docm, dotx, xlsx, xlsm, pptx, pptm, ppsx ... -> OOXML;
//   odt, ods, odp, ott ... -> OpenDocument; htm, html, xhtml -> HTML; rtf -> RTF; epub -> EPUB;
//   gz, bz2, xz, zst -> the file inside, by its own name; eml, mbox -> mail;
//   wpd, wps, wri, cwk ... -> the librevenge importers;
//   anything else -> the plain-text reader, which reads text in any encoding and answers
//   kEndNoReader for what is not text.
// Archives are not documents: their members are listed or read through archive_reader.h.
#pragma once

#include <string_view>

#include "extract/document_input.h"
#include "extract/extract_context.h"
#include "extract/outcome.h"

namespace trovix::extract {

Outcome ReadDocument(const DocumentInput& input, std::string_view extension, ExtractContext& context);

}  // namespace trovix::extract
