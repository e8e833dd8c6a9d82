// The comment an item carries outside its own contents: the fall-back of System.Comment when
// no property handler found a comment in the document itself.
//   - A folder that the desktop has customised keeps a ".directory" file (a desktop-entry
//     file); its "Comment" is the folder's comment. The file is the mark of a customised
//     folder here, so such a folder answers from it alone. Only a regular file up to 64 KiB is
//     read; anything else of that name (a FIFO, a device, a huge file) gives no comment.
//   - Any other item of the file system: the named stream "ow_AFScomment", where the companion
//     file manager keeps item comments. This system only reads it.
//
// Reads the file system every time; callers cache through the item's value cache.
#pragma once

#include <string>
#include <string_view>

#include "props/shell_item.h"

namespace trovix::props {

// The comment as UTF-8; empty when the item has none (and for items outside the file system).
std::string ReadItemComment(ShellItem& item);

// The text of a comment stream's first bytes: UTF-16 (little-endian) as the companion writes
// it, or UTF-8 when the bytes are plainly that (a comment set with the system's own tools);
// ended at the first terminating zero.
std::string DecodeCommentStream(std::string_view bytes);

// The "Comment" value of the [Desktop Entry] group of a desktop-entry file's text, unescaped;
// empty when there is none. Translated variants ("Comment[de]") are not the comment.
std::string DesktopEntryComment(std::string_view text);

}  // namespace trovix::props
