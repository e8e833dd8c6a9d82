// Several files per round trip to the helper: each file keeps its own caps, deadline and
// crash memory. A crash on the third file of a batch is charged to that file alone and the
// files after it are read again; a caller that stops reading one file still gets the others.
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "engine/extraction/extraction_service.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine {
namespace {

ExtractionOptions TestHelper(int64_t timeout_ms = 5000) {
  ExtractionOptions options;
  options.program = TROVIX_EXTRACT_TEST_PATH;  // crashes on "poison-crash", hangs on "poison-hang"
  options.helpers = 1;
  options.memory_limit = 0;
  options.timeout_ms = timeout_ms;
  return options;
}

struct Batch {
  std::vector<extract::ExtractRequest> requests;
  std::vector<FileIdentity> identities;
  void Add(const std::string& path) {
    extract::ExtractRequest request;
    request.path = path;
    requests.push_back(request);
    identities.push_back({path, 1, 1});
  }
};

TEST(ExtractionBatch, ACrashCostsOnlyItsFileAndTheRestAreReadAgain) {
  testing::TempTree tree({"a.html=<p>alpha</p>", "b.html=<p>beta</p>", "poison-crash.html=<p>boom</p>",
                          "d.html=<p>delta</p>", "e.html=<p>epsilon</p>"});
  CrashMemory memory("");
  ExtractionService service(TestHelper(), memory);
  Batch batch;
  for (const char* name : {"a.html", "b.html", "poison-crash.html", "d.html", "e.html"}) batch.Add(tree.path(name));
  std::map<size_t, std::string> texts;
  auto read = [&] {
    texts.clear();
    return service.TextBatch(batch.requests, batch.identities, [&](size_t index, std::string_view piece) {
      texts[index] += piece;
      return true;
    });
  };
  std::vector<ExtractOutcome> outcomes = read();
  ASSERT_EQ(outcomes.size(), 5u);
  EXPECT_EQ(outcomes[2].status, props::ContentsStatus::kFailed);
  EXPECT_TRUE(outcomes[2].helper_failed);
  const char* const expected[] = {"alpha", "beta", "", "delta", "epsilon"};
  for (size_t i : {0u, 1u, 3u, 4u}) {
    SCOPED_TRACE(i);
    EXPECT_EQ(outcomes[i].status, props::ContentsStatus::kText) << outcomes[i].message;
    EXPECT_NE(texts[i].find(expected[i]), std::string::npos) << texts[i];
    EXPECT_FALSE(outcomes[i].helper_failed);
  }
  EXPECT_FALSE(texts.count(2));
  // The helper was started once, and once more after the crash: one round trip per batch.
  EXPECT_EQ(service.helper_starts(), 2u);
  // The crash memory counts the poisoned file alone: a second crash makes it skipped, and the
  // others are never skipped.
  read();
  outcomes = read();
  EXPECT_EQ(outcomes[2].status, props::ContentsStatus::kSkipped);
  for (size_t i : {0u, 1u, 3u, 4u}) EXPECT_FALSE(service.ShouldSkip(batch.identities[i]));
}

// The caller stops the first file at its first piece while the helper has gone on and dies
// on the second: the stop cannot be told any more, and the first file must not be charged.
TEST(ExtractionBatch, StoppingAFileWhileALaterOneCrashesChargesOnlyTheLaterOne) {
  testing::TempTree tree({"a.html=<p>alpha</p>", "poison-crash.html=<p>boom</p>", "c.html=<p>gamma</p>"});
  CrashMemory memory("");
  ExtractionService service(TestHelper(), memory);
  Batch batch;
  for (const char* name : {"a.html", "poison-crash.html", "c.html"}) batch.Add(tree.path(name));
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    std::map<size_t, std::string> texts;
    std::vector<ExtractOutcome> outcomes =
        service.TextBatch(batch.requests, batch.identities, [&](size_t index, std::string_view piece) {
          texts[index] += piece;
          if (index != 0) return true;
          // Time for the helper to reach the poisoned file and die before it is told.
          std::this_thread::sleep_for(std::chrono::milliseconds(150));
          return false;
        });
    ASSERT_EQ(outcomes.size(), 3u);
    EXPECT_EQ(outcomes[0].status, props::ContentsStatus::kText) << outcomes[0].message;
    EXPECT_FALSE(service.ShouldSkip(batch.identities[0]));
    EXPECT_NE(outcomes[1].status, props::ContentsStatus::kText);
    EXPECT_NE(texts[2].find("gamma"), std::string::npos);
  }
}

