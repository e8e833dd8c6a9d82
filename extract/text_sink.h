// TextSink: the one place where the output limits of a request are kept. Every reader writes
// its text here; the sink gathers it into pieces of about 64 KiB, hands each piece on (as a
// kExtractText frame, in the helper), and between pieces asks whether the client wants to stop.
//
// Limits: at most `max_text_bytes` in all; and past the first 1,000,000 bytes no more than
// `max_chars_per_byte` bytes of text per byte of input (a small file that expands to
// gigabytes of text is a bomb, not a document). When a limit is reached the sink keeps exactly
// what fits, never splitting a UTF-8 character, and stops with kEndLimit. A cancel makes it
// stop with kEndCancelled; a failed send (the pipe is gone) with kEndUnreadable.
//
// Once stopped, Append returns false and takes nothing; readers stop as soon as they see it.
// Input must be whole UTF-8 characters per call.
//
// Thread-safety: none; one request, one thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/extract_protocol.h"

namespace trovix::extract {

// Text below this size is never held against the input's size.
inline constexpr uint64_t kFreeTextBytes = 1'000'000;
inline constexpr size_t kPieceBytes = 64 * 1024;

class TextSink {
 public:
  // Sends one piece; false when it could not be sent.
  using SendFn = std::function<bool(std::string_view piece)>;
  // True when the client asked to stop (checked between pieces and by Poll).
  using CancelFn = std::function<bool()>;

  TextSink(const ExtractLimits& limits, SendFn send, CancelFn cancelled);

  // The size of the input the text comes from (file or member); decides the ratio limit.
  // Negative: unknown, only max_text_bytes applies.
  void SetInputBytes(int64_t input_bytes);

  // Takes `text` (or what fits of it). False once the sink has stopped.
  bool Append(std::string_view text);
  // A line break, unless the text so far already ends with one (or there is none yet).
  bool NewLine();
  // Checks for a cancel without sending anything; false once stopped.
  bool Poll();
  // Sends what is still gathered. Call once at the end.
  void Finish();

  bool stopped() const { return stop_ != kEndOk; }
  ExtractCode stop_code() const { return stop_; }
  // True when anything other than white space was taken.
  bool has_visible_text() const { return visible_; }
  uint64_t taken_bytes() const { return taken_; }

 private:
  void Stop(ExtractCode code);
  bool SendPieces(bool all);

  uint64_t max_text_;
  uint32_t chars_per_byte_;
  uint64_t cap_;
  SendFn send_;
  CancelFn cancelled_;
  std::string pending_;
  uint64_t taken_ = 0;
  char last_ = '\n';
  bool visible_ = false;
  ExtractCode stop_ = kEndOk;
};

// The bytes a request may decompress in all (max_expanded_bytes), shared by every archive and
// package it opens on the way, so a bomb nested anywhere stops at the same total.
class ExpandBudget {
 public:
  explicit ExpandBudget(uint64_t bytes) : left_(bytes) {}
  // Takes `n` bytes; false (and nothing taken) when they are not left.
  bool Take(uint64_t n) {
    if (n > left_) return false;
    left_ -= n;
    return true;
  }
  uint64_t left() const { return left_; }

 private:
  uint64_t left_;
};

}  // namespace trovix::extract
