#include "extract/text_sink.h"

#include <algorithm>
#include <limits>

namespace trovix::extract {
namespace {

bool IsContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// The longest prefix of `text` of at most `limit` bytes that ends on a character boundary.
size_t CharBoundary(std::string_view text, size_t limit) {
  if (limit >= text.size()) return text.size();
  while (limit > 0 && IsContinuation(text[limit])) --limit;
  return limit;
}

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

}  // namespace

TextSink::TextSink(const ExtractLimits& limits, SendFn send, CancelFn cancelled)
    : max_text_(limits.max_text_bytes),
      chars_per_byte_(limits.max_chars_per_byte),
      cap_(limits.max_text_bytes),
      send_(std::move(send)),
      cancelled_(std::move(cancelled)) {}

void TextSink::SetInputBytes(int64_t input_bytes) {
  cap_ = max_text_;
  if (input_bytes < 0) return;
  uint64_t input = static_cast<uint64_t>(input_bytes);
  uint64_t ratio_cap = std::numeric_limits<uint64_t>::max();
  if (chars_per_byte_ == 0 || input <= ratio_cap / chars_per_byte_) ratio_cap = input * chars_per_byte_;
  cap_ = std::min(cap_, std::max(kFreeTextBytes, ratio_cap));
}

bool TextSink::Append(std::string_view text) {
  if (stopped()) return false;
  if (text.empty()) return true;
  uint64_t room = cap_ > taken_ ? cap_ - taken_ : 0;
  bool over = text.size() > room;
  if (over) text = text.substr(0, CharBoundary(text, static_cast<size_t>(room)));
  pending_.append(text);
  taken_ += text.size();
  if (!text.empty()) last_ = text.back();
  if (!visible_)
    visible_ = std::any_of(text.begin(), text.end(), [](char c) { return !IsSpace(c); });
  if (over) {
    SendPieces(true);
    Stop(kEndLimit);
    return false;
  }
  return SendPieces(false);
}

bool TextSink::NewLine() {
  if (taken_ == 0 || last_ == '\n') return !stopped();
  return Append("\n");
}

bool TextSink::Poll() {
  if (stopped()) return false;
  if (cancelled_ && cancelled_()) Stop(kEndCancelled);
  return !stopped();
}

void TextSink::Finish() {
  ExtractCode code = stop_;
  stop_ = kEndOk;  // what was taken before a stop is still sent
  SendPieces(true);
  if (code != kEndOk) stop_ = code;
}

void TextSink::Stop(ExtractCode code) {
  if (stop_ == kEndOk) stop_ = code;
}

// Sends whole pieces of kPieceBytes (cut on character boundaries); with `all` the rest too.
// Between pieces the client may ask to stop.
bool TextSink::SendPieces(bool all) {
  size_t start = 0;
  while (pending_.size() - start >= kPieceBytes || (all && start < pending_.size())) {
    std::string_view rest = std::string_view(pending_).substr(start);
    size_t n = CharBoundary(rest, kPieceBytes);
    if (n == 0) n = std::min(rest.size(), kPieceBytes);  // a broken sequence longer than a piece
    if (send_ && !send_(rest.substr(0, n))) {
      pending_.clear();
      Stop(kEndUnreadable);
      return false;
    }
    start += n;
    if (cancelled_ && cancelled_()) {
      pending_.clear();
      Stop(kEndCancelled);
      return false;
    }
  }
  pending_.erase(0, start);
  return !stopped();
}

}  // namespace trovix::extract
