// Text patterns over a million generated file names, case-blind, one core: how many names per
// second each kind of pattern gets through. items_per_second is names per second.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "rules/patterns/text_pattern.h"

namespace {

using trovix::rules::KeywordProgram;
using trovix::rules::TextPattern;

// A fixed mix: mostly ASCII names, one in five with accented, Greek or CJK words.
const std::vector<std::string>& Names() {
  static const std::vector<std::string> names = [] {
    const char* ascii_words[] = {"report", "notes",  "IMG",     "budget",  "Draft",
                                 "final",  "copy",   "invoice", "Summary", "backup",
                                 "photo",  "data",   "README",  "project", "minutes",
                                 "scan",   "letter", "Setup",   "log",     "test"};
    const char* other_words[] = {"Größe",   "été",    "Ärger",     "résumé", "Straße",
                                 "ΣΊΣΥΦΟΣ", "日本語", "Überblick", "café",   "naïve"};
    const char* extensions[] = {".txt", ".doc", ".docx", ".pdf", ".jpg", ".png",
                                ".cpp", ".h",   ".xlsx", ".mp3", "",     ".TXT"};
    std::mt19937 random(20240611);
    auto pick = [&random](auto& array) {
      return array[std::uniform_int_distribution<size_t>(0, std::size(array) - 1)(random)];
    };
    std::vector<std::string> out;
    out.reserve(1'000'000);
    for (int i = 0; i < 1'000'000; ++i) {
      std::string name = pick(ascii_words);
      name += std::uniform_int_distribution<int>(0, 1)(random) ? "_" : " ";
      name += std::uniform_int_distribution<int>(0, 4)(random) == 0 ? pick(other_words)
                                                                    : pick(ascii_words);
      name += '_';
      name += std::to_string(std::uniform_int_distribution<int>(0, 999)(random));
      name += pick(extensions);
      out.push_back(std::move(name));
    }
    return out;
  }();
  return names;
}

void RunPattern(benchmark::State& state, const char* pattern, uint16_t mode, uint32_t flags) {
  const auto& names = Names();
  auto compiled = TextPattern::Compile(pattern, flags, mode);
  if (compiled == nullptr) {
    state.SkipWithError("pattern does not compile");
    return;
  }
  size_t matches = 0;
  for (auto _ : state) {
    for (const std::string& name : names) matches += compiled->Match(name);
  }
  benchmark::DoNotOptimize(matches);
  state.counters["matched"] =
      static_cast<double>(matches) / static_cast<double>(state.iterations());
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * names.size()));
}

constexpr uint32_t kCi = trovix::rules::kPatternIgnoreCase;
constexpr uint32_t kExact = trovix::rules::kPatternExact;
constexpr uint16_t kDetect = trovix::rules::kModeDetect;

void BM_PlainContains(benchmark::State& state) { RunPattern(state, "summary", kDetect, kCi); }
void BM_PlainNonAscii(benchmark::State& state) { RunPattern(state, "straße", kDetect, kCi); }
void BM_PlainWholeWord(benchmark::State& state) {
  RunPattern(state, "final", kDetect, kCi | trovix::rules::kPatternWholeWords);
}
void BM_WildcardContains(benchmark::State& state) { RunPattern(state, "rep*.txt", kDetect, kCi); }
void BM_WildcardExact(benchmark::State& state) {
  RunPattern(state, "*_1?3.doc*", kDetect, kCi | kExact);
}
void BM_Regex(benchmark::State& state) {
  RunPattern(state, "^[[:alpha:]]+[ _]ü\\w*_\\d+\\.(txt|docx?)$", kDetect, kCi);
}
void BM_Similarity(benchmark::State& state) { RunPattern(state, "reprot_final", 50, kCi); }

void BM_KeywordFreeform(benchmark::State& state) {
  const auto& names = Names();
  auto program = KeywordProgram::Compile("(report OR notes) AND NOT *.pdf", 5, kCi);
  size_t matches = 0;
  for (auto _ : state) {
    for (const std::string& name : names) matches += program->Match(name);
  }
  benchmark::DoNotOptimize(matches);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * names.size()));
}

BENCHMARK(BM_PlainContains)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainNonAscii)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainWholeWord)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WildcardContains)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WildcardExact)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Regex)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Similarity)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_KeywordFreeform)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
