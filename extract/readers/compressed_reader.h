// Single compressed files (.gz, .bz2, .xz, .zst): the one file such a file holds, read by the
// reader its own name picks once the compression's extension is taken off ("notes.txt.gz" is
// plain text, "report.pdf.gz" a PDF, "README.gz" plain text). Tar archives in a compressed
// file ("x.tar.gz", and a "x.gz" whose inner name ends in ".tar") are archives, entered as
// folders, never read here.
//
// Bound: at most max_member_bytes (nMaxStreamExtractSize) are decompressed, and every byte is
// taken from the request's ExpandBudget. A file that holds more (a gzip bomb) stops at the
// bound: plain text is read up to it and ends kEndLimit saying so; a document that would be
// cut (PDF, Office ...) is not read and ends kEndTooLarge. A bound of 0 reads nothing.
// Compressed files inside compressed files are read down to max_depth levels.
//
// Whatever the inner file, the answer is never kEndNoReader (the search would take it as
// "no reader for .gz" and stop reading every compressed file): an inner file nothing reads,
// or a tar, ends kEndNoText with the reason.
//
// Thread-safety: one request per thread (the nesting depth is counted per thread).
#pragma once

#include <string>
#include <string_view>

#include "extract/document_input.h"
#include "extract/extract_context.h"
#include "extract/outcome.h"

namespace trovix::extract {

bool IsCompressedExtension(std::string_view extension);
// "x.txt.gz" -> "x.txt"; a name without a compression extension is returned as it is.
std::string InnerName(std::string_view name);

Outcome ReadCompressed(const DocumentInput& input, std::string_view extension,
                       ExtractContext& context);

}  // namespace trovix::extract
