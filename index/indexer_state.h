// What the indexer of an index is doing, for `index status` and the desktop program, and the
// user's pause switch. Both live beside the database as small side files, so that reading
// them never touches the database and a watch that is paused writes nothing into it:
//   <db>.paused    exists while the user has paused indexing (`index pause`, the Tools menu);
//                  it survives restarts until `index resume` removes it.
//   <db>.activity  written by the running update or watch when what it does changes (at most
//                  about once a second) and every minute besides: its process, what it does
//                  now, the oldest change it has seen but not yet written, the folders it
//                  cannot watch, and the CPU time the indexer (with its helpers) spent today.
// A damaged or foreign activity file reads as no state at all; it is only ever replaced whole.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace trovix::engine::index {

struct IndexerState {
  int64_t pid = 0;
  bool watching = false;        // a watch, rather than an update
  std::string activity;         // "starting", "idle", "walking", "reading"
  std::string paused_why;       // why it waits, when it does ("on battery", ...)
  int64_t written = 0;          // unix seconds when the file was written
  int64_t oldest_unwritten = 0; // unix seconds of the oldest change not yet written; 0: none
  // Folders over the kernel's watch limit (the first kListedFolders of unwatched_count).
  std::vector<std::string> unwatched;
  int64_t unwatched_count = 0;
  // Folders on file systems without change events, each with the file system's kind.
  std::vector<std::pair<std::string, std::string>> no_events;
  std::string cpu_day;          // the local date (YYYY-MM-DD) cpu_seconds_today counts for
  double cpu_seconds_today = 0;
  int rescan_seconds = 0;       // how often folders without events are looked at

  static constexpr size_t kListedFolders = 20;
};

std::string ActivityPath(const std::string& db_path);
std::string PausePath(const std::string& db_path);

// The text of the activity file, and back. Parse gives nothing for a text it does not know.
std::string FormatIndexerState(const IndexerState& state);
std::optional<IndexerState> ParseIndexerState(const std::string& text);

bool WriteIndexerState(const std::string& db_path, const IndexerState& state);
std::optional<IndexerState> ReadIndexerState(const std::string& db_path);

// The user's switch. SetIndexPaused false with *error when the file could not be made or removed.
bool IndexPausedByUser(const std::string& db_path);
bool SetIndexPaused(const std::string& db_path, bool paused, std::string* error);

// Today's date in local time, as cpu_day holds it.
std::string LocalDay(int64_t unix_seconds);

// The lines `index status` prints about the indexer ("indexer:", "behind:", "not watched:",
// "no events:", "cpu today:"), each ending without a newline. `now` in unix seconds.
std::vector<std::string> IndexerStateLines(const std::string& db_path, int64_t now);

// Whether the process that wrote `state` still runs.
bool IndexerRunning(const IndexerState& state);

}  // namespace trovix::engine::index
