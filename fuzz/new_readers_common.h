// What the fuzz targets of the e-book, compressed-file, mail and word-processor readers
// share: one in-memory document read under small limits, everything it says thrown away.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "extract/document_input.h"
#include "extract/extract_context.h"
#include "extract/text_sink.h"

namespace trovix::extract::fuzzing {

inline ExtractLimits SmallLimits() {
  ExtractLimits limits;
  limits.max_text_bytes = 1 << 20;
  limits.max_member_bytes = 1 << 20;
  limits.max_members = 1000;
  limits.max_depth = 3;
  return limits;
}

template <class ReadFn>
void ReadText(const std::string& bytes, std::string_view name, ReadFn read) {
  const ExtractLimits limits = SmallLimits();
  ExpandBudget budget(16u << 20);
  TextSink sink(
      limits, [](std::string_view) { return true; }, nullptr);
  sink.SetInputBytes(static_cast<int64_t>(bytes.size()));
  ExtractContext context{&sink, &budget, limits};
  DocumentInput input = DocumentInput::Memory(&bytes, std::string(name));
  read(input, context);
  sink.Finish();
}

}  // namespace trovix::extract::fuzzing
