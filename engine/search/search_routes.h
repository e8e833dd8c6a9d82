// The two faster routes a search tries before it walks: the volume table scan and the
// index. Each sits behind an interface so that its own implementation can come later; the
// defaults answer "unavailable", which is exactly the path a search takes on a machine
// without an index or without the rights to read volume tables.
//
// Called on the search's worker thread; implementations must be safe to call from it.
#pragma once

#include <cstdint>
#include <stop_token>
#include <string>
#include <vector>

#include "engine/results/result_sink.h"
#include "props/contents_source.h"
#include "props/shell_item.h"
#include "rules/rule_set.h"

namespace trovix::engine {

struct ContentsOptions;
class UnreadTally;

class VolumeScanRoute {
 public:
  virtual ~VolumeScanRoute() = default;
  // Whether this process may read volume tables at all (the elevated case).
  virtual bool Allowed() { return false; }
  // Scans the volume holding `root` (empty: all volumes) and reports matches to `sink`.
  // Returns the number the sink took, or -1 to refuse, in which case the root goes on.
  virtual int64_t ScanVolumeTable(rules::RuleSet& /*rule_set*/, const std::string& /*root*/,
                                  int /*hidden_mode*/, ResultSink& /*sink*/, std::stop_token /*stop*/) {
    return -1;
  }
};

// How one root is asked of the index.
struct IndexQueryOptions {
  bool search_subfolders = true;
  int hidden_mode = 0;  // 0: items with a hidden step below the root are left out, as the walk does
  const props::ContentsSource* contents = nullptr;  // unused; rows are re-tested through their own reader
  // Where a contents query counts the files below the root whose text the index could not
  // read, as the walk counts those it meets, judged by the search's contents options. Not
  // owned; none: nothing is counted.
  UnreadTally* unread = nullptr;
  const ContentsOptions* contents_options = nullptr;
};

class IndexRoute {
 public:
  virtual ~IndexRoute() = default;
  // Whether an index can be queried at all (cached by the implementation).
  virtual bool ServiceAvailable() { return false; }
  virtual bool IsInScope(const std::string& /*root*/) { return false; }
  // The places of drives the index keeps a catalogue of and that are not mounted there now:
  // a root at or below one is searched in the index even though it is not on the disk.
  virtual std::vector<std::string> OfflineCatalogues() { return {}; }
  // Runs the rule set against the index for one root; each row is re-tested with the rule
  // set when the translation was not exact. Returns the number the sink took.
  virtual int64_t RunIndexQuery(rules::RuleSet& /*rule_set*/, const std::string& /*root*/,
                                const IndexQueryOptions& /*options*/, ResultSink& /*sink*/, std::stop_token /*stop*/) {
    return 0;
  }
};

// The shared "unavailable" routes.
VolumeScanRoute& NoVolumeScan();
IndexRoute& NoIndex();

}  // namespace trovix::engine
