// Word processors from before OOXML and ODF, through the librevenge importers: WordPerfect
// (libwpd: .wpd, .wp, .wp5, .wp6), Microsoft Works and Write (libwps: .wps, .wri) and the old
// Macintosh ones (libmwaw: Word for Mac .mcw, MacWrite .mwd, ClarisWorks .cwk and many more).
// The importer is chosen by what the file holds, not by its name: each is asked in turn
// whether it reads the file. The text comes from librevenge's text generator: paragraphs end
// lines, tables and frames in document order.
//
// Encrypted (password-protected) documents answer "encrypted", as PDFs do; nothing is read.
//
// Bounds: the generator gathers the document's text in memory before it goes to the sink, so
// only files up to kMaxWordProcessorBytes are given to an importer.
//
// Thread-safety: the importers keep no state between calls; one request per thread.
#pragma once

#include <cstdint>
#include <string_view>

#include "extract/document_input.h"
#include "extract/extract_context.h"
#include "extract/outcome.h"

namespace trovix::extract {

inline constexpr int64_t kMaxWordProcessorBytes = 256 << 20;

bool IsWordProcessorExtension(std::string_view extension);
Outcome ReadWordProcessor(const DocumentInput& input, std::string_view extension,
                          ExtractContext& context);

}  // namespace trovix::extract
