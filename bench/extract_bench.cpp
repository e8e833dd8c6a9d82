// The extraction helper's round trip: one small document's text asked of a sandboxed helper
// (request, parse, answer frames, end), one helper, one request at a time; beside it the same
// text read in process from a plain-text file, the floor any helper round trip is measured
// against; and the page asked 32 times per round trip (a batch). items_per_second is
// documents per second.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "engine/extraction/contents_reader.h"
#include "engine/extraction/extraction_service.h"
#include "props/shell_item.h"

namespace {

using namespace trovix;

// A folder with one small HTML page and the same words as a text file; removed at exit.
struct Documents {
  std::string folder;
  Documents() {
    char name[] = "/tmp/trovix-extract-bench-XXXXXX";
    folder = mkdtemp(name);
    Write("page.html", "<html><body><p>the quiet harbour lantern was lit at dusk</p></body></html>");
    Write("page.txt", "the quiet harbour lantern was lit at dusk\n");
  }
  ~Documents() {
    unlink((folder + "/page.html").c_str());
    unlink((folder + "/page.txt").c_str());
    rmdir(folder.c_str());
  }
  void Write(const char* name, const char* text) {
    FILE* f = std::fopen((folder + "/" + name).c_str(), "w");
    std::fputs(text, f);
    std::fclose(f);
  }
};

Documents& Docs() {
  static Documents docs;
  return docs;
}

void BM_HelperRoundTrip(benchmark::State& state) {
  engine::ExtractionOptions options;
  options.program = TROVIX_EXTRACT_PATH;
  options.helpers = 1;
  engine::CrashMemory memory("");
  engine::ExtractionService service(options, memory);
  extract::ExtractRequest request;
  request.op = extract::kOpText;
  request.path = Docs().folder + "/page.html";
  size_t bytes = 0;
  for (auto _ : state) {
    engine::ExtractOutcome outcome = service.Text(request, {request.path, 0, 0}, [&](std::string_view text) {
      bytes += text.size();
      return true;
    });
    if (outcome.status != props::ContentsStatus::kText) state.SkipWithError(outcome.message.c_str());
  }
  state.SetItemsProcessed(state.iterations());
  state.counters["text_bytes"] = static_cast<double>(bytes) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_HelperRoundTrip)->UseRealTime();

// The same page asked 32 times in one batch (one round trip): items_per_second against
// BM_HelperRoundTrip's is what a round trip per file costs.
void BM_HelperBatchRoundTrip(benchmark::State& state) {
  engine::ExtractionOptions options;
  options.program = TROVIX_EXTRACT_PATH;
  options.helpers = 1;
  engine::CrashMemory memory("");
  engine::ExtractionService service(options, memory);
  extract::ExtractRequest request;
  request.op = extract::kOpText;
  request.path = Docs().folder + "/page.html";
  const std::vector<extract::ExtractRequest> requests(extract::kMaxBatchRequests, request);
  const std::vector<engine::FileIdentity> identities(extract::kMaxBatchRequests, {request.path, 0, 0});
  for (auto _ : state) {
    std::vector<engine::ExtractOutcome> outcomes =
        service.TextBatch(requests, identities, [](size_t, std::string_view) { return true; });
    if (outcomes.back().status != props::ContentsStatus::kText) state.SkipWithError(outcomes.back().message.c_str());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(requests.size()));
}
BENCHMARK(BM_HelperBatchRoundTrip)->UseRealTime();

void BM_PlainTextInProcess(benchmark::State& state) {
  engine::ContentsReader reader({});
  const std::string path = Docs().folder + "/page.txt";
  for (auto _ : state) {
    auto item = props::ShellItem::FromPath(path);
    props::ContentsResult result = reader.Read(*item, [](std::string_view) { return true; });
    benchmark::DoNotOptimize(result);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PlainTextInProcess)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