TEST(ExtractionBatch, AHangIsStoppedAtItsOwnDeadlineAndStoppingOneFileKeepsTheOthers) {
  // A text long enough to come in several pieces, which the caller stops after the first.
  std::string long_page = "<pre>";
  for (int i = 0; i < 40000; ++i) long_page += "line " + std::to_string(i) + "\n";
  long_page += "</pre>";
  testing::TempTree tree({"b.html=<p>beta</p>", "poison-hang.html=<p>x</p>", "d.html=<p>delta</p>"});
  tree.File("a.html", long_page);
  CrashMemory memory("");
  ExtractionService service(TestHelper(1000), memory);
  Batch batch;
  for (const char* name : {"a.html", "b.html", "poison-hang.html", "d.html"}) batch.Add(tree.path(name));
  std::map<size_t, int> pieces;
  std::map<size_t, std::string> texts;
  std::vector<ExtractOutcome> outcomes =
      service.TextBatch(batch.requests, batch.identities, [&](size_t index, std::string_view piece) {
        ++pieces[index];
        texts[index] += piece;
        return index != 0;  // one piece of the first file is enough
      });
  ASSERT_EQ(outcomes.size(), 4u);
  EXPECT_EQ(pieces[0], 1);
  EXPECT_EQ(outcomes[0].status, props::ContentsStatus::kText);
  EXPECT_NE(texts[1].find("beta"), std::string::npos);
  EXPECT_EQ(outcomes[2].status, props::ContentsStatus::kFailed);
  EXPECT_NE(outcomes[2].message.find("too long"), std::string::npos) << outcomes[2].message;
  EXPECT_NE(texts[3].find("delta"), std::string::npos);
  EXPECT_EQ(outcomes[3].status, props::ContentsStatus::kText);
}

TEST(ExtractionBatch, AStopWhileTheHelperHangsEndsTheBatchAtOnceAndChargesNothing) {
  // The deadline is far off: only the stop can end the hang soon.
  testing::TempTree tree({"poison-hang-1.html=<p>x</p>", "poison-hang-2.html=<p>x</p>", "c.html=<p>gamma</p>"});
  CrashMemory memory("");
  ExtractionService service(TestHelper(20'000), memory);
  Batch batch;
  for (const char* name : {"poison-hang-1.html", "poison-hang-2.html", "c.html"}) batch.Add(tree.path(name));
  auto ignore = [](size_t, std::string_view) { return true; };

  // A stop that came first sends nothing.
  std::stop_source early;
  early.request_stop();
  for (const ExtractOutcome& outcome : service.TextBatch(batch.requests, batch.identities, ignore, early.get_token()))
    EXPECT_FALSE(outcome.asked);
  EXPECT_EQ(service.helper_starts(), 0u);

  // Twice: a file charged twice would be skipped from then on.
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    std::stop_source stop;
    const auto began = std::chrono::steady_clock::now();
    std::jthread stopper([&stop] {
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      stop.request_stop();
    });
    std::vector<ExtractOutcome> outcomes =
        service.TextBatch(batch.requests, batch.identities, ignore, stop.get_token());
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(10));
    ASSERT_EQ(outcomes.size(), 3u);
    EXPECT_TRUE(outcomes[0].stopped);
    EXPECT_FALSE(outcomes[0].helper_failed);
    EXPECT_FALSE(outcomes[1].asked);
    EXPECT_FALSE(outcomes[2].asked);
    for (const FileIdentity& identity : batch.identities) EXPECT_FALSE(memory.ShouldSkip(identity));
  }
  // The killed helper is replaced: the next file reads as ever.
  std::string text;
  const ExtractOutcome gamma = service.Text(batch.requests[2], batch.identities[2], [&text](std::string_view piece) {
    text += piece;
    return true;
  });
  EXPECT_EQ(gamma.status, props::ContentsStatus::kText) << gamma.message;
  EXPECT_NE(text.find("gamma"), std::string::npos);
}

TEST(ExtractionBatch, TheBatchFrameRoundTripsAndRefusesWhatNoClientSends) {
  extract::ExtractBatch batch;
  for (int i = 0; i < 3; ++i) {
    extract::ExtractRequest request;
    request.path = "file" + std::to_string(i);
    request.members = {"inner.zip", "doc.txt"};
    batch.requests.push_back(request);
  }
  extract::ExtractBatch back;
  ASSERT_TRUE(back.Decode(batch.Encode()));
  ASSERT_EQ(back.requests.size(), 3u);
  EXPECT_EQ(back.requests[2].path, "file2");
  EXPECT_EQ(back.requests[1].members, batch.requests[1].members);
  EXPECT_FALSE(extract::ExtractBatch().Decode(extract::ExtractBatch().Encode()));  // empty
  batch.requests[1].op = extract::kOpSandbox;  // the sandbox report is asked alone
  EXPECT_FALSE(back.Decode(batch.Encode()));
  // A cancel names its file: one for a file already ended does not stop the next.
  EXPECT_TRUE(extract::CancelStops(extract::CancelPayload(2), 2));
  EXPECT_FALSE(extract::CancelStops(extract::CancelPayload(1), 2));
  EXPECT_TRUE(extract::CancelStops("", 5));
}

}  // namespace
}  // namespace trovix::engine
