// ContentsScan: a keyword program matched against a document's text while it streams, piece by
// piece, so that reading stops at the first decision and no document is ever held whole.
//
// What a reader of the document expects, and the scan therefore does:
//   - a term that straddles two pieces is found: each boundary is searched again with
//     `overlap` bytes either side of it (enough for any phrase the rule holds);
//   - with blank folding on, every run of white space (blanks, tabs, line breaks) in the text
//     reads as one blank, so a quoted phrase matches across line breaks and wrapped lines.
//     It is on when the rule's text holds a blank, that is when some term is a phrase; the
//     terms themselves are folded the same way by the caller (FoldBlanks).
//
// Ownership: holds a reference to the program, which must outlive the scan. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "props/contents_source.h"
#include "rules/patterns/text_pattern.h"

namespace trovix::rules {

// Every run of ASCII white space in `text` as one blank. `in_blank` carries whether the text
// before ended in white space (a run may go on across pieces); it is updated.
std::string FoldBlanks(std::string_view text, bool* in_blank = nullptr);
// The same into *folded (replacing what it held), whose buffer is reused.
void FoldBlanksInto(std::string_view text, std::string* folded, bool* in_blank);

class ContentsScan {
 public:
  ContentsScan(const KeywordProgram& program, bool fold_blanks, size_t overlap);

  // Takes the next piece of text. True once the verdict can no longer change: stop reading.
  bool Feed(std::string_view piece);
  // The verdict for the text fed so far (all of it, when the reading ran to its end).
  bool Verdict() const { return program_.Decide(hits_); }
  // Where the first term was found: about 100 characters around it, on one line; empty when
  // nothing was found.
  const std::string& excerpt() const { return excerpt_; }

 private:
  void Scan(std::string_view text);

  const KeywordProgram& program_;
  const bool fold_blanks_;
  const size_t overlap_;
  bool in_blank_ = false;
  bool settled_ = false;
  std::vector<uint8_t> hits_;
  std::string tail_;     // the end of the previous piece, for the boundary search
  std::string excerpt_;
};

// What a text must hold for `program` to match it (ContentsNeeds), when the program can say:
// every term plain text, and no match without any of them. False otherwise.
bool NeedsOf(const KeywordProgram& program, props::ContentsNeeds* needs);

// Runs `program` over the item's contents through `source`. *excerpt (when given) receives
// where the text was found; *result (when given) why there was no text, if so.
bool MatchContents(const KeywordProgram& program, bool fold_blanks, props::ContentsSource& source,
                   props::ShellItem& item, std::string* excerpt = nullptr,
                   props::ContentsResult* result = nullptr);

// Whether a contents rule's text asks for blank folding (it holds a phrase).
bool WantsBlankFolding(std::string_view rule_text);

}  // namespace trovix::rules
