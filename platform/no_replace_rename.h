// Moving a file to a new name without ever replacing what already has that name: the rename of
// the results list, and the setting aside of a damaged store or index under the first free
// "<name>.bad.N". Some file systems (FUSE, some network file systems) refuse the kernel's
// no-replace rename; there a regular file is moved by link() and unlink(), which is just as
// atomic about the name (link fails when it is taken). A folder has no such second way: it is
// refused with a message rather than renamed with a check-then-rename race.
//
// Stateless; thread-safe.
#pragma once

#include <string>
#include <vector>

namespace trovix::platform {

struct RenameOutcome {
  int error = 0;  // 0, or the errno that ended the attempt (EEXIST when the name is taken)
  bool no_atomic_way = false;  // the file system offers no rename that cannot replace
  std::string message;         // for the user, when error != 0
};

// Renames `from` to `to`; fails with EEXIST, never replacing, when `to` exists.
RenameOutcome RenameNoReplace(const std::string& from, const std::string& to);

// The second way alone, as RenameNoReplace takes it when the kernel's no-replace rename is
// refused: link() then unlink() for anything but a folder. Public so that it can be proved on
// a real file system whose kernel would never make RenameNoReplace take it.
RenameOutcome LinkRenameNoReplace(const std::string& from, const std::string& to);

// Sets `path` aside as "<path>.bad.N" for the first N (from 1) at which neither that name nor
// any "<path>.bad.N<suffix>" exists, moving every "<path><suffix>" (a database's "-wal" and
// "-shm") along to the same N. An earlier damaged file may be the only copy of something, so no
// name is ever reused. Returns the new name of `path`, or empty with *error set (also when
// `path` does not exist: ENOENT).
std::string SetAsideNumbered(const std::string& path, const std::vector<std::string>& suffixes,
                             int* error);

// Creates `folder` and any missing folder above it, each new one readable by its owner only
// (0700); folders that exist keep their mode. False with errno set when it cannot be had.
bool MakePrivateFolders(const std::string& folder);

}  // namespace trovix::platform
