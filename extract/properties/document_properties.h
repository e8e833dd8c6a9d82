// The properties documents carry about themselves, read in the helper process:
//   PDF: the information dictionary (title, author, subject, keywords, creator, dates) and
//        the page count;
//   OOXML (docx, xlsx, pptx ...): docProps/core.xml and docProps/app.xml;
//   ODF (odt, ods, odp ...): meta.xml;
//   Word, Excel, PowerPoint 97-2003 (doc, xls, ppt ...): the summary information streams.
// Each property goes to `out` under its System.* name as soon as it is read. Authors and
// keywords are lists; dates are UTC.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "extract/document_input.h"
#include "extract/extract_context.h"
#include "extract/outcome.h"

namespace trovix::extract {

using PropertyOut = std::function<bool(const ExtractedProperty& property)>;

// kEndNoReader for a type without one; kEndEncrypted for a locked PDF.
Outcome ReadProperties(const DocumentInput& input, std::string_view extension, ExtractContext& context,
                       const PropertyOut& out);

// "2013-12-20T11:07:00Z", "2013-12-20T11:07:00.52", "2013-12-20T11:07:00+01:00", "2013-12-20"
// as 100 ns ticks since 1601 (UTC; a time without a zone is taken as UTC). False when the text
// is not such a date.
bool ParseIsoDate(std::string_view text, int64_t* ticks);

// A PDF date, "D:YYYYMMDDHHmmSSOHH'mm'", as 100 ns ticks since 1601 (UTC). Every field after
// the year may be missing, and so may the "D:". The offset O is "Z", "+" or "-"; its minutes,
// and the apostrophes around them, may be missing ("+05", "+0530", "-08'00"). "Z" means
// universal time whatever follows it. A date without an offset is taken as UTC. False when
// the text is not such a date.
bool ParsePdfDate(std::string_view text, int64_t* ticks);

// Office's escapes of characters XML cannot hold: "_x000d_" is U+000D, "_x005F_" a literal
// underscore. A "_x000d_" before a line feed is dropped (one line break).
std::string DecodeOoxmlEscapes(std::string_view text);

}  // namespace trovix::extract
