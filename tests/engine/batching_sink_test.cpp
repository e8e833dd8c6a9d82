#include "engine/results/batching_sink.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace trovix::engine {
namespace {

// The consumer's real sink: records events as "S:text", "R:path", "E:0/1".
struct Recorder : ResultSink {
  void SetStatus(const std::string& text) override { log.push_back("S:" + text); }
  void SearchState(bool running, std::shared_ptr<const rules::RuleSet>) override {
    log.push_back(running ? "E:1" : "E:0");
  }
  int AddResult(const props::ShellItemPtr& item) override {
    log.push_back("R:" + item->path());
    return item->path() == refuse ? 1 : 0;
  }
  std::vector<std::string> log;
  std::string refuse;
};

TEST(BatchingSink, WakesOncePerBatchAndCoalescesAdjacentStatusTexts) {
  int wakes = 0;
  BatchingSink sink([&] { ++wakes; });
  sink.SearchState(true, nullptr);
  sink.SetStatus("one");
  sink.SetStatus("two");
  EXPECT_EQ(sink.AddResult(props::ShellItem::FromPath("/x")), 0);
  sink.SetStatus("three");
  EXPECT_EQ(wakes, 1);
  Recorder ui;
  ui.refuse = "/x";
  EXPECT_EQ(sink.Drain(ui), 4u);
  EXPECT_EQ(ui.log, (std::vector<std::string>{"E:1", "S:two", "R:/x", "S:three"}));
  EXPECT_EQ(sink.refused(), 1u);
  sink.SearchState(false, nullptr);
  EXPECT_EQ(wakes, 2) << "the first event after a drain wakes the consumer again";
}

TEST(BatchingSink, DeliversEverythingInOrderAcrossThreads) {
  std::mutex mutex;
  std::condition_variable cv;
  bool woken = false;
  BatchingSink sink([&] {
    std::lock_guard<std::mutex> lock(mutex);
    woken = true;
    cv.notify_one();
  });
  const int kItems = 20000;
  Recorder ui;
  std::thread consumer([&] {
    while (ui.log.empty() || ui.log.back() != "E:0") {
      std::unique_lock<std::mutex> lock(mutex);
      cv.wait(lock, [&] { return woken; });
      woken = false;
      lock.unlock();
      sink.Drain(ui);
    }
  });
  std::thread producer([&] {
    for (int i = 0; i < kItems; ++i) sink.AddResult(props::ShellItem::FromPath("/" + std::to_string(i)));
    sink.SearchState(false, nullptr);
  });
  producer.join();
  consumer.join();
  ASSERT_EQ(ui.log.size(), static_cast<size_t>(kItems) + 1);
  for (int i = 0; i < kItems; ++i) ASSERT_EQ(ui.log[i], "R:/" + std::to_string(i));
}

}  // namespace
}  // namespace trovix::engine
