// BatchingSink: a ResultSink for a front end whose consumer lives on another thread (the Qt
// GUI's UI thread). The search's worker thread calls it like any sink; it only queues the
// event and, when the queue was empty and the consumer has not been woken yet, calls `wake`
// once. The consumer then calls Drain on its own thread, which hands everything queued so
// far, in order, to the real sink. While the consumer is busy, events pile up and the next
// Drain takes them all at once, so the number of wake-ups follows the consumer's pace, not
// the number of items, and no timer is needed.
//
// In the GUI, `wake` posts a queued call to the UI thread, for example
//   QMetaObject::invokeMethod(model, [&] { batching.Drain(*model); }, Qt::QueuedConnection);
//
// Nothing is lost and nothing is reordered, with one exception: a status text still waiting
// in the queue is replaced by a newer one that follows it directly (only the latest status
// is worth showing).
//
// AddResult answers 0 ("taken") at once, because every queued item is delivered. When the
// real sink refuses an item during Drain, refused() counts it, so a front end that shows the
// engine's count can correct it.
//
// Thread-safety: the producing calls and Drain may run on different threads at the same
// time; `wake` is called on the producing thread without the internal lock held. The real
// sink is called only from Drain.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "engine/results/result_sink.h"

namespace trovix::engine {

class BatchingSink final : public ResultSink {
 public:
  explicit BatchingSink(std::function<void()> wake);

  void SetStatus(const std::string& text) override;
  void SearchState(bool running, std::shared_ptr<const rules::RuleSet> rules) override;
  int AddResult(const props::ShellItemPtr& item) override;

  // Delivers every event queued so far to `target`, in order. Returns how many it delivered.
  size_t Drain(ResultSink& target);

  // Items that the real sink refused during Drain.
  uint64_t refused() const { return refused_.load(std::memory_order_relaxed); }

 private:
  void Push(SearchEvent e);

  std::function<void()> wake_;
  std::mutex mutex_;
  std::vector<SearchEvent> pending_;
  bool woken_ = false;  // a wake-up is on its way and no Drain has run since
  std::atomic<uint64_t> refused_{0};
};

}  // namespace trovix::engine
