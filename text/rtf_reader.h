// The RTF reader: the visible text of an RTF document. Control words that stand for text
// (\par, \line, \tab, \emdash, \lquote, ...) become their characters; "\'hh" is a byte in the
// document's code page (\ansicpg, else \ansi/\mac/\pc/\pca defaults, switched by a font's
// \fcharset where it says so); \uN is a UTF-16 unit (negative values wrap), followed by \ucN
// replacement characters that are skipped; groups that hold no body text are skipped
// (\fonttbl, \colortbl, \stylesheet, \info, \pict, \object data, \* destinations, ...).
// Malformed input never fails: unbalanced braces, truncated escapes and huge numbers are read
// as far as they make sense. Nesting deeper than 1,000 groups is flattened.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/file_time.h"

#include "text/text_reader.h"

namespace trovix::text {

std::unique_ptr<TextReader> OpenRtfReader(std::unique_ptr<ByteSource> source);

// The document's \info group: its text fields by control word ("title", "subject", "author",
// "operator", "keywords", "doccomm", "company", "category", "manager"), decoded as body text
// is; its numbers ("nofpages", "nofwords", "nofchars", "version"); its times ("creatim",
// "revtim", "printim") as the wall-clock parts the document gives. Reading stops at the end of
// the group.
struct RtfInfo {
  std::map<std::string, std::string> text;
  std::map<std::string, int64_t> number;
  std::map<std::string, base::CivilTime> time;
};
RtfInfo ReadRtfInfo(std::unique_ptr<ByteSource> source);

// Where the text's look changes: from byte `start` of the text on, these (\b, \i, \ul, each
// ended by its 0 form, \ulnone or \plain).
struct RtfStyleRun {
  size_t start = 0;
  bool bold = false;
  bool italic = false;
  bool underline = false;
};
struct RtfStyledText {
  std::string text;  // as OpenRtfReader reads it
  std::vector<RtfStyleRun> runs;
};
// The visible text, up to about `max_bytes`, with its style runs: for showing a document as it
// looks, not for searching it.
RtfStyledText ReadRtfStyled(std::unique_ptr<ByteSource> source, size_t max_bytes);

}  // namespace trovix::text
