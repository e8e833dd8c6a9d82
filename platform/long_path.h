// Paths longer than one system call takes. The kernel refuses a path of PATH_MAX (4,096) bytes
// or more with ENAMETOOLONG, yet folders can nest far deeper than that. A long path is reached
// in steps: its leading components are opened a chunk at a time, each relative to the last, and
// the call is then made relative to the folder so reached with the short rest of the path.
// Intermediate components are followed as path lookup follows them; only the last one is left
// to the call's own flags (O_NOFOLLOW, AT_SYMLINK_NOFOLLOW).
//
// A PathAnchor owns the descriptor it opened; not thread-safe (one per call).
#pragma once

#include <string>

namespace trovix::platform {

class PathAnchor {
 public:
  // For a path shorter than the limit, dir() is `dir_fd` and name() the path itself.
  PathAnchor(int dir_fd, const char* path);
  ~PathAnchor();
  PathAnchor(const PathAnchor&) = delete;
  PathAnchor& operator=(const PathAnchor&) = delete;

  // 0, or the errno of a step that failed (the call should then fail with it).
  int error() const { return error_; }
  int dir() const { return dir_; }
  const char* name() const { return name_; }

 private:
  int dir_;
  int owned_ = -1;
  const char* name_;
  int error_ = 0;
};

}  // namespace trovix::platform
