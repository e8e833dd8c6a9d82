// One request of the extraction protocol, from its decoded form to its end: opens the file,
// walks the chain of archive members (each read into memory within the request's limits),
// then lists the last archive (kOpList), reads the last document's text (kOpText) or its
// properties (kOpProps) through the reader its extension picks. Text goes through one TextSink, so the output limits hold
// whatever reader runs.
//
// Nothing escapes: an exception of any library (std::bad_alloc, std::length_error, anything
// poppler throws) ends the request with kEndUnreadable.
//
// Thread-safety: RunRequest keeps no state between calls; one call per thread at a time.
#pragma once

#include <functional>
#include <string_view>

#include "platform/extract_protocol.h"

namespace trovix::extract {

struct RequestOutput {
  std::function<bool(std::string_view piece)> text;        // one kExtractText piece
  std::function<bool(const ArchiveMember& member)> member;  // one kExtractMember
  std::function<bool(const ExtractedProperty& p)> property; // one kExtractProperty
  std::function<bool()> cancelled;                          // the client asked to stop
};

ExtractEnd RunRequest(const ExtractRequest& request, const RequestOutput& output);

}  // namespace trovix::extract
