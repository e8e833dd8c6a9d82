#include "engine/results/batching_sink.h"

#include <utility>

namespace trovix::engine {

BatchingSink::BatchingSink(std::function<void()> wake) : wake_(std::move(wake)) {}

void BatchingSink::SetStatus(const std::string& text) {
  SearchEvent e;
  e.id = UM_SET_STATUS;
  e.text = text;
  Push(std::move(e));
}

void BatchingSink::SearchState(bool running, std::shared_ptr<const rules::RuleSet> rules) {
  SearchEvent e;
  e.id = UM_SEARCH_STATE;
  e.running = running;
  e.rules = std::move(rules);
  Push(std::move(e));
}

int BatchingSink::AddResult(const props::ShellItemPtr& item) {
  SearchEvent e;
  e.id = UM_ADD_RESULT;
  e.item = item;
  Push(std::move(e));
  return 0;
}

void BatchingSink::Push(SearchEvent e) {
  bool wake = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (e.id == UM_SET_STATUS && !pending_.empty() && pending_.back().id == UM_SET_STATUS) {
      pending_.back().text = std::move(e.text);
    } else {
      pending_.push_back(std::move(e));
    }
    if (!woken_) {
      woken_ = true;
      wake = true;
    }
  }
  if (wake && wake_) wake_();
}

size_t BatchingSink::Drain(ResultSink& target) {
  std::vector<SearchEvent> batch;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    batch.swap(pending_);
    // Cleared before delivering, so an event queued while the batch is handed over wakes the
    // consumer again instead of waiting for a Drain that might never come.
    woken_ = false;
  }
  for (const SearchEvent& e : batch) {
    if (target.Deliver(e) != 0 && e.id == UM_ADD_RESULT) refused_.fetch_add(1, std::memory_order_relaxed);
  }
  return batch.size();
}

}  // namespace trovix::engine
