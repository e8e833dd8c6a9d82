#include "extract/readers/plain_reader.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "text/plain_text_reader.h"
#include "text/rtf_reader.h"

namespace trovix::extract {
namespace {

std::unique_ptr<text::ByteSource> SourceOf(const DocumentInput& input) {
  return input.in_memory() ? text::MemorySource(*input.bytes) : text::OpenFileSource(input.path);
}

Outcome Pump(text::TextReader& reader, TextSink& sink) {
  std::string piece;
  for (;;) {
    piece.clear();
    text::ReadStatus status = reader.Read(&piece, kPieceBytes);
    if (!piece.empty() && !sink.Append(piece)) return Outcome::Ok();
    if (status == text::ReadStatus::kEnd) return Outcome::Ok();
    if (status == text::ReadStatus::kError) return Outcome::Fail(kEndUnreadable, "read error");
  }
}

Outcome CannotOpen() { return Outcome::Fail(kEndUnreadable, std::string("cannot open: ") + strerror(errno)); }

}  // namespace

Outcome NoReaderFor(std::string_view ext) {
  if (ext.empty()) return Outcome::Fail(kEndNoReader, "no reader for this file");
  return Outcome::Fail(kEndNoReader, "no reader for ." + std::string(ext));
}

Outcome ReadPlainOrRtf(const DocumentInput& input, std::string_view ext, ExtractContext& context) {
  std::unique_ptr<text::ByteSource> source = SourceOf(input);
  if (!source) return CannotOpen();
  text::TextOpen open = text::OpenTextReader(std::move(source), ext);
  if (open.kind == 0) return Outcome::Ok();  // empty: no text
  // RTF goes to its reader whatever the sampler thought: an RTF file without "\'" escapes
  // looks like plain ASCII to it.
  if (ext == "rtf") {
    open.reader.reset();
    source = SourceOf(input);  // the first one went to the sampling
    if (!source) return CannotOpen();
    std::unique_ptr<text::TextReader> rtf = text::OpenRtfReader(std::move(source));
    if (!rtf) return Outcome::Fail(kEndUnreadable, "cannot read this RTF document");
    return Pump(*rtf, *context.sink);
  }
  if (open.kind == 4) return NoReaderFor(ext);
  if (!open.reader) return Outcome::Fail(kEndUnreadable, "cannot read this file");
  return Pump(*open.reader, *context.sink);
}

}  // namespace trovix::extract
