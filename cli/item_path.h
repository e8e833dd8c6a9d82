// The item a path on the command line names: a file of the file system, or a member of an
// archive named by the archive's path followed by the member's path ("/x/a.zip/docs/b.pdf",
// "/x/a.zip/inner.zip/c.txt"), as a search with --virtual-folders shows it. `text` and `props`
// take both.
#pragma once

#include <string>

#include "props/shell_item.h"

namespace trovix::cli {

// Null with a message ("\"PATH\": no such file") when the path names neither. A member's size
// and date come from its archive's listing, read by the extraction helper.
props::ShellItemPtr ResolveItemPath(const std::string& path, std::string* error);

}  // namespace trovix::cli
