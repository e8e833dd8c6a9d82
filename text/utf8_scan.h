// Checking and repairing UTF-8 as it streams by in blocks: the plain-text reader hands bytes
// that are already well-formed UTF-8 through without converting them, so the common case of
// a contents search (ASCII and UTF-8 files) costs one scan and one copy.
//
// Ill-formed sequences become U+FFFD, one for each maximal ill-formed subpart, the same as
// ICU's converters do, so a file reads the same whichever way it is decoded.
// Stateless functions; safe from any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace trovix::text {

// The length of the longest prefix of `bytes` that is well-formed UTF-8.
size_t WellFormedUtf8Prefix(std::string_view bytes);

// The length (0 to 3) of a character at the end of `bytes` that is cut short but well-formed
// so far: the bytes that must wait for the next block.
size_t IncompleteUtf8Tail(std::string_view bytes);

// Appends `bytes` to *out with each ill-formed sequence replaced by U+FFFD.
void AppendRepairedUtf8(std::string_view bytes, std::string* out);

// The largest n <= limit such that `text`[0, n) ends on a character boundary; when that is 0
// and `text` is not empty, the length of the first character, so that a reader always makes
// progress. `text` is well-formed UTF-8.
size_t Utf8CutPoint(std::string_view text, size_t limit);

}  // namespace trovix::text
