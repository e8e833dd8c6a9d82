// CountingSink: a result sink that only counts, for benchmarks that time a search's answer
// without the cost of keeping it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "engine/results/result_sink.h"

namespace trovix::bench {

class CountingSink : public engine::ResultSink {
 public:
  void SetStatus(const std::string&) override {}
  void SearchState(bool, std::shared_ptr<const rules::RuleSet>) override {}
  int AddResult(const props::ShellItemPtr&) override { return ++count, 0; }
  int64_t count = 0;
};

}  // namespace trovix::bench
