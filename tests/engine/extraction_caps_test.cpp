// The search process's side of the helper's answers: a helper that sends more than its
// request can bring (as a taken-over one would) is killed, the caller keeps no more than the
// caps, and the file counts as one that failed the reader.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/extraction/extraction_service.h"

namespace trovix::engine {
namespace {

ExtractionOptions TestHelper() {
  ExtractionOptions options;
  options.program = TROVIX_EXTRACT_TEST_PATH;  // the test build floods on request
  options.helpers = 1;
  options.memory_limit = 0;
  return options;
}

TEST(ExtractionCaps, AFloodingHelperIsKilledAndItsFileRemembered) {
  CrashMemory memory("");
  ExtractionService service(TestHelper(), memory);
  extract::ExtractRequest request;
  request.path = "flood:text 2000 65536";  // 128 MiB of text, whatever the request says
  request.limits.max_text_bytes = 1'000'000;
  const FileIdentity identity{"flooded", 1, 1};
  uint64_t kept = 0;
  props::TextPieceSink sink = [&kept](std::string_view piece) {
    kept += piece.size();
    return true;
  };
  ExtractOutcome outcome = service.Text(request, identity, sink);
  EXPECT_EQ(outcome.status, props::ContentsStatus::kFailed);
  EXPECT_TRUE(outcome.helper_failed);
  EXPECT_NE(outcome.message.find("refused"), std::string::npos) << outcome.message;
  EXPECT_LE(kept, 1'000'000u);
  service.Text(request, identity, sink);
  EXPECT_TRUE(service.ShouldSkip(identity));

  // Members and properties the same way; an honest answer still comes through.
  request.op = extract::kOpList;
  request.path = "flood:member 200000 10";
  std::vector<extract::ArchiveMember> members;
  EXPECT_EQ(service.List(request, {"members", 1, 1}, &members).status, props::ContentsStatus::kFailed);
  EXPECT_LE(members.size(), request.limits.max_members);
  request.op = extract::kOpProps;
  request.path = "flood:property 3 100";
  std::vector<extract::ExtractedProperty> properties;
  EXPECT_EQ(service.Properties(request, {"properties", 1, 1}, &properties).status, props::ContentsStatus::kText);
  EXPECT_EQ(properties.size(), 3u);
}

}  // namespace
}  // namespace trovix::engine
