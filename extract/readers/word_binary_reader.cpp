#include "extract/readers/word_binary_reader.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "base/utf.h"
#include "extract/readers/cfb_file.h"

namespace trovix::extract {
namespace {

constexpr uint16_t kWordIdent = 0xA5EC;
constexpr uint16_t kFirstWord97Fib = 0x00C1;
constexpr uint16_t kFlagEncrypted = 0x0100;
constexpr uint16_t kFlagTable1 = 0x0200;
constexpr uint16_t kFlagObfuscated = 0x8000;
// fcClx / lcbClx: the 34th pair of FibRgFcLcb97.
constexpr size_t kClxPair = 33;
// Characters decoded and handed to the sink at a time, so a long piece is polled as it goes.
constexpr uint32_t kChunkChars = 32 * 1024;
// Fields nest; deeper than this the stack stops growing and only counts.
constexpr size_t kMaxFieldDepth = 64;

struct Piece {
  uint32_t cp_start;
  uint32_t cp_end;
  uint64_t offset;  // in the WordDocument stream
  bool compressed;  // 8-bit characters
};

// Turns the piece characters into visible text (see the header).
class WordText {
 public:
  explicit WordText(TextSink& sink) : sink_(sink) {}

  void Put(char32_t c) {
    if (c == 0x13) {  // field begin: its instructions follow
      if (fields_.size() < kMaxFieldDepth) {
        fields_.push_back(true);
        ++in_code_;
      } else {
        ++overflow_;
      }
      return;
    }
    if (c == 0x14) {  // field separator: the result follows
      if (overflow_ == 0 && !fields_.empty() && fields_.back()) {
        fields_.back() = false;
        --in_code_;
      }
      return;
    }
    if (c == 0x15) {  // field end
      if (overflow_ > 0) {
        --overflow_;
      } else if (!fields_.empty()) {
        if (fields_.back()) --in_code_;
        fields_.pop_back();
      }
      return;
    }
    if (overflow_ > 0 || in_code_ > 0) return;
    if (c == 0x07) {
      if (cell_pending_) {
        out_.push_back('\n');  // the row end mark after the last cell
        cell_pending_ = false;
      } else {
        cell_pending_ = true;
      }
      return;
    }
    FlushCell();
    switch (c) {
      case 0x0D: case 0x0B: case 0x0C: case 0x0E: out_.push_back('\n'); return;
      case 0x09: out_.push_back('\t'); return;
      case 0x1E: out_.push_back('-'); return;  // non-breaking hyphen
      case 0xA0: out_.push_back(' '); return;
      default: break;
    }
    if (c < 0x20 || c == 0x1F) return;  // pictures, note marks, optional hyphens
    base::AppendUtf8(out_, c);
  }
  // Hands what was gathered to the sink; false once the sink stopped.
  bool Flush(bool at_end) {
    if (at_end) FlushCell();
    const bool ok = out_.empty() || sink_.Append(out_);
    out_.clear();
    return ok && !sink_.stopped();
  }

 private:
  void FlushCell() {
    if (cell_pending_) out_.push_back('\t');
    cell_pending_ = false;
  }

