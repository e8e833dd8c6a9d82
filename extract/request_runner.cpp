#include "extract/request_runner.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <string>

#include "extract/archive/archive_reader.h"
#include "extract/properties/document_properties.h"
#include "extract/document_router.h"
#include "extract/extract_context.h"
#include "extract/text_sink.h"

namespace trovix::extract {
namespace {

ExtractEnd EndOf(const Outcome& o) { return ExtractEnd{o.code, o.message}; }

Outcome CheckReadableFile(const std::string& path) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return Outcome::Fail(kEndUnreadable, std::string("cannot open: ") + strerror(errno));
  struct stat st;
  bool regular = fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
  close(fd);
  if (!regular) return Outcome::Fail(kEndUnreadable, "not a regular file");
  return Outcome::Ok();
}

std::string StopMessage(ExtractCode code) {
  switch (code) {
    case kEndLimit:
      return "text limit reached";
    case kEndCancelled:
      return "cancelled";
    default:
      return "the answer could not be sent";
  }
}

ExtractEnd Run(const ExtractRequest& request, const RequestOutput& output) {
  const ExtractLimits& limits = request.limits;
  if (request.members.size() > limits.max_depth) return {kEndLimit, "archives nested too deep"};
  Outcome readable = CheckReadableFile(request.path);
  if (!readable.ok()) return EndOf(readable);

  ExpandBudget budget(limits.max_expanded_bytes);
  DocumentInput input = DocumentInput::File(request.path);
  // Two blocks in turn: a member is read out of the block that holds its archive.
  std::string blocks[2];
  int next = 0;
  for (const std::string& member : request.members) {
    Outcome o = ReadMember(input, member, limits, &budget, &blocks[next]);
    if (!o.ok()) return EndOf(o);
    input = DocumentInput::Memory(&blocks[next], member);
    next ^= 1;
    blocks[next].clear();
    blocks[next].shrink_to_fit();
  }

  // The answer caps (protocol.h) are kept here, so the client never has to kill an honest
  // helper: a member or property too large to send is left out, and the answer stops at the
  // total.
  if (request.op == kOpList) {
    uint64_t bytes = 0;
    bool full = false;
    Outcome o = ListArchive(input, limits, &budget, [&](const ArchiveMember& m) {
      const size_t size = m.Encode().size();
      if (size > kMaxMemberFrame) return true;
      if ((bytes += size) > kMaxMemberBytes) {
        full = true;
        return false;
      }
      return !output.member || output.member(m);
    }, output.cancelled);
    if (full) return {kEndLimit, "too many members to list"};
    return EndOf(o);
  }
  if (request.op == kOpProps) {
    ExtractContext context{nullptr, &budget, limits};
    bool sent = true;
    uint32_t count = 0;
    uint64_t bytes = 0;
    Outcome o = ReadProperties(input, ExtensionOf(input.name), context, [&](const ExtractedProperty& p) {
      const size_t size = p.Encode().size();
      if (size > kMaxPropertyFrame) return sent;
      if (++count > kMaxProperties || (bytes += size) > kMaxPropertyBytes) return false;
      sent = sent && (!output.property || output.property(p));
      return sent;
    });
    if (!sent) return {kEndCancelled, StopMessage(kEndCancelled)};
    if (count > kMaxProperties || bytes > kMaxPropertyBytes) return {kEndLimit, "too many properties"};
    return EndOf(o);
  }
  if (request.op != kOpText) return {kEndBadRequest, "not a request for a document"};

  TextSink sink(limits, output.text, output.cancelled);
  ExtractContext context{&sink, &budget, limits};
  Outcome o = ReadDocument(input, ExtensionOf(input.name), context);
  sink.Finish();
  if (sink.stopped()) return {sink.stop_code(), StopMessage(sink.stop_code())};
  if (o.ok() && !sink.has_visible_text()) return {kEndNoText, "no text"};
  return EndOf(o);
}

}  // namespace

ExtractEnd RunRequest(const ExtractRequest& request, const RequestOutput& output) {
  try {
    return Run(request, output);
  } catch (const std::exception& e) {
    return {kEndUnreadable, std::string("cannot read: ") + e.what()};
  } catch (...) {
    return {kEndUnreadable, "cannot read"};
  }
}

}  // namespace trovix::extract
