// Text bound for a terminal. A file name may hold any byte but "/" and NUL: escape sequences
// in a name could move the cursor, retitle the window or change colours, and bytes that are
// not UTF-8 garble the rest of the line. What a terminal shows goes through TerminalSafe;
// what goes into a pipe or a file is left byte for byte.
//
// Stateless; thread-safe.
#pragma once

#include <string>
#include <string_view>

namespace trovix::cli {

// The text with control characters (C0, DEL, C1) shown as \t, \n, \r, \e or \xHH, bytes that
// are not part of valid UTF-8 as \xHH, and a backslash that would start such a form doubled.
// Printable text, non-ASCII letters included, is kept.
std::string TerminalSafe(std::string_view text);

}  // namespace trovix::cli
