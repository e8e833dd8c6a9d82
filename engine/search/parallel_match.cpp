#include "engine/search/parallel_match.h"

#include "engine/walk/folder_walk.h"
#include "platform/frame_io.h"
#include "props/fetch_stop.h"
#include "props/handler_registry.h"
#include "props/property_info.h"
#include "rules/item_value_provider.h"
#include "rules/matchers/text_matcher.h"

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
// How long fewer items than a batch wait for a thread while the walk goes on.
constexpr int64_t kMaxWaitMs = 2;
}  // namespace

// One thread's copy of the rule set and what it reads values through.
class ParallelMatch::Evaluator {
 public:
  Evaluator(const rules::RuleSet& prototype, props::ContentsSource* contents) : set_(prototype.Copy()) {
    provider_.set_contents_source(contents);
    set_->set_value_provider(&provider_);
    if (set_->contents_rule() >= 0)
      contents_matcher_ =
          dynamic_cast<const rules::KeywordMatcher*>(&set_->matcher(static_cast<size_t>(set_->contents_rule())));
  }

  State Decide(const props::ShellItemPtr& item, std::string* excerpt) {
    provider_.set_item(item);
    const bool matched = set_->Evaluate() && !ItemVanished(*item);
    provider_.set_item(nullptr);
    if (matched && contents_matcher_ && contents_matcher_->hit_state() == rules::kHitTrue)
      *excerpt = contents_matcher_->excerpt();
    return matched ? State::kMatched : State::kNotMatched;
  }

 private:
  std::unique_ptr<rules::RuleSet> set_;
  rules::ItemValueProvider provider_;
  const rules::KeywordMatcher* contents_matcher_ = nullptr;
};

ParallelMatch::ParallelMatch(const rules::RuleSet& rule_set, props::ContentsSource* contents, int threads,
                             std::stop_token stop, MatchFn on_match)
    : window_(static_cast<size_t>(threads < 1 ? 1 : threads) * 64),
      stop_(std::move(stop)),
      on_match_(std::move(on_match)),
      walk_evaluator_(std::make_unique<Evaluator>(rule_set, contents)) {
  reads_contents_ = rule_set.contents_rule() >= 0;
  if (reads_contents_) contents_ = contents;
  for (const rules::RulePtr& rule : rule_set.rules()) {
    if (!(rule->PropertyFlags() & props::kPropCostly) || rule->IsContents()) continue;
    if (rule->PropertyFlags() & props::kPropStock) any_stock_cost_ = true;
    else read_hashes_.push_back(rule->KeyHash());
  }
  for (int i = 0; i < (threads < 1 ? 1 : threads); ++i)
    threads_.emplace_back([this, evaluator = std::make_shared<Evaluator>(rule_set, contents)] { Work(*evaluator); });
}

bool ParallelMatch::MayRead(props::ShellItem& item) const {
  if (any_stock_cost_) return true;
  if (reads_contents_ && !item.IsFolder()) return true;
  for (uint32_t hash : read_hashes_)
    for (const props::PropertyHandler* handler : props::HandlerRegistry::Instance().HandlersFor(hash))
      if (handler->Accepts(item)) return true;
  return false;
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
    work_cv_.notify_all();  // whatever waits must be taken now
    AdvanceDecided();
    walk_cv_.wait(lock, [this] { return decided_end_ >= walk_wants_ || stop_.stop_requested(); });
    walk_wants_ = 0;
  }
  Deliver(lock);
  // An item whose test cannot read the file, with no item before it left for the threads, is
  // decided here and now in its place: no thread is woken for it. (Only this thread adds
  // slots, so none can appear ahead of it meanwhile.)
  if (next_to_take_ == head_number_ + slots_.size() && !MayRead(*item)) {
    lock.unlock();
    Slot slot{std::move(item)};
    slot.state = stop_.stop_requested() ? State::kDropped : walk_evaluator_->Decide(slot.item, &slot.excerpt);
    lock.lock();
    slots_.push_back(std::move(slot));
    ++next_to_take_;
    Deliver(lock);
    return;
  }
  slots_.push_back(Slot{std::move(item)});
  // An idle thread is woken for a batch, or for fewer items that have waited a while: most
  // items of a tree are decided at once (a rule on an artist passes a text file over without
  // reading it), and a wake-up per item would cost more than deciding them.
  const uint64_t waiting = head_number_ + slots_.size() - next_to_take_;
  const int64_t now = platform::MonotonicMs();
  if (waiting == 1) first_waiting_ms_ = now;
  const bool wake = idle_threads_ > 0 && (waiting >= kBatch || now - first_waiting_ms_ >= kMaxWaitMs);
  lock.unlock();
  if (wake) work_cv_.notify_one();
}

void ParallelMatch::Finish() {
  std::unique_lock lock(mutex_);
  // After a stop the threads drop what they have not taken, so every slot is decided soon.
  walk_wants_ = head_number_ + slots_.size();
  work_cv_.notify_all();  // the last items, fewer than a batch, must be taken now
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

void ParallelMatch::Work(Evaluator& evaluator) {
  struct Decision {
    props::ShellItemPtr item;
    State state;
    std::string excerpt;
  };
  std::vector<Decision> batch;
  std::vector<props::ShellItemPtr> taken;
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
    if (contents_ != nullptr) {
      taken.clear();
      for (const Decision& d : batch) taken.push_back(d.item);
      contents_->ReadAhead(taken, stop_);
    }
    for (Decision& d : batch) {
      if (stop_.stop_requested()) continue;  // dropped undecided
      d.state = evaluator.Decide(d.item, &d.excerpt);
      // A stop during the decision may have cut its reading short: the answer is not trusted.
      if (stop_.stop_requested()) d.state = State::kDropped;
    }
    if (contents_ != nullptr) contents_->ReadAhead({});
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