  TextSink& sink_;
  std::string out_;
  std::vector<bool> fields_;  // true: in instructions
  size_t in_code_ = 0;         // fields of the stack in their instructions
  size_t overflow_ = 0;
  bool cell_pending_ = false;
};

// The pieces of the Clx: property modifiers (0x01) first, then the piece table (0x02).
std::vector<Piece> ParsePieces(std::string_view clx) {
  std::vector<Piece> pieces;
  size_t at = 0;
  while (at < clx.size() && clx[at] == 0x01) at += 3 + Le16(clx, at + 1);
  if (at >= clx.size() || clx[at] != 0x02) return pieces;
  const uint32_t lcb = Le32(clx, at + 1);
  at += 5;
  if (lcb < 4 || lcb > clx.size() - std::min(at, clx.size())) return pieces;
  const std::string_view plc = clx.substr(at, lcb);
  const size_t count = (plc.size() - 4) / 12;
  const size_t descriptors = 4 * (count + 1);
  for (size_t i = 0; i < count; ++i) {
    const uint32_t fc = Le32(plc, descriptors + 8 * i + 2);
    Piece p;
    p.cp_start = Le32(plc, 4 * i);
    p.cp_end = Le32(plc, 4 * (i + 1));
    p.compressed = fc & 0x40000000u;
    p.offset = p.compressed ? (fc & 0x3FFFFFFFu) / 2 : (fc & 0x3FFFFFFFu);
    pieces.push_back(p);
  }
  return pieces;
}

// Reads `count` characters of one piece; false once the sink stopped or `left` (the bytes
// the pieces may still read) ran out. A piece that runs past the end of the stream gives
// what the stream holds.
bool ReadPiece(CfbStream& stream, const Piece& piece, uint32_t count, uint64_t& left, WordText& text) {
  const uint64_t unit = piece.compressed ? 1 : 2;
  std::string bytes;
  for (uint32_t done = 0; done < count;) {
    const uint32_t n = std::min(count - done, kChunkChars);
    if (!stream.ReadUpTo(piece.offset + done * unit, n * unit, &bytes) || bytes.size() < unit) return true;
    if (bytes.size() > left) return false;
    left -= bytes.size();
    if (piece.compressed) {
      for (unsigned char b : bytes) text.Put(Cp1252ToUnicode(b));
    } else {
      const std::u16string units = base::ReadUtf16LE(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size() / 2);
      for (size_t i = 0; i < units.size(); ++i) {
        char32_t c = units[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < units.size() && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF) {
          c = 0x10000 + ((c - 0xD800) << 10) + (units[++i] - 0xDC00);
        } else if (c >= 0xD800 && c <= 0xDFFF) {
          c = 0xFFFD;
        }
        text.Put(c);
      }
    }
    if (!text.Flush(false)) return false;
    if (bytes.size() < n * unit) return true;  // the stream ended inside the piece
    done += n;
  }
  return true;
}

}  // namespace

bool IsWordBinaryExtension(std::string_view extension) { return extension == "doc" || extension == "dot"; }

Outcome ReadWordBinary(const DocumentInput& input, std::string_view, ExtractContext& context) {
  CfbFile file;
  if (Outcome o = file.Open(input); !o.ok()) return o;
  std::unique_ptr<CfbStream> word = file.Stream("WordDocument");
  if (!word) return Outcome::Fail(kEndUnreadable, "not a Word document");
  std::string fib;
  word->ReadUpTo(0, 4096, &fib);
  if (fib.size() < 64 || Le16(fib, 0) != kWordIdent) return Outcome::Fail(kEndUnreadable, "not a Word document");
  const uint16_t flags = Le16(fib, 0x0A);
  if (flags & (kFlagEncrypted | kFlagObfuscated)) return Outcome::Fail(kEndEncrypted, "encrypted");
  if (Le16(fib, 2) < kFirstWord97Fib) return Outcome::Fail(kEndUnreadable, "a Word 95 or older document");

  // FibBase (32 bytes), then three arrays, each after its count: 16-bit, 32-bit, pairs.
  const size_t csw = Le16(fib, 32);
  const size_t lw = 34 + 2 * csw + 2;
  const size_t cslw = Le16(fib, lw - 2);
  uint64_t cp_total = 0;
  // ccpText, ccpFtn, ccpHdd, (ccpMcr, unused), ccpAtn, ccpEdn, ccpTxbx, ccpHdrTxbx
  for (size_t i : {3, 4, 5, 7, 8, 9, 10})
    if (i < cslw) cp_total += Le32(fib, lw + 4 * i);
  const size_t pairs = lw + 4 * cslw + 2;
  const size_t cb_pairs = Le16(fib, pairs - 2);
  if (cb_pairs <= kClxPair || pairs + 8 * (kClxPair + 1) > fib.size())
    return Outcome::Fail(kEndUnreadable, "damaged Word document: no piece table");
  const uint32_t fc_clx = Le32(fib, pairs + 8 * kClxPair);
  const uint32_t lcb_clx = Le32(fib, pairs + 8 * kClxPair + 4);

  std::unique_ptr<CfbStream> table = file.Stream(flags & kFlagTable1 ? "1Table" : "0Table");
  std::string clx;
  if (!table || !table->ReadAt(fc_clx, lcb_clx, &clx) || clx.empty())
    return Outcome::Fail(kEndUnreadable, "damaged Word document: no piece table");
  const std::vector<Piece> pieces = ParsePieces(clx);
  if (pieces.empty()) return Outcome::Fail(kEndUnreadable, "damaged Word document: no piece table");

  WordText text(*context.sink);
  // Pieces of a real document do not overlap, so they read the stream at most once; a table
  // whose pieces all point at the same bytes would otherwise read them a million times over,
  // and text of control characters alone never fills the sink.
  uint64_t left = word->size();
  for (const Piece& piece : pieces) {
    if (cp_total > 0 && piece.cp_start >= cp_total) break;
    if (piece.cp_end <= piece.cp_start) continue;
    const uint64_t end = cp_total > 0 ? std::min<uint64_t>(piece.cp_end, cp_total) : piece.cp_end;
    if (!ReadPiece(*word, piece, static_cast<uint32_t>(end - piece.cp_start), left, text)) break;
  }
  text.Flush(true);
  return Outcome::Ok();
}

}  // namespace trovix::extract
