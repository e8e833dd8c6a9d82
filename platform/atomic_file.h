// Replacing a file so that a crash never leaves half of it: the new bytes go into a temporary
// file in the same folder, are flushed to the disk, the temporary is renamed over the old file
// in one step, and the folder is flushed so that the rename itself survives a power cut.
// Readers see either the old file or the new one, never a mixture. Every file the program
// rewrites in place (settings, the index's side files, the memories of crashes and notes)
// is written this way.
//
// Thread-safe as long as two callers do not write the same path at once (the settings store
// serialises its own writes). A path that is a symbolic link is resolved first, so the link
// survives and its target is replaced.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace trovix::platform {

// Called after the temporary file has been written and flushed, just before the rename, with
// the temporary file's path. Returning false abandons the write as a crash at that moment
// would: the temporary file is left behind and the old file is untouched. Tests use it to prove
// that an interrupted save keeps the previous settings; it is empty in the program.
using BeforeRenameHook = std::function<bool(const std::string& temp_path)>;

// Before writing, temporaries of `path` left behind by a writer that was killed (its pid is gone,
// or the temporary is older than a minute) are removed.
// Returns 0 on success, else the errno of the step that failed. The file is its owner's only:
// a new file gets 0600, a rewritten one keeps its owner's bits of 0600 and loses any for the
// group and others.
int WriteFileAtomically(const std::string& path, std::string_view bytes,
                        const BeforeRenameHook& before_rename = {});

}  // namespace trovix::platform
