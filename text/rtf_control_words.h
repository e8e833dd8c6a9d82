// What the RTF reader does with each control word it knows: the words that stand for text,
// the destinations whose groups hold no body text, and the font character sets.
// Constant tables; safe from any thread.
#pragma once

#include <string_view>

namespace trovix::text {

// The text a control word stands for ("par" -> "\n", "emdash" -> "\xE2\x80\x94"), or null.
const char* TextOfControlWord(std::string_view word);

// True for the destinations whose groups are not body text (fonttbl, colortbl, info, pict ...).
bool IsSkippedDestination(std::string_view word);

// The Windows code page of a font's \fcharset value; 0 when the document's code page applies.
int CodePageOfCharset(int charset);

}  // namespace trovix::text
