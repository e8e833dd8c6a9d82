#include "engine/parallel_match.h"

#include "engine/folder_walk.h"
#include "props/fetch_stop.h"
#include "props/property_info.h"
#include "rules/item_value_provider.h"
#include "rules/text_matcher.h"

namespace trovix::engine {

bool WorthParallelMatch(const rules::RuleSet& rule_set) {
  if (rule_set.contents_rule() >= 0) return true;
  for (const rules::RulePtr& rule : rule_set.rules())
    if (rule->PropertyFlags() & props::kPropCostly) return true;
  return false;
}

namespace {
// Items a thread takes at once.
constexpr uint64_t kBatch = 8;
}  // namespace

ParallelMatch::ParallelMatch(const rules::RuleSet& rule_set, props::ContentsSource* contents, int threads,
                             std::stop_token stop, MatchFn on_match)
    : window_(static_cast<size_t>(threads < 1 ? 1 : threads) * 64),
      stop_(std::move(stop)),
      on_match_(std::move(on_match)) {
  for (int i = 0; i < (threads < 1 ? 1 : threads); ++i)
    threads_.emplace_back([this, contents, copy = rule_set.Copy()]() mutable { Work(*copy, contents); });
}

ParallelMatch::~ParallelMatch() {
  {
    std::lock_guard lock(mutex_);
    closing_ = true;
  }
  work_cv_.notify_all();
  for (std::thread& t : threads_) t.join();
}

void ParallelMatch::Submit(props::ShellItemPtr item) {
  std::unique_lock lock(mutex_);
  if (slots_.size() >= window_ && !stop_.stop_requested()) {
    walk_wants_ = head_number_ + window_ / 2;
    AdvanceDecided();
    walk_cv_.wait(lock, [this] { return decided_end_ >= walk_wants_ || stop_.stop_requested(); });
    walk_wants_ = 0;
  }
  Deliver(lock);
  slots_.push_back(Slot{std::move(item)});
  const bool wake = idle_threads_ > 0;
  lock.unlock();
  if (wake) work_cv_.notify_one();
}

void ParallelMatch::Finish() {
  std::unique_lock lock(mutex_);
  // After a stop the threads drop what they have not taken, so every slot is decided soon.
  walk_wants_ = head_number_ + slots_.size();
  AdvanceDecided();
  walk_cv_.wait(lock, [this] { return decided_end_ >= walk_wants_; });
  walk_wants_ = 0;
  Deliver(lock);
  closing_ = true;
  lock.unlock();
  work_cv_.notify_all();
  for (std::thread& t : threads_) t.join();
  threads_.clear();
}

void ParallelMatch::AdvanceDecided() {
  if (decided_end_ < head_number_) decided_end_ = head_number_;
  while (decided_end_ - head_number_ < slots_.size()) {
    const State s = slots_[decided_end_ - head_number_].state;
    if (s == State::kWaiting || s == State::kTaken) break;
    ++decided_end_;
  }
  if (walk_wants_ != 0 && decided_end_ >= walk_wants_) walk_cv_.notify_one();
}

void ParallelMatch::Deliver(std::unique_lock<std::mutex>& lock) {
  AdvanceDecided();
  std::vector<Slot> ready;
  while (head_number_ < decided_end_) {
    if (slots_.front().state == State::kMatched) ready.push_back(std::move(slots_.front()));
    slots_.pop_front();
    ++head_number_;
  }
  if (ready.empty()) return;
  // The hand-over runs unlocked: the threads go on meanwhile.
  lock.unlock();
  for (Slot& slot : ready) on_match_(slot.item, std::move(slot.excerpt));
  lock.lock();
}

void ParallelMatch::Work(rules::RuleSet& rule_set, props::ContentsSource* contents) {
  // A folder count asked for by a rule ends early when the search is stopped.
  props::FetchStopScope stop_scope(stop_);
  rules::ItemValueProvider provider;
  provider.set_contents_source(contents);
  rule_set.set_value_provider(&provider);
  const rules::KeywordMatcher* contents_matcher =
      rule_set.contents_rule() >= 0 ? dynamic_cast<const rules::KeywordMatcher*>(
                                          &rule_set.matcher(static_cast<size_t>(rule_set.contents_rule())))
                                    : nullptr;
  struct Decision {
    props::ShellItemPtr item;
    State state;
    std::string excerpt;
  };
  std::vector<Decision> batch;
  std::unique_lock lock(mutex_);
  for (;;) {
    ++idle_threads_;
    work_cv_.wait(lock, [this] { return closing_ || next_to_take_ - head_number_ < slots_.size(); });
    --idle_threads_;
    const uint64_t first = next_to_take_;
    const uint64_t end = std::min<uint64_t>(head_number_ + slots_.size(), first + kBatch);
    if (first == end) return;  // closing, and nothing is left
    next_to_take_ = end;
    // Slots are found by their walk number: the head moves on as earlier items are handed
    // over, but never past an undecided slot, so these stay in the queue.
    batch.clear();
    for (uint64_t n = first; n < end; ++n) {
      Slot& slot = slots_[n - head_number_];
      slot.state = State::kTaken;
      batch.push_back({slot.item, State::kDropped, {}});
    }
    lock.unlock();
    for (Decision& d : batch) {
      if (stop_.stop_requested()) continue;  // dropped undecided
      provider.set_item(d.item);
      const bool matched = rule_set.Evaluate() && !ItemVanished(*d.item);
      provider.set_item(nullptr);
      d.state = matched ? State::kMatched : State::kNotMatched;
      if (matched && contents_matcher && contents_matcher->hit_state() == rules::kHitTrue)
        d.excerpt = contents_matcher->excerpt();
    }
    lock.lock();
    for (uint64_t n = first; n < end; ++n) {
      Slot& slot = slots_[n - head_number_];
      Decision& d = batch[n - first];
      slot.state = d.state;
      slot.excerpt = std::move(d.excerpt);
    }
    AdvanceDecided();
  }
}

}  // namespace trovix::engine
