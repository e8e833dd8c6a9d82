// Mail through GMime: single messages (.eml) and mailboxes (.mbox, and a file named "mbox"
// that begins with "From "). GMime decodes what mail encodes: quoted-printable and base64
// bodies, RFC 2047 words in headers, charsets (to UTF-8).
//
//   Text: for each message its subject, then its bodies in order: of the alternatives of a
//         multipart/alternative the text/plain one (else text/html, through the HTML reader);
//         other text parts that are not attachments, each in turn.
//   Members: attachments (parts with a file name or a disposition of "attachment", and
//         attached messages) are listed as archive members are, by their file name, so that
//         "/x/a.eml/report.pdf" is an item read by its own reader. A name that repeats gets
//         " (2)", " (3)" ...; a part without a name is "part N" with the extension its type
//         suggests. In a mailbox each message's attachments sit in a folder named by the
//         message's number ("3/report.pdf").
//   Properties (.eml): System.Message.FromAddress/FromName, ToAddress/ToName (lists),
//         System.Subject, System.Message.DateSent, System.Message.HasAttachments and
//         System.Message.AttachmentNames.
//
// Bounds: parts nested deeper than kMaxMailDepth are not walked (the text read so far stands;
// the answer ends kEndLimit saying so; GMime stops its own parser at its nesting limit too);
// at most max_members attachments and messages; an attachment is read only up to
// max_member_bytes; every decoded byte is taken from the request's ExpandBudget; a text part
// above kMaxMailTextPart is passed over.
//
// Thread-safety: GMime is initialised once per process; a request per thread.
#pragma once

#include <string>
#include <string_view>

#include "extract/archive/archive_reader.h"
#include "extract/document_input.h"
#include "extract/properties/document_properties.h"
#include "extract/extract_context.h"
#include "extract/outcome.h"

namespace trovix::extract {

inline constexpr int kMaxMailDepth = 64;
inline constexpr size_t kMaxMailTextPart = 64 << 20;

// "eml", "mbox", or an input without an extension that begins as a mailbox does.
bool IsMailInput(const DocumentInput& input, std::string_view extension);

Outcome ReadMail(const DocumentInput& input, std::string_view extension, ExtractContext& context);
Outcome ReadMailProperties(const DocumentInput& input, ExtractContext& context,
                           const PropertyOut& out);
Outcome ListMail(const DocumentInput& input, const ExtractLimits& limits, ExpandBudget* budget,
                 const MemberFn& on_member, const CancelledFn& cancelled);
Outcome ReadMailMember(const DocumentInput& input, std::string_view member_path,
                       const ExtractLimits& limits, ExpandBudget* budget, std::string* bytes);

}  // namespace trovix::extract
