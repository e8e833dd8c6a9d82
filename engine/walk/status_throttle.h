// The walk's status line: "searching in %s ..." for the folder being read, rewritten at most
// once per 1,001 ms so that the status bar never costs time per item. The clock is injected
// (milliseconds of a monotonic tick count) so tests can step time without sleeping.
//
// Thread-safety: one throttle per search, used by the search's thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "engine/results/result_sink.h"

namespace trovix::engine {

// Milliseconds of a monotonic clock.
using TickSource = std::function<uint64_t()>;
uint64_t SteadyTickMs();

inline constexpr uint64_t kStatusIntervalMs = 1001;
inline constexpr size_t kStatusPathChars = 128;
inline constexpr std::string_view kSearchingInFormat = "searching in %s ...";

// `path` made fit for the status line: shown as valid UTF-8 and, when it has more than
// `max_chars` characters (code points), shortened to exactly `max_chars` by cutting the
// middle out and putting "..." there, keeping as much as possible of the last component so
// that the folder being read stays recognisable. (Paths here carry no long-path prefix to
// drop, unlike the Windows "\\?\" forms.)
std::string ShortenPathForStatus(std::string_view path, size_t max_chars = kStatusPathChars);

// "searching in <shortened path> ...".
std::string SearchingInText(std::string_view folder_path);

class StatusThrottle {
 public:
  // `sink` may be null (no status wanted).
  explicit StatusThrottle(ResultSink* sink, TickSource ticks = SteadyTickMs);

  // Forgets the last update, so the next folder is shown at once (a new walk).
  void Reset() { last_tick_ = 0; }
  // Shows the status for `folder_path` when 1,001 ms or more have passed since the last
  // update, or the tick count went backwards (it wrapped). Returns whether it showed it.
  bool FolderEntered(std::string_view folder_path);

 private:
  ResultSink* sink_;
  TickSource ticks_;
  uint64_t last_tick_ = 0;
};

}  // namespace trovix::engine
