// What every document reader of the helper gets besides its input: the sink its text goes to
// (which also knows when to stop), the request's budget of decompressed bytes and its limits.
//
// Readers share one shape: Outcome ReadXxx(const DocumentInput&, std::string_view extension,
// ExtractContext&). A reader returns kEndOk when it ran to the end of the document or stopped
// because the sink stopped (the caller then takes the sink's code); it never throws.
#pragma once

#include "platform/extract_protocol.h"
#include "extract/text_sink.h"

namespace trovix::extract {

struct ExtractContext {
  TextSink* sink = nullptr;
  ExpandBudget* budget = nullptr;
  ExtractLimits limits;
};

}  // namespace trovix::extract
