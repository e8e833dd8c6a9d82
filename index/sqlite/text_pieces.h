// An item's text as the index keeps it: folded as the walk reads it (case, and every run of
// white space as one blank, so that a phrase matches across line breaks), cut into pieces
// that overlap a little, each compressed on its own.
//
// The overlap: every piece after the first starts with the last bytes of the one before (its
// "lead"), so that a phrase that the cut would split is still whole in one piece, as the
// walk's streaming scan sees it whole across its own reading boundaries.
//
// Pure functions; reentrant.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace trovix::engine::index {

// The text of a file as the index holds it: NULs dropped, folded under the matchers' case
// folding, white space runs as one blank.
std::string IndexedText(std::string_view text);

struct TextPiece {
  std::string_view text;  // into the text that was split
  size_t lead = 0;        // bytes at its start that repeat the end of the piece before
};

// Splits `text` into pieces of at most `piece_bytes` bytes of their own (cut at character
// starts), each after the first led by about `overlap` bytes of the one before. An empty
// text gives no piece.
std::vector<TextPiece> SplitTextPieces(std::string_view text, size_t piece_bytes, size_t overlap);

// IndexedText and SplitTextPieces over a text that comes in parts, as a file is read: each
// piece goes to `on_piece` as soon as the text after it shows where it ends, so that no more
// than a piece, its overlap and the last part added are held at once, however long the text.
// The pieces are those SplitTextPieces(IndexedText(all the parts), ...) gives, wherever the
// parts were cut (inside a character too). A piece's text is valid during the call only.
// One text per object; not thread-safe.
class TextPieceStream {
 public:
  TextPieceStream(size_t piece_bytes, size_t overlap, std::function<void(const TextPiece&)> on_piece);
  void Add(std::string_view part);
  // Hands on what is left. REQUIRES: called once, after the last Add.
  void Finish();

 private:
  // Cuts the pieces whose end is known: all of them when `last`.
  void Cut(bool last);

  size_t piece_bytes_, overlap_;
  std::function<void(const TextPiece&)> on_piece_;
  std::string unfinished_;  // the start of a character the last part cut
  std::string folded_;      // scratch
  std::string window_;      // the folded text from the next piece's start with its lead
  size_t base_ = 0;         // where window_ begins in the whole folded text
  size_t start_ = 0;        // where the next piece's own text begins, in window_
  bool in_blank_ = false;
};

// Deflate, with the text's length in front; Inflate gives it back, false for a blob that is
// not one of ours.
std::string CompressText(std::string_view text);
bool InflateText(std::string_view blob, std::string* text);
// Whether the text of a blob of CompressText holds `literal`, inflating only as far as needed.
bool CompressedTextHolds(std::string_view blob, std::string_view literal);

// The blank seams of a piece: a small bit set (kSeamBytes) of every seven bytes that have a
// blank in their middle, kept beside the compressed piece. The trigram table cannot tell a
// piece that holds "quiet harbour" from one that holds "quiet" and "harbour" apart, and such
// common words make nearly every piece a candidate that must be inflated to be confirmed; a
// phrase's own seams rule out most of those without inflating them. No false negatives: a
// piece that holds the phrase holds its seams.
inline constexpr size_t kSeamBytes = 512;
std::string SeamSet(std::string_view text);
// Whether a piece whose seam set is `seams` may hold `literal` (folded as the text is). True
// when the literal has no seam with three bytes on either side, or `seams` is not a set of
// SeamSet (rows kept before there were any).
bool SeamsMayHold(std::string_view seams, std::string_view literal);

}  // namespace trovix::engine::index
