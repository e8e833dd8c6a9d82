// The walk's pruner for --exclude and --ignore-vcs.
//
// --exclude GLOB: git's pattern syntax, relative to the search root; what matches is left out
// whatever else says, and an excluded folder is not read.
// --ignore-vcs: inside a git work tree, the .gitignore of every folder, .ignore (which wins over
// .gitignore in the same folder) and .git/info/exclude, with git's precedence: a deeper file wins
// over a higher one, info/exclude counts least. Ignore files of the folders between the work
// tree's top and the search root apply too. Outside a work tree only .ignore files count. The
// .git folder itself is always left out. Ignore files that are not regular files of at most
// 16 MiB are skipped.
//
// Immutable; thread-safe (states are immutable and shared down the tree).
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "engine/walk/ignore_patterns.h"
#include "engine/walk/walk_pruner.h"

namespace trovix::engine {

class IgnorePruner : public WalkPruner {
 public:
  IgnorePruner(const std::vector<std::string>& exclude_globs, bool use_vcs_ignores);

  FolderState EnterFolder(const FolderState& parent, const std::string& folder_path, int folder_fd) const override;
  bool Excluded(const FolderState& folder, std::string_view name, bool is_folder) const override;

 private:
  std::vector<IgnorePattern> excludes_;
  bool vcs_;
};

}  // namespace trovix::engine
