// Plain text and RTF, through the search process's own text readers (text): a file or
// member of any other type is offered to OpenTextReader, which reads it when it is text in
// some encoding and says "not plain text" (kind 4) otherwise. "rtf" goes to the RTF reader.
// Anything else that is not text answers kEndNoReader: "no reader for .xyz", or "no reader
// for this file" for a name without an extension.
#pragma once

#include <string_view>

#include "extract/document_input.h"
#include "extract/extract_context.h"
#include "extract/outcome.h"

namespace trovix::extract {

Outcome ReadPlainOrRtf(const DocumentInput& input, std::string_view extension, ExtractContext& context);

// The kEndNoReader answer for `extension`.
Outcome NoReaderFor(std::string_view extension);

}  // namespace trovix::extract
