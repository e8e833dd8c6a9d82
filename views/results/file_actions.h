// What the desktop does with found items: open one with the desktop's opener, show items in
// the file manager, move items to the desktop trash, rename an item in its folder. Plain
// functions over paths, so that every pane and the frame can use them; none of them shows a
// message: callers decide what to tell the user from the answer.
//
// UI thread (they may talk to the session bus).
#pragma once

#include <string>
#include <vector>

#include "props/shell_item.h"

namespace trovix::views {

// Opens the item with the desktop's opener. False when the item is gone, is not in the file
// system (a member of an archive) or the opener refused it.
bool OpenItem(const props::ShellItem& item);

// Shows the items in the desktop's file manager, selected in their folders
// (org.freedesktop.FileManager1 ShowItems); without such a file manager, opens the folder of
// the first item. False when no item could be shown.
bool ShowItemsInFolder(const std::vector<props::ShellItemPtr>& items);

// Moves the item to the desktop trash (QFile::moveToTrash: the XDG trash of the item's
// volume). False when it could not be moved; the item is then untouched.
bool MoveItemToTrash(const props::ShellItem& item);

enum class RenameResult {
  kRenamed,
  kCannotRename,  // the item cannot be renamed at all: gone, or not a file of the file system
  kFailed,        // this name could not be given: empty, holds a "/", is taken, no permission
  kNoSafeWay,     // the file system has no rename that cannot replace (a folder on FUSE): *why
};

// Gives the item `new_name` (a name, not a path) in its own folder, never replacing another
// item. On success `*new_path` is the item's new path; with kNoSafeWay, `*why` says why.
RenameResult RenameItem(const props::ShellItem& item, const std::string& new_name,
                        std::string* new_path, std::string* why = nullptr);

// Whether RenameItem can be tried at all on the item.
bool CanRename(const props::ShellItem& item);

}  // namespace trovix::views
