#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "platform/frame_io.h"

namespace trovix::platform {
namespace {

struct Pipe {
  int fds[2] = {-1, -1};
  Pipe() { EXPECT_EQ(::pipe(fds), 0); }
  ~Pipe() {
    for (int fd : fds)
      if (fd >= 0) ::close(fd);
  }
  void CloseWriter() {
    ::close(fds[1]);
    fds[1] = -1;
  }
  // Writes the frames' bytes in one write, as a helper that answers quickly fills the pipe.
  void Put(const std::string& bytes) { ASSERT_EQ(::write(fds[1], bytes.data(), bytes.size()), ssize_t(bytes.size())); }
};

std::string Bytes(uint32_t type, const std::string& payload) {
  Pipe p;
  EXPECT_EQ(WriteFrame(p.fds[1], type, payload), FrameStatus::kOk);
  p.CloseWriter();
  std::string out(8 + payload.size(), '\0');
  EXPECT_EQ(::read(p.fds[0], out.data(), out.size()), ssize_t(out.size()));
  return out;
}

TEST(FrameInbox, HandsOutEveryFrameOfOneReadInTurnAndWaitsForTheRest) {
  Pipe p;
  const std::string third = Bytes(19, std::string(100, 'z'));
  p.Put(Bytes(17, "one") + Bytes(17, "") + third.substr(0, 20));
  FrameInbox inbox;
  Frame f;
  ASSERT_EQ(inbox.Read(p.fds[0], &f, MonotonicMs() + 5000), FrameStatus::kOk);
  EXPECT_EQ(f.type, 17u);
  EXPECT_EQ(f.payload, "one");
  ASSERT_EQ(inbox.Read(p.fds[0], &f, MonotonicMs() + 5000), FrameStatus::kOk);
  EXPECT_EQ(f.payload, "");
  EXPECT_EQ(inbox.pending(), 20u);
  // The third frame is cut: the inbox waits for its end until the deadline.
  EXPECT_EQ(inbox.Read(p.fds[0], &f, MonotonicMs() + 50), FrameStatus::kTimedOut);
  p.Put(third.substr(20));
  ASSERT_EQ(inbox.Read(p.fds[0], &f, MonotonicMs() + 5000), FrameStatus::kOk);
  EXPECT_EQ(f.type, 19u);
  EXPECT_EQ(f.payload, std::string(100, 'z'));
  EXPECT_EQ(inbox.pending(), 0u);
  p.CloseWriter();
  EXPECT_EQ(inbox.Read(p.fds[0], &f, -1), FrameStatus::kClosed) << "a close between frames is clean";
}

TEST(FrameInbox, AFrameCutByACloseIsBrokenAndAnOversizedOneIsRefusedUnread) {
  {
    Pipe p;
    p.Put(Bytes(17, "whole").substr(0, 10));
    p.CloseWriter();
    FrameInbox inbox;
    Frame f;
    EXPECT_EQ(inbox.Read(p.fds[0], &f, -1), FrameStatus::kBroken);
  }
  {
    Pipe p;
    p.Put(Bytes(17, std::string(64, 'x')));
    FrameInbox inbox;
    Frame f;
    EXPECT_EQ(inbox.Read(p.fds[0], &f, -1, 63), FrameStatus::kTooLarge);
    EXPECT_TRUE(f.payload.empty());
  }
  {
    // A frame larger than one block of the inbox comes through whole.
    Pipe p;
    const std::string big(300 * 1024, 'b');
    FrameInbox inbox;
    Frame f;
    ASSERT_EQ(WriteFrame(p.fds[1], 17, "a"), FrameStatus::kOk);
    std::thread writer([&] { EXPECT_EQ(WriteFrame(p.fds[1], 18, big), FrameStatus::kOk); });
    ASSERT_EQ(inbox.Read(p.fds[0], &f, MonotonicMs() + 5000), FrameStatus::kOk);
    ASSERT_EQ(inbox.Read(p.fds[0], &f, MonotonicMs() + 5000), FrameStatus::kOk);
    writer.join();
    EXPECT_EQ(f.type, 18u);
    EXPECT_EQ(f.payload, big);
    inbox.Trim();
  }
}

}  // namespace
}  // namespace trovix::platform
