// The text of PDF documents through poppler-cpp, page by page in reading order, a line break
// between pages. The sink is polled between pages, so a cancel or a limit stops the work at
// the next page.
//
// Encrypted documents: loading tries the empty user password (documents protected only by an
// owner password open with it). A document that is still locked answers kEndEncrypted at once:
// poppler-cpp 22.12 crashes when a locked document is asked for pages, and its unlock() says
// yes to wrong passwords, so the lock state right after loading is all we trust.
//
// poppler's error output is silenced (it would otherwise write to our standard error for every
// damaged object).
#pragma once

#include <memory>
#include <string_view>

#include "extract/document_input.h"
#include "extract/extract_context.h"
#include "extract/outcome.h"

namespace poppler {
class document;
}

namespace trovix::extract {

// The document, loaded with poppler's error output silenced; null when it is no PDF poppler
// can read. The caller checks is_locked() before touching anything else.
std::unique_ptr<poppler::document> LoadPdf(const DocumentInput& input);

Outcome ReadPdf(const DocumentInput& input, std::string_view extension, ExtractContext& context);

}  // namespace trovix::extract
