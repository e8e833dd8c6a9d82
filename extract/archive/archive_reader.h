// Archives as folders: the members of an archive (zip, tar with its compressions, 7z, cpio,
// ISO 9660, ...) listed with their decoded names, and one member read out into memory so that
// it can be read as a document or opened as an archive in turn.
//
// Limits (from the request): at most max_members headers are looked at per archive; a member
// is read only when it is at most max_member_bytes (0: never); every byte decompressed is
// taken from the request's ExpandBudget. Nothing here throws; every failure is an Outcome.
//
// Thread-safety: none needed; each call opens its own libarchive reader.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "extract/document_input.h"
#include "extract/outcome.h"
#include "platform/extract_protocol.h"
#include "extract/text_sink.h"

namespace trovix::extract {

// Receives one member; false stops the listing (the answer could not be sent).
using MemberFn = std::function<bool(const ArchiveMember&)>;
// True when the client asked to stop.
using CancelledFn = std::function<bool()>;

// Lists every member in archive order. Folders that appear only as a prefix of other members'
// paths are listed once, as folders, before the first member inside them. A corrupt archive
// lists what could be read and ends kEndUnreadable.
Outcome ListArchive(const DocumentInput& input, const ExtractLimits& limits, ExpandBudget* budget,
                    const MemberFn& on_member, const CancelledFn& cancelled);

// Reads the member whose decoded path is `member_path` into *bytes.
Outcome ReadMember(const DocumentInput& input, std::string_view member_path, const ExtractLimits& limits,
                   ExpandBudget* budget, std::string* bytes);

}  // namespace trovix::extract
