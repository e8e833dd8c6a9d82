// ParallelMatch: tests the walk's items against a rule set on several threads, for rule sets
// whose test costs more than the walk (a contents rule reads every file), and hands the
// matches on in the order the walk met the items, so the results never depend on the number
// of threads.
//
// The walk's thread calls Submit for each item and Finish at the end; `on_match` runs on that
// thread too (the sink hears from one thread), in walk order, once every earlier item has
// been decided. At most `window` items are in flight: when the window is full, Submit waits
// until half of it is decided, so a fast walk cannot run ahead of the readers without bound.
//
// Hand-overs are kept few, since each wake-up is a trip through the scheduler: a thread takes
// several items at once, an idle thread is woken for a batch of items (or for fewer that have
// waited 2 ms while the walk goes on), and the walk only when half the window (or, at the
// end, all of it) is ready.
//
// Each thread evaluates its own copy of the rule set (RuleSet::Copy) through its own value
// provider; the contents source is shared and must be thread-safe. A thread tells the source
// which items it took (ContentsSource::ReadAhead), so that the documents among them can be
// read in one round trip to the helper.
//
// Items whose test cannot read the file (a rule on an artist meets a text file) are decided on
// the walk's thread as they come, in their place in the order; only the others are handed
// over.
//
// Stopping: once `stop` is requested, items not yet taken are dropped undecided; the matches
// already decided in order are still handed on by Finish.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "props/contents_source.h"
#include "props/shell_item.h"
#include "rules/rule_set.h"

namespace trovix::engine {

class ParallelMatch {
 public:
  // `excerpt` is where the contents rule found its text (empty without one).
  using MatchFn = std::function<void(const props::ShellItemPtr& item, std::string excerpt)>;

  ParallelMatch(const rules::RuleSet& rule_set, props::ContentsSource* contents, int threads,
                std::stop_token stop, MatchFn on_match);
  ~ParallelMatch();
  ParallelMatch(const ParallelMatch&) = delete;
  ParallelMatch& operator=(const ParallelMatch&) = delete;

  void Submit(props::ShellItemPtr item);
  // Waits for every submitted item (or, after a stop, for the threads to let go) and hands
  // on the remaining matches in order.
  void Finish();

 private:
  enum class State : uint8_t { kWaiting, kTaken, kMatched, kNotMatched, kDropped };
  class Evaluator;
  struct Slot {
    props::ShellItemPtr item;
    State state = State::kWaiting;
    std::string excerpt;
  };

  void Work(Evaluator& evaluator);
  // Whether testing the item may read the file (then a thread does it); the rest are decided
  // on the walk's thread at once, without a hand-over.
  bool MayRead(props::ShellItem& item) const;
  // Hands on the decided slots at the head (the walk's thread, `lock` held on entry and exit).
  void Deliver(std::unique_lock<std::mutex>& lock);
  // Moves decided_end_ over the slots decided in a row; wakes the walk when it waits for them.
  void AdvanceDecided();

  const size_t window_;
  std::stop_token stop_;
  MatchFn on_match_;
  std::mutex mutex_;
  std::condition_variable work_cv_;  // items to take, or the end
  std::condition_variable walk_cv_;  // enough items decided for the waiting walk
  std::deque<Slot> slots_;           // in walk order; the head is the oldest undelivered item
  uint64_t head_number_ = 0;         // the walk number of slots_.front()
  uint64_t next_to_take_ = 0;        // the walk number of the first slot no thread took
  uint64_t decided_end_ = 0;         // the walk number after the run of decided slots at the head
  uint64_t walk_wants_ = 0;          // the walk waits until decided_end_ reaches this (0: not)
  int idle_threads_ = 0;
  int64_t first_waiting_ms_ = 0;     // when the oldest untaken item arrived (monotonic ms)
  bool reads_contents_ = false;      // a contents rule: every file may be read
  props::ContentsSource* contents_ = nullptr;  // with a contents rule: told what each thread took
  bool any_stock_cost_ = false;      // a costly stock property: every item may cost
  std::vector<uint32_t> read_hashes_;  // costly properties answered by handlers that read files
  std::unique_ptr<Evaluator> walk_evaluator_;
  bool closing_ = false;
  std::vector<std::thread> threads_;
};

// Whether a rule set is worth testing on several threads: it reads contents, or a property
// that costs a pass over the file (a document's title is read by a helper).
bool WorthParallelMatch(const rules::RuleSet& rule_set);

}  // namespace trovix::engine
