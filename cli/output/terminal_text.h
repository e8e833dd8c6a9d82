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
// The same for one value of a table row (--columns, props): every backslash is doubled, so the
// row reads the same whether it went to a terminal or a pipe (where only \t, \n, \r and \\ are
// escaped), and a value never spills onto a second line or into the next column.
std::string TerminalSafeValue(std::string_view text);
// A report of several lines: each line as TerminalSafe gives it, the line breaks kept.
std::string TerminalSafeLines(std::string_view text);
// One value of a tab-separated row: TerminalSafeValue on a terminal; into a pipe or a file the
// bytes as they are, but for a tab, newline, carriage return or backslash, written \t, \n, \r
// and \\ so that every row stays one line of the same number of columns.
std::string ColumnValue(std::string_view text, bool terminal);

}  // namespace trovix::cli
