// The wall clock as a file time (UTC). Relative date rules ("yesterday", "in the previous
// 3 days") read it when a search starts; tests fix it with ScopedFixedClock so that "now" is
// known. Reading is thread-safe; fix the clock only while no search runs.
#pragma once

#include "base/file_time.h"

namespace trovix::base {

FileTime NowUtc();

// While alive, NowUtc() returns `now`. Scopes nest; the innermost wins.
class ScopedFixedClock {
 public:
  explicit ScopedFixedClock(FileTime now);
  ~ScopedFixedClock();
  ScopedFixedClock(const ScopedFixedClock&) = delete;
  ScopedFixedClock& operator=(const ScopedFixedClock&) = delete;

 private:
  FileTime previous_;
  bool had_previous_;
};

}  // namespace trovix::base
