#include "rules/matchers/contents_scan.h"

#include <algorithm>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace trovix::rules {
namespace {

bool IsAsciiBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v'; }

bool IsContinuation(char c) { return (static_cast<uint8_t>(c) & 0xC0) == 0x80; }

// Moves `pos` back to the start of the character it is in.
size_t CharStart(std::string_view text, size_t pos) {
  while (pos > 0 && pos < text.size() && IsContinuation(text[pos])) --pos;
  return pos;
}

// `count` characters back from `pos` (or to the start).
size_t CharsBack(std::string_view text, size_t pos, size_t count) {
  while (pos > 0 && count > 0) {
    --pos;
    while (pos > 0 && IsContinuation(text[pos])) --pos;
    --count;
  }
  return pos;
}

// `count` characters on from `pos` (or to the end).
size_t CharsOn(std::string_view text, size_t pos, size_t count) {
  while (pos < text.size() && count > 0) {
    ++pos;
    while (pos < text.size() && IsContinuation(text[pos])) ++pos;
    --count;
  }
  return pos;
}

// The text around a hit, on one line: 40 characters before it, the hit, 60 after.
std::string ExcerptAround(std::string_view text, MatchRange hit) {
  const size_t begin = CharsBack(text, std::min(hit.offset, text.size()), 40);
  const size_t end = CharsOn(text, std::min(hit.offset + hit.length, text.size()), 60);
  std::string line = FoldBlanks(text.substr(begin, end - begin));
  size_t first = line.find_first_not_of(' ');
  size_t last = line.find_last_not_of(' ');
  return first == std::string::npos ? std::string() : line.substr(first, last - first + 1);
}

}  // namespace

std::string FoldBlanks(std::string_view text, bool* in_blank) {
  std::string out;
  FoldBlanksInto(text, &out, in_blank);
  return out;
}

void FoldBlanksInto(std::string_view text, std::string* folded, bool* in_blank) {
  std::string& out = *folded;
  out.resize(text.size());
  char* o = out.data();
  bool blank = in_blank ? *in_blank : false;
  const char* p = text.data();
  const char* const end = p + text.size();
  auto fold_bytes = [&](const char* stop) {
    for (; p < stop; ++p) {
      if (IsAsciiBlank(*p)) {
        if (!blank) *o++ = ' ';
        blank = true;
      } else {
        *o++ = *p;
        blank = false;
      }
    }
  };
#if defined(__SSE2__)
  // Sixteen bytes at a time where no blank follows another: each blank becomes ' ' in place.
  // Text has a line break every few dozen bytes and most stand alone, so few chunks need the
  // byte loop.
  const __m128i space = _mm_set1_epi8(' ');
  const __m128i below_tab = _mm_set1_epi8('\t' - 1);
  const __m128i above_cr = _mm_set1_epi8('\r' + 1);
  while (end - p >= 16) {
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i blanks = _mm_or_si128(_mm_cmpeq_epi8(c, space),
                                        _mm_and_si128(_mm_cmpgt_epi8(c, below_tab), _mm_cmplt_epi8(c, above_cr)));
    const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(blanks));
    const unsigned after_blank = ((mask << 1) | (blank ? 1u : 0u)) & 0xFFFFu;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(o),
                     _mm_or_si128(_mm_andnot_si128(blanks, c), _mm_and_si128(blanks, space)));
    if (const unsigned doubled = mask & after_blank; doubled != 0) {
      // The bytes before the first blank that follows a blank are stored as they are; the run
      // of blanks from there is dropped (its first blank is out already). Indented text has
      // such a run every line, and a byte loop over each such chunk cost more than the rest.
      // The store may write past `o + first`: never past the output, which is as long as the
      // input and never ahead of it.
      const unsigned first = static_cast<unsigned>(__builtin_ctz(doubled));
      o += first;
      p += first;
      while (p < end && IsAsciiBlank(*p)) ++p;
      blank = true;
      continue;
    }
    o += 16;
    p += 16;
    blank = (mask & 0x8000u) != 0;
  }
#endif
  fold_bytes(end);
  if (in_blank) *in_blank = blank;
  out.resize(static_cast<size_t>(o - out.data()));
}

bool WantsBlankFolding(std::string_view rule_text) {
  return std::any_of(rule_text.begin(), rule_text.end(), IsAsciiBlank);
}

ContentsScan::ContentsScan(const KeywordProgram& program, bool fold_blanks, size_t overlap)
    : program_(program), fold_blanks_(fold_blanks), overlap_(std::max<size_t>(overlap, 16)) {
  hits_.assign(program_.TermCount(), 0);
}

void ContentsScan::Scan(std::string_view text) {
  MatchRange range;
  if (program_.ScanChunk(text, &hits_, &range) && excerpt_.empty()) excerpt_ = ExcerptAround(text, range);
}

bool ContentsScan::Feed(std::string_view piece) {
  if (settled_) return true;
  if (piece.empty()) return false;
  if (fold_blanks_) {
    // One buffer per thread, kept between files: a fresh one per file costs its zero-filling
    // and page faults for every small file.
    thread_local std::string folded;
    FoldBlanksInto(piece, &folded, &in_blank_);
    piece = folded;
  }
  // The boundary with the previous piece: its tail and this piece's head, searched together so
  // that a term cut in two by the reader is still seen whole.
  if (!tail_.empty()) {
    const size_t head = CharStart(piece, std::min(piece.size(), overlap_));
    std::string boundary = tail_;
    boundary.append(piece.substr(0, head == 0 && !piece.empty() ? piece.size() : head));
    Scan(boundary);
  }
  Scan(piece);
  if (piece.size() >= overlap_) {
    tail_.assign(piece.substr(CharStart(piece, piece.size() - overlap_)));
  } else {
    tail_.append(piece);
    if (tail_.size() > overlap_) tail_.erase(0, CharStart(tail_, tail_.size() - overlap_));
  }
  settled_ = program_.Settled(hits_);
  return settled_;
}

bool NeedsOf(const KeywordProgram& program, props::ContentsNeeds* needs) {
  needs->any_of.clear();
  needs->ignore_case = false;
  // Only when a text without any of the terms is a text that does not match, and every term is
  // a plain text (a wildcard or an expression names no text that must be there).
  if (program.TermCount() == 0 || program.Decide(std::vector<uint8_t>(program.TermCount(), 0))) return false;
  for (size_t t = 0; t < program.TermCount(); ++t) {
    const TextPattern& term = program.Term(t);
    if (term.mode() != kModePlain || term.pattern().empty()) return false;
    needs->any_of.push_back(term.pattern());
    // Ignoring case asks for less of the bytes, so one term that ignores it decides for all.
    if (term.flags() & kPatternIgnoreCase) needs->ignore_case = true;
  }
  return true;
}

bool MatchContents(const KeywordProgram& program, bool fold_blanks, props::ContentsSource& source,
                   props::ShellItem& item, std::string* excerpt, props::ContentsResult* result) {
  ContentsScan scan(program, fold_blanks, 4096);
  auto feed = [&](std::string_view piece) { return !scan.Feed(piece); };
  thread_local props::ContentsNeeds needs;
  props::ContentsResult read = NeedsOf(program, &needs) ? source.ReadFor(item, needs, feed) : source.Read(item, feed);
  const bool matched = scan.Verdict();
  if (excerpt) *excerpt = matched ? scan.excerpt() : std::string();
  if (result) *result = std::move(read);
  return matched;
}

}  // namespace trovix::rules
