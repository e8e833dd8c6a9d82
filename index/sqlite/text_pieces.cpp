#include "index/sqlite/text_pieces.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <cstdint>
#include <utility>

#include "rules/matchers/contents_scan.h"
#include "rules/patterns/folding.h"

namespace trovix::engine::index {
namespace {

bool IsContinuation(char c) { return (static_cast<uint8_t>(c) & 0xC0) == 0x80; }

// `pos`, moved back to the start of the character it is in.
size_t CharStart(std::string_view text, size_t pos) {
  while (pos > 0 && pos < text.size() && IsContinuation(text[pos])) --pos;
  return pos;
}

// Speed over the last few percent of size: the read phase compresses every byte it indexes.
constexpr int kLevel = 1;

// The two bits of the seam at text[at - 3 .. at + 3] (a blank at `at`).
std::pair<uint32_t, uint32_t> SeamBits(const char* seam) {
  uint64_t v = 0;
  std::memcpy(&v, seam, 7);
  // The finaliser of MurmurHash3: every bit of the seven bytes moves every bit of the hash,
  // so the two bits taken from it are independent.
  v ^= v >> 33;
  v *= 0xFF51AFD7ED558CCDull;
  v ^= v >> 33;
  v *= 0xC4CEB9FE1A85EC53ull;
  v ^= v >> 33;
  const uint32_t bits = kSeamBytes * 8;
  return {static_cast<uint32_t>(v) % bits, static_cast<uint32_t>(v >> 32) % bits};
}

}  // namespace

std::string SeamSet(std::string_view text) {
  std::string set(kSeamBytes, '\0');
  for (size_t at = 3; at + 3 < text.size(); ++at) {
    if (text[at] != ' ') continue;
    const auto [a, b] = SeamBits(text.data() + at - 3);
    set[a >> 3] = static_cast<char>(set[a >> 3] | (1 << (a & 7)));
    set[b >> 3] = static_cast<char>(set[b >> 3] | (1 << (b & 7)));
  }
  return set;
}

bool SeamsMayHold(std::string_view seams, std::string_view literal) {
  if (seams.size() != kSeamBytes) return true;
  for (size_t at = 3; at + 3 < literal.size(); ++at) {
    if (literal[at] != ' ') continue;
    const auto [a, b] = SeamBits(literal.data() + at - 3);
    if (!(seams[a >> 3] & (1 << (a & 7))) || !(seams[b >> 3] & (1 << (b & 7)))) return false;
  }
  return true;
}

std::string IndexedText(std::string_view text) {
  std::string kept(text);
  kept.erase(std::remove(kept.begin(), kept.end(), '\0'), kept.end());
  return rules::FoldBlanks(rules::detail::FoldText(kept));
}

std::vector<TextPiece> SplitTextPieces(std::string_view text, size_t piece_bytes, size_t overlap) {
  std::vector<TextPiece> pieces;
  piece_bytes = std::max<size_t>(piece_bytes, 16);
  overlap = std::min(overlap, piece_bytes / 2);
  size_t start = 0;
  while (start < text.size()) {
    size_t end = start + piece_bytes >= text.size() ? text.size() : CharStart(text, start + piece_bytes);
    if (end <= start) end = std::min(text.size(), start + piece_bytes);  // no character start in reach
    const size_t from = start == 0 ? 0 : CharStart(text, start - std::min(start, overlap));
    pieces.push_back(TextPiece{text.substr(from, end - from), start - from});
    start = end;
  }
  return pieces;
}

TextPieceStream::TextPieceStream(size_t piece_bytes, size_t overlap, std::function<void(const TextPiece&)> on_piece)
    : piece_bytes_(std::max<size_t>(piece_bytes, 16)),
      overlap_(std::min(overlap, piece_bytes_ / 2)),
      on_piece_(std::move(on_piece)) {}

void TextPieceStream::Add(std::string_view part) {
  std::string raw = std::move(unfinished_);
  raw.append(part);
  raw.erase(std::remove(raw.begin(), raw.end(), '\0'), raw.end());
  // A character cut by the end of the part waits for the rest of it: folded in halves, it
  // would come out as two ill-formed bytes rather than folded. A sequence starts at most three
  // bytes before the end; its lead byte says how long it is.
  unfinished_.clear();
  for (size_t back = 1; back <= std::min<size_t>(3, raw.size()); ++back) {
    const auto lead = static_cast<uint8_t>(raw[raw.size() - back]);
    if (lead < 0xC0) continue;
    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (length > back) {
      unfinished_.assign(raw, raw.size() - back);
      raw.resize(raw.size() - back);
    }
    break;
  }
  if (raw.empty()) return;
  rules::FoldBlanksInto(rules::detail::FoldText(raw), &folded_, &in_blank_);
  window_.append(folded_);
  Cut(false);
}

void TextPieceStream::Finish() {
  if (!unfinished_.empty()) {
    rules::FoldBlanksInto(rules::detail::FoldText(unfinished_), &folded_, &in_blank_);
    window_.append(folded_);
    unfinished_.clear();
  }
  Cut(true);
  window_ = std::string();
}

void TextPieceStream::Cut(bool last) {
  // As SplitTextPieces, over the window: the window begins at or before the start of the next
  // piece's lead, and CharStart never looks further back than that.
  const std::string_view text = window_;
  size_t keep_from = 0;  // where the next piece's lead begins
  while (start_ < text.size()) {
    const bool final_piece = start_ + piece_bytes_ >= text.size();
    if (final_piece && !last) break;  // more text may still come before its end
    size_t end = final_piece ? text.size() : CharStart(text, start_ + piece_bytes_);
    if (end <= start_) end = std::min(text.size(), start_ + piece_bytes_);
    const size_t from = base_ + start_ == 0 ? 0 : CharStart(text, start_ - std::min(base_ + start_, overlap_));
    on_piece_(TextPiece{text.substr(from, end - from), start_ - from});
    start_ = end;
    keep_from = CharStart(text, start_ - std::min(base_ + start_, overlap_));
  }
  if (keep_from > 0) {
    window_.erase(0, keep_from);
    base_ += keep_from;
    start_ -= keep_from;
  }
}

std::string CompressText(std::string_view text) {
  // Made in a scratch buffer and copied out at its size: the indexer holds many of these until
  // they are written, and a string cut down to size keeps the room of the worst case.
  thread_local std::string scratch;
  uLongf bound = compressBound(static_cast<uLong>(text.size()));
  scratch.resize(4 + bound);
  const uint32_t n = static_cast<uint32_t>(text.size());
  for (int i = 0; i < 4; ++i) scratch[i] = static_cast<char>((n >> (8 * i)) & 0xFF);
  if (compress2(reinterpret_cast<Bytef*>(scratch.data() + 4), &bound, reinterpret_cast<const Bytef*>(text.data()),
                static_cast<uLong>(text.size()), kLevel) != Z_OK)
    return {};
  return scratch.substr(0, 4 + bound);
}

bool InflateText(std::string_view blob, std::string* text) {
  if (blob.size() < 4) return false;
  uint32_t n = 0;
  for (int i = 0; i < 4; ++i) n |= static_cast<uint32_t>(static_cast<uint8_t>(blob[i])) << (8 * i);
  // A piece is never larger than the indexer makes them, and deflate never packs more than
  // 1,032 bytes into one: a length past either is no blob of ours (a damaged row must not
  // make us allocate what it claims).
  if (n > (1u << 30) || n > (blob.size() - 4) * 1032 + 64) return false;
  text->resize(n);
  uLongf length = n;
  if (uncompress(reinterpret_cast<Bytef*>(text->data()), &length, reinterpret_cast<const Bytef*>(blob.data() + 4),
                 static_cast<uLong>(blob.size() - 4)) != Z_OK || length != n) {
    text->clear();
    return false;
  }
  return true;
}

bool CompressedTextHolds(std::string_view blob, std::string_view literal) {
  // The zlib stream's two header bytes are skipped and its checksum is never read: the blob
  // comes from our own database, and checking every byte costs a tenth of the inflating.
  if (blob.size() < 6 || literal.empty()) return false;
  z_stream zs{};
  if (inflateInit2(&zs, -MAX_WBITS) != Z_OK) return false;
  zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(blob.data() + 6));
  zs.avail_in = static_cast<uInt>(blob.size() - 6);
  // Out in slices, each searched with the end of the one before in front of it, so that a
  // piece that holds the literal early is not inflated to its end (a piece is a few slices).
  constexpr size_t kSlice = 4u << 10;
  thread_local std::string window;
  const size_t keep = literal.size() - 1;
  window.resize(keep + kSlice);
  size_t held = 0;  // bytes of the previous slice kept at the front
  bool found = false;
  while (!found) {
    zs.next_out = reinterpret_cast<Bytef*>(window.data() + held);
    zs.avail_out = static_cast<uInt>(kSlice);
    const int rc = inflate(&zs, Z_NO_FLUSH);
    const size_t got = kSlice - zs.avail_out;
    const size_t total = held + got;
    found = std::string_view(window.data(), total).find(literal) != std::string_view::npos;
    if (rc == Z_STREAM_END || (rc != Z_OK && rc != Z_BUF_ERROR) || got == 0) break;
    held = std::min(keep, total);
    std::memmove(window.data(), window.data() + total - held, held);
  }
  inflateEnd(&zs);
  return found;
}

}  // namespace trovix::engine::index
