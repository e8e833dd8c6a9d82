// The text of OpenDocument files (odt, ods, odp and their templates ott, ots, otp), read from
// content.xml of their zip package: paragraphs and headings (text:p, text:h) with their spans,
// text:s as its count of spaces (attribute text:c, default 1), text:tab as a tab,
// text:line-break as a line break, and a line break after every paragraph. Tracked changes
// (the deleted text they keep) are left out. A package whose manifest declares encryption
// answers kEndEncrypted: its content.xml is ciphertext.
#pragma once

#include <string_view>

#include "extract/document_input.h"
#include "extract/extract_context.h"
#include "extract/outcome.h"

namespace trovix::extract {

bool IsOdfExtension(std::string_view extension);
Outcome ReadOdf(const DocumentInput& input, std::string_view extension, ExtractContext& context);

}  // namespace trovix::extract
