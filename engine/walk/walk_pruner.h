// Pruning the walk: children of a folder that are left out entirely, neither visited nor
// entered (an --exclude pattern, the ignore files of a version-control work tree). A rule can
// only leave an item out of the results; a pruned folder is never even listed, which is what
// makes pruning cheap on trees full of build output.
//
// Every folder the walk lists gets a state made from its parent's state (null above a root),
// and each child is then asked about against that state. States are immutable once made and
// shared by all the folders below, so a pruner keeps what it learns per folder (the patterns
// of the ignore files read there) in the state it returns and nothing in itself.
//
// Thread-safety: the walk calls a pruner from its own thread; implementations should still be
// safe for concurrent calls (a walk may read folders on other threads one day).
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace trovix::engine {

class WalkPruner {
 public:
  using FolderState = std::shared_ptr<const void>;

  virtual ~WalkPruner() = default;

  // The state for the children of `folder_path`, a folder about to be listed. `parent` is the
  // state its parent folder got (null for a root). `folder_fd` is the folder open for reading
  // (openat relative to it finds files in it whatever the length of its path), valid during
  // the call only, or -1 when none is at hand (an archive entered as a folder, or a walk that
  // keeps no descriptor): the pruner then opens files by `folder_path`.
  virtual FolderState EnterFolder(const FolderState& parent, const std::string& folder_path,
                                  int folder_fd) const = 0;

  // Whether the child `name` of the folder with state `folder` is left out. `is_folder` says
  // whether the child is a folder the walk could enter (patterns may apply to folders only).
  virtual bool Excluded(const FolderState& folder, std::string_view name, bool is_folder) const = 0;
};

}  // namespace trovix::engine
