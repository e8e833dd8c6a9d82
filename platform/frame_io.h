// Frames: the message unit between the search process and its helper processes (document
// extraction now, content plugins later). A frame is a 32-bit type, a 32-bit payload length
// (both little-endian) and the payload bytes. Both ends use these functions over pipes.
//
// Payloads are built and read with FrameWriter / FrameReader: fixed-width little-endian
// integers and length-prefixed byte strings, so a frame decodes the same on any host.
//
// Thread-safety: none; one thread uses one descriptor at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace trovix::platform {

// Payloads beyond this are refused by ReadFrame (a helper that goes mad cannot make the
// search process allocate without bound); a reader that expects less says so per call.
inline constexpr uint32_t kMaxFramePayload = 16u << 20;

struct Frame {
  uint32_t type = 0;
  std::string payload;
};

enum class FrameStatus {
  kOk,
  kClosed,    // the other end closed the pipe (end of file before a frame began)
  kTimedOut,  // the deadline passed before the whole frame arrived
  kBroken,    // a read or write failed, or a frame was cut short
  kTooLarge,  // the frame's length is above what the reader accepts (nothing of it was read)
};

// Writes one whole frame (retrying short writes and EINTR). kBroken when the pipe is gone.
FrameStatus WriteFrame(int fd, uint32_t type, std::string_view payload);

// Reads one whole frame. `deadline_ms` is an absolute CLOCK_MONOTONIC time in milliseconds
// (MonotonicMs()), or -1 to wait for ever. A payload above `max_payload` is kTooLarge: only
// its header was read, so nothing is allocated for it.
FrameStatus ReadFrame(int fd, Frame* frame, int64_t deadline_ms, uint32_t max_payload = kMaxFramePayload);

// Reads frames as ReadFrame does, but takes whatever the descriptor holds in one read (up to
// 64 KiB beyond what the frame needs) and keeps the rest for the next call: a helper's answer
// of a text frame and an end frame costs one poll and one read instead of four of each. The
// descriptor must be read through this inbox only, as long as it lives.
class FrameInbox {
 public:
  FrameStatus Read(int fd, Frame* frame, int64_t deadline_ms, uint32_t max_payload = kMaxFramePayload);
  // Bytes read but not yet handed out as frames.
  size_t pending() const { return end_ - begin_; }
  // Gives back a block grown for a large frame, once nothing is pending.
  void Trim();

 private:
  // Makes at least `need` bytes wait; `started`: part of a frame was taken already.
  FrameStatus Fill(int fd, size_t need, int64_t deadline_ms, bool started);

  std::string buffer_;
  size_t begin_ = 0;
  size_t end_ = 0;
};

// Milliseconds of CLOCK_MONOTONIC.
int64_t MonotonicMs();

// Frame types the pool itself uses; the protocols of its users start at 16.
inline constexpr uint32_t kFrameCancel = 2;

// The helper's side: true when input is waiting on `fd` (a cancel frame, since a client sends
// nothing else mid-exchange), checked without blocking, so a helper can look between two
// pieces of work. The frame is left for ReadFrame.
bool InputPending(int fd);

class FrameWriter {
 public:
  FrameWriter& U8(uint8_t v);
  FrameWriter& U32(uint32_t v);
  FrameWriter& U64(uint64_t v);
  FrameWriter& I64(int64_t v) { return U64(static_cast<uint64_t>(v)); }
  FrameWriter& Bytes(std::string_view v);  // u32 length, then the bytes
  const std::string& data() const { return data_; }
  std::string Take() { return std::move(data_); }

 private:
  std::string data_;
};

// Reads what FrameWriter wrote. A read past the end sets failed() and yields zeros / empty.
class FrameReader {
 public:
  explicit FrameReader(std::string_view data) : data_(data) {}
  uint8_t U8();
  uint32_t U32();
  uint64_t U64();
  int64_t I64() { return static_cast<int64_t>(U64()); }
  std::string Bytes();
  bool failed() const { return failed_; }
  bool at_end() const { return pos_ == data_.size(); }

 private:
  bool Take(size_t n, const char** out);
  std::string_view data_;
  size_t pos_ = 0;
  bool failed_ = false;
};

}  // namespace trovix::platform
