#include "engine/walk/folder_read_ahead.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace trovix::engine {
namespace {

// A synthetic tree in memory: folder "n" has children "n/0" .. "n/k" while the depth lasts.
// The read function records who read what; the walk is simulated by taking heads and
// pushing each head's subfolders, as the folder walk does.
struct SyntheticWalk {
  int fan_out = 5;
  int depth = 4;
  std::mutex mutex;
  std::map<std::string, int> reads;

  static int Depth(const std::string& path) {
    int d = 0;
    for (char c : path) d += c == '/';
    return d;
  }

  void Read(QueuedFolder& f) {
    {
      std::lock_guard<std::mutex> lock(mutex);
      ++reads[f.path];
    }
    if (Depth(f.path) >= depth) return;
    for (int i = 0; i < fan_out; ++i) {
      FolderChild c;
      c.type = platform::FileType::kDirectory;
      f.children.push_back(c);
    }
  }

  static std::shared_ptr<QueuedFolder> Folder(std::string path) {
    auto f = std::make_shared<QueuedFolder>();
    f->path = std::move(path);
    return f;
  }

  // The paths in the order the walk takes them; stops after `stop_after` heads when set.
  std::vector<std::string> Run(int threads, size_t window, size_t stop_after = 0) {
    FolderReadAhead queue(threads, window, [this](QueuedFolder& f) { Read(f); });
    queue.Push(Folder(std::string("r")));
    std::vector<std::string> order;
    while (!queue.empty()) {
      std::shared_ptr<QueuedFolder> head = queue.TakeHead();
      EXPECT_TRUE(head->done || threads == 0) << head->path;
      order.push_back(head->path);
      if (stop_after && order.size() == stop_after) {
        queue.Stop();
        break;
      }
      for (size_t i = 0; i < head->children.size(); ++i) {
        queue.Push(Folder(head->path + "/" + std::to_string(i)));
      }
    }
    return order;
  }
};

TEST(FolderReadAhead, EveryFolderIsReadOnceAndTakenInQueueOrderWhateverTheThreads) {
  SyntheticWalk reference;
  std::vector<std::string> expected = reference.Run(0, 0);
  ASSERT_EQ(expected.size(), 1u + 5 + 25 + 125 + 625);
  for (int threads : {1, 2, 4}) {
    for (size_t window : {1u, 8u, 256u}) {
      SCOPED_TRACE(std::to_string(threads) + " threads, window " + std::to_string(window));
      SyntheticWalk walk;
      EXPECT_EQ(walk.Run(threads, window), expected);
      ASSERT_EQ(walk.reads.size(), expected.size());
      for (const auto& [path, count] : walk.reads) EXPECT_EQ(count, 1) << path;
    }
  }
}

TEST(FolderReadAhead, StopDropsTheRestAndEndsTheReaders) {
  for (int threads : {0, 2}) {
    SCOPED_TRACE(threads);
    SyntheticWalk walk;
    std::vector<std::string> order = walk.Run(threads, 64, 40);
    EXPECT_EQ(order.size(), 40u);
    // Readers may have read ahead of the stop, but never past the window.
    EXPECT_LE(walk.reads.size(), 40u + (threads ? 64u : 0u));
  }
}

}  // namespace
}  // namespace trovix::engine
