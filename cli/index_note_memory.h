// The "not in the index" note of a search is advice, not news: said once per root and day, the
// roots it was said for remembered in the cache folder ($XDG_CACHE_HOME/trovix/index-notes,
// else ~/.cache/trovix/index-notes), one record per root with the local date it was said on.
// Records of earlier days are dropped when the file is written. A file that cannot be read or
// written only means the note is said again.
//
// Not thread-safe; one process may race another for the file, and then the note is said twice.
#pragma once

#include <ctime>
#include <string>

namespace trovix::cli {

// True when the note for `root_text` was not said yet on the day of `now`; records it then.
bool FirstIndexNoteToday(const std::string& root_text, std::time_t now);

}  // namespace trovix::cli
