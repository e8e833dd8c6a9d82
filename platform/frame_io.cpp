#include "platform/frame_io.h"

#include <errno.h>
#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <optional>

namespace trovix::platform {
namespace {

void Put32(char* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<char>((v >> (8 * i)) & 0xFF);
}

uint32_t Get32(const char* p) {
  uint32_t v = 0;
  for (int i = 3; i >= 0; --i) v = (v << 8) | static_cast<unsigned char>(p[i]);
  return v;
}

bool WriteAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    ssize_t n = ::write(fd, data, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

// Before a read with a deadline (none when negative): kOk to read now, kTimedOut past the
// deadline, kBroken when poll fails; nothing when a signal or the poll's slice ended the wait
// and the caller should ask again.
std::optional<FrameStatus> WaitReadable(int fd, int64_t deadline_ms) {
  if (deadline_ms < 0) return FrameStatus::kOk;
  const int64_t left = deadline_ms - MonotonicMs();
  if (left <= 0) return FrameStatus::kTimedOut;
  pollfd p{fd, POLLIN, 0};
  const int r = ::poll(&p, 1, static_cast<int>(std::min<int64_t>(left, 1'000'000)));
  if (r < 0) return errno == EINTR ? std::nullopt : std::optional<FrameStatus>(FrameStatus::kBroken);
  if (r == 0) return std::nullopt;
  return FrameStatus::kOk;
}

// Reads exactly `size` bytes before the deadline. `started` says whether a frame has begun:
// an end of file before anything is a clean close, after that a broken frame.
FrameStatus ReadAll(int fd, char* data, size_t size, int64_t deadline_ms, bool started) {
  size_t got = 0;
  while (got < size) {
    const std::optional<FrameStatus> ready = WaitReadable(fd, deadline_ms);
    if (!ready) continue;
    if (*ready != FrameStatus::kOk) return *ready;
    ssize_t n = ::read(fd, data + got, size - got);
    if (n < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      return FrameStatus::kBroken;
    }
    if (n == 0) return (got == 0 && !started) ? FrameStatus::kClosed : FrameStatus::kBroken;
    got += static_cast<size_t>(n);
  }
  return FrameStatus::kOk;
}

}  // namespace

int64_t MonotonicMs() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1'000'000;
}

FrameStatus WriteFrame(int fd, uint32_t type, std::string_view payload) {
  if (payload.size() > kMaxFramePayload) return FrameStatus::kBroken;
  char header[8];
  Put32(header, type);
  Put32(header + 4, static_cast<uint32_t>(payload.size()));
  // One write for small frames keeps a frame whole in the pipe, which the reader likes.
  if (payload.size() <= 4096) {
    char buffer[8 + 4096];
    std::memcpy(buffer, header, 8);
    if (!payload.empty()) std::memcpy(buffer + 8, payload.data(), payload.size());
    return WriteAll(fd, buffer, 8 + payload.size()) ? FrameStatus::kOk : FrameStatus::kBroken;
  }
  if (!WriteAll(fd, header, 8) || !WriteAll(fd, payload.data(), payload.size())) return FrameStatus::kBroken;
  return FrameStatus::kOk;
}

FrameStatus ReadFrame(int fd, Frame* frame, int64_t deadline_ms, uint32_t max_payload) {
  char header[8];
  FrameStatus s = ReadAll(fd, header, 8, deadline_ms, false);
  if (s != FrameStatus::kOk) return s;
  frame->type = Get32(header);
  uint32_t size = Get32(header + 4);
  if (size > max_payload || size > kMaxFramePayload) return FrameStatus::kTooLarge;
  frame->payload.resize(size);
  if (size == 0) return FrameStatus::kOk;
  return ReadAll(fd, frame->payload.data(), size, deadline_ms, true);
}

namespace {
constexpr size_t kInboxBlock = 64 * 1024;
constexpr size_t kInboxKeep = 1 << 20;  // a block larger than this is not kept between answers
}  // namespace

FrameStatus FrameInbox::Fill(int fd, size_t need, int64_t deadline_ms, bool started) {
  while (end_ - begin_ < need) {
    if (begin_ > 0) {
      std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
      end_ -= begin_;
      begin_ = 0;
    }
    const size_t want = std::max(need - end_, kInboxBlock);
    if (buffer_.size() < end_ + want) buffer_.resize(end_ + want);
    const std::optional<FrameStatus> ready = WaitReadable(fd, deadline_ms);
    if (!ready) continue;
    if (*ready != FrameStatus::kOk) return *ready;
    ssize_t n = ::read(fd, buffer_.data() + end_, want);
    if (n < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      return FrameStatus::kBroken;
    }
    if (n == 0) return (end_ == 0 && !started) ? FrameStatus::kClosed : FrameStatus::kBroken;
    end_ += static_cast<size_t>(n);
  }
  return FrameStatus::kOk;
}

FrameStatus FrameInbox::Read(int fd, Frame* frame, int64_t deadline_ms, uint32_t max_payload) {
  FrameStatus s = Fill(fd, 8, deadline_ms, false);
  if (s != FrameStatus::kOk) return s;
  const uint32_t type = Get32(buffer_.data() + begin_);
  const uint32_t size = Get32(buffer_.data() + begin_ + 4);
  if (size > max_payload || size > kMaxFramePayload) return FrameStatus::kTooLarge;
  // The frame is taken only once it is whole: a deadline that passes midway leaves it waiting.
  s = Fill(fd, 8 + size_t{size}, deadline_ms, true);
  if (s != FrameStatus::kOk) return s;
  frame->type = type;
  frame->payload.assign(buffer_.data() + begin_ + 8, size);
  begin_ += 8 + size_t{size};
  if (begin_ == end_) begin_ = end_ = 0;
  return FrameStatus::kOk;
}

void FrameInbox::Trim() {
  if (begin_ == end_ && buffer_.size() > kInboxKeep) {
    std::string().swap(buffer_);
    begin_ = end_ = 0;
  }
}

bool InputPending(int fd) {
  pollfd p{fd, POLLIN, 0};
  return ::poll(&p, 1, 0) > 0 && (p.revents & (POLLIN | POLLHUP)) != 0;
}

FrameWriter& FrameWriter::U8(uint8_t v) {
  data_.push_back(static_cast<char>(v));
  return *this;
}

FrameWriter& FrameWriter::U32(uint32_t v) {
  char b[4];
  Put32(b, v);
  data_.append(b, 4);
  return *this;
}

FrameWriter& FrameWriter::U64(uint64_t v) {
  U32(static_cast<uint32_t>(v));
  return U32(static_cast<uint32_t>(v >> 32));
}

FrameWriter& FrameWriter::Bytes(std::string_view v) {
  U32(static_cast<uint32_t>(v.size()));
  data_.append(v);
  return *this;
}

bool FrameReader::Take(size_t n, const char** out) {
  if (failed_ || data_.size() - pos_ < n) {
    failed_ = true;
    return false;
  }
  *out = data_.data() + pos_;
  pos_ += n;
  return true;
}

uint8_t FrameReader::U8() {
  const char* p;
  return Take(1, &p) ? static_cast<uint8_t>(*p) : 0;
}

uint32_t FrameReader::U32() {
  const char* p;
  return Take(4, &p) ? Get32(p) : 0;
}

uint64_t FrameReader::U64() {
  uint64_t low = U32();
  uint64_t high = U32();
  return failed_ ? 0 : (low | (high << 32));
}

std::string FrameReader::Bytes() {
  uint32_t n = U32();
  const char* p;
  if (failed_ || !Take(n, &p)) return {};
  return std::string(p, n);
}

}  // namespace trovix::platform
