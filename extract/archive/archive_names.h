// Member names of archives: the raw bytes an archive stores, decoded to UTF-8 and brought to
// one form ("/"-separated, no leading "./" or "/", no trailing "/").
//
// Decoding: a name that is valid UTF-8 is taken as UTF-8. Otherwise zip names are CP437
// (the zip default when the UTF-8 flag is clear) and names of other formats Latin-1.
// For zip this overrides the format's rule on purpose: many zip tools (Info-ZIP on Unix among
// them) store UTF-8 names without setting the UTF-8 flag, and a user who sees "Ð\x9fÑ\x80..."
// instead of "Привет.txt" sees a broken program. A CP437 name that happens to be valid UTF-8
// with non-ASCII bytes is rare in practice (it needs box-drawing letters right after accented
// ones); a name with the flag set is valid UTF-8 and reads the same either way.
#pragma once

#include <string>
#include <string_view>

namespace trovix::extract {

struct MemberName {
  std::string path;     // normalised, UTF-8; empty for a name that names nothing ("./", "/")
  bool dir_suffix = false;  // the stored name ended with "/"
};

MemberName DecodeMemberName(std::string_view raw, bool zip);

bool IsValidUtf8(std::string_view text);

}  // namespace trovix::extract
