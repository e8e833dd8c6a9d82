// Index queries in process: the whole route (plan, translation, the worker's query, rows into
// items) for a name fragment, a wildcard, and a contents phrase, on an index made beforehand.
//
//   TROVIX_BENCH_INDEX=DB TROVIX_BENCH_ROOT=DIR [TROVIX_BENCH_PHRASE=TEXT TROVIX_BENCH_WORD=WORD]
//     index_bench [--benchmark_filter=...]
//
// The contents cases ask for the phrase and the word given (a rare phrase and a rare word of
// the tree, for index_speed.sh), or the generated tree's planted phrase.
//
// bench/index_speed.sh builds the index and runs this. Without the two variables it says so
// and runs nothing.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/counting_sink.h"
#include "index/index_route.h"
#include "props/catalogue.h"
#include "rules/rule_set.h"
#include "rules/value/value_syntax.h"

namespace {

using namespace trovix;

using bench::CountingSink;

void Query(benchmark::State& state, const char* property, const char* value) {
  const char* db = std::getenv("TROVIX_BENCH_INDEX");
  const char* root = std::getenv("TROVIX_BENCH_ROOT");
  if (db == nullptr || root == nullptr) {
    state.SkipWithError("set TROVIX_BENCH_INDEX and TROVIX_BENCH_ROOT (bench/index_speed.sh does)");
    return;
  }
  auto rule = rules::Rule::CreateFor(*props::DefaultCatalogue().FindProperty(property));
  rules::ParseRuleText(*rule, value);
  rules::RuleSet set;
  set.Compile({rule});
  engine::index::SqliteIndexRoute route(db);
  if (!route.ServiceAvailable()) {
    state.SkipWithError("no index");
    return;
  }
  int64_t rows = 0;
  for (auto _ : state) {
    CountingSink sink;
    route.RunIndexQuery(set, root, engine::IndexQueryOptions{true, 2, nullptr}, sink, {});
    rows = sink.count;
  }
  state.counters["results"] = static_cast<double>(rows);
  if (!route.last_report().error.empty()) state.SkipWithError(route.last_report().error.c_str());
}

void NameFragment(benchmark::State& state) { Query(state, "System.ItemNameDisplay", "invoice_42"); }
void NameWildcard(benchmark::State& state) { Query(state, "System.ItemNameDisplay", "chapter_77*.md"); }
void ContentsPhrase(benchmark::State& state) {
  const char* phrase = std::getenv("TROVIX_BENCH_PHRASE");
  const std::string value = "\"" + std::string(phrase != nullptr ? phrase : "quiet harbour lantern") + "\"";
  Query(state, "System.Search.Contents", value.c_str());
}
void ContentsWord(benchmark::State& state) {
  const char* word = std::getenv("TROVIX_BENCH_WORD");
  Query(state, "System.Search.Contents", word != nullptr ? word : "lantern");
}

BENCHMARK(NameFragment)->Unit(benchmark::kMicrosecond);
BENCHMARK(NameWildcard)->Unit(benchmark::kMicrosecond);
BENCHMARK(ContentsPhrase)->Unit(benchmark::kMicrosecond);
BENCHMARK(ContentsWord)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
