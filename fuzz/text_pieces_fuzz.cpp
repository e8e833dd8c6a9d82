// Fuzzes how the index keeps a document's text: whatever bytes a reader hands over (bad UTF-8,
// NULs, characters cut between parts), the pieces made as the text streams in must be exactly
// those made from the whole text at once, each piece must fit its size, and every piece must
// come back whole through compression. A blob read back from a damaged index is refused or
// inflated, never overrun.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "index/sqlite/text_pieces.h"

using namespace trovix::engine::index;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  // The first bytes choose the piece size, the overlap and where the parts are cut.
  const size_t piece_bytes = 16 + data[0] % 112;  // the cutter's own floor is 16
  const size_t overlap = data[1] % 16;
  const unsigned cut_seed = data[2];
  const std::string_view text(reinterpret_cast<const char*>(data) + 3, size - 3);

  std::string inflated;
  InflateText(text, &inflated);  // a damaged blob: refused or read, nothing more

  const std::string whole = IndexedText(text);
  const std::vector<TextPiece> expected = SplitTextPieces(whole, piece_bytes, overlap);

  struct Got {
    std::string text;
    size_t lead;
  };
  std::vector<Got> got;
  TextPieceStream stream(piece_bytes, overlap, [&](const TextPiece& p) { got.push_back({std::string(p.text), p.lead}); });
  size_t at = 0, step = 1 + cut_seed % 13;
  while (at < text.size()) {
    const size_t n = std::min(step, text.size() - at);
    stream.Add(text.substr(at, n));
    at += n;
    step = 1 + (step * 7 + cut_seed) % 29;
  }
  stream.Finish();

  if (got.size() != expected.size()) abort();
  for (size_t i = 0; i < got.size(); ++i) {
    if (got[i].text != expected[i].text || got[i].lead != expected[i].lead) abort();
    if (got[i].text.size() - got[i].lead > piece_bytes + 4) abort();  // its own bytes: one piece, a character at most over
    std::string back;
    if (!InflateText(CompressText(got[i].text), &back) || back != got[i].text) abort();
  }
  return 0;
}
