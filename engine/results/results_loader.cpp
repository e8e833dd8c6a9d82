#include "engine/results/results_loader.h"

#include <chrono>

#include "props/fetcher.h"
#include "props/shell_item.h"

namespace trovix::engine {

bool IsCostlyColumn(const props::PropertyInfo& property) {
  if (property.has_flag(props::kPropCostly)) return true;
  return !property.has_flag(props::kPropInnate) && !property.has_flag(props::kPropCheap);
}

CostlyValueLoader::CostlyValueLoader(Deliver deliver) : deliver_(std::move(deliver)) {
  thread_ = std::thread([this] { Run(); });
}

CostlyValueLoader::~CostlyValueLoader() {
  {
    std::lock_guard lock(mutex_);
    stop_ = true;
    pending_.clear();
  }
  wake_.notify_all();
  thread_.join();
}

void CostlyValueLoader::Request(std::vector<LoadRequest> requests) {
  if (requests.empty()) return;
  {
    std::lock_guard lock(mutex_);
    // The first of `requests` should be loaded first: it goes on top of the stack.
    for (auto it = requests.rbegin(); it != requests.rend(); ++it) pending_.push_back(std::move(*it));
  }
  wake_.notify_one();
}

void CostlyValueLoader::Cancel() {
  std::lock_guard lock(mutex_);
  pending_.clear();
}

void CostlyValueLoader::Run() {
  using Clock = std::chrono::steady_clock;
  std::vector<LoadedValues> batch;
  Clock::time_point batch_start = Clock::now();
  bool worked = false;  // requests were loaded since the last "idle" notice
  for (;;) {
    LoadRequest request;
    bool idle = false;
    {
      std::unique_lock lock(mutex_);
      if (pending_.empty() && worked) {
        idle = true;
      } else {
        wake_.wait(lock, [this] { return stop_ || !pending_.empty(); });
        if (stop_) return;
        request = std::move(pending_.back());
        pending_.pop_back();
      }
    }
    if (idle) {
      deliver_(std::move(batch), true);
      batch.clear();
      worked = false;
      continue;
    }
    // The loader's own item: the listed one belongs to the UI thread.
    props::ShellItemPtr item = props::ShellItem::FromPath(request.path, request.follow_links);
    LoadedValues loaded{request.generation, request.row, {}};
    for (const props::PropertyInfo* property : request.properties) {
      props::PropValue value;
      props::FetchValue(*item, *property, &value);
      loaded.values.emplace_back(property->hash, std::move(value));
    }
    worked = true;
    if (batch.empty()) batch_start = Clock::now();
    batch.push_back(std::move(loaded));
    // Post in small batches so that the screen fills while the loader goes on.
    if (batch.size() >= 64 || Clock::now() - batch_start > std::chrono::milliseconds(40)) {
      deliver_(std::move(batch), false);
      batch.clear();
    }
  }
}

}  // namespace trovix::engine
