// How one piece of extraction ended: the end code and the message for the user that travel in
// the request's kExtractEnd frame (platform/extract_protocol.h). Every reader of the helper
// returns one; none throws across its boundary.
#pragma once

#include <string>
#include <utility>

#include "platform/extract_protocol.h"

namespace trovix::extract {

struct Outcome {
  ExtractCode code = kEndOk;
  std::string message;

  bool ok() const { return code == kEndOk; }
  static Outcome Ok() { return {}; }
  static Outcome Fail(ExtractCode code, std::string message) { return {code, std::move(message)}; }
};

}  // namespace trovix::extract
