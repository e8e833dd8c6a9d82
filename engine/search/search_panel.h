// The search driver: the Start/Stop command without a window. It turns the root text into
// roots, checks that there is something to search for and somewhere to search, explains a
// single file with the desktop detective instead of searching, and otherwise runs the search
// on a worker thread: per root the volume table scan, then the index, then the folder walk,
// reporting through a ResultSink.
//
// Threads: StartOrStop, Wait and the accessors are called from the front end's thread; the
// search itself runs on one worker thread owned by the SearchPanel, which calls the sink on
// that thread (a GUI wraps its sink in a BatchingSink). Only one search runs at a time.
// Stop is noticed before the next item.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "engine/extraction/contents_reader.h"
#include "engine/search/detective.h"
#include "engine/walk/folder_walk.h"
#include "engine/results/result_sink.h"
#include "engine/search/search_routes.h"
#include "rules/rule.h"
#include "rules/rule_set.h"

namespace trovix::engine {

// What a front end hands over to start a search.
struct SearchRequest {
  std::vector<rules::RulePtr> rules;  // the rule list, without the "Add new rule" row
  std::string root_text;              // one root, or several joined by "|"
  // Roots taken literally, each one a folder whatever characters it holds (a folder named
  // "a|b" is one root); when given, root_text is not read. One existing file alone is
  // explained. A root that does not exist or is not a folder is reported to the sink and the
  // others are searched; a folder given twice is searched once.
  std::vector<std::string> roots;
  std::string default_root;           // used when root_text is empty (the current folder)
  uint32_t bin_flags = 0;             // the settings words the search reads
  uint32_t bin_search_flags = 0;
  std::string simple_property_list = "System.ItemNameDisplay";
  int threads = 1;                    // folders read at the same time
  bool sort_names = false;            // reproducible order within each folder
  ContentsOptions contents;           // how contents rules read documents
  std::vector<uint32_t> excluded_folder_classes;  // archive types never entered
  bool contents_advice_suppressed = false;        // bin1OffNotify & kNotifyNoReaderAdvice
  bool index_advice_suppressed = false;           // bin1OffNotify & kNotifyIndexAdvice
  // Limits of the walk (see WalkOptions): depth, one file system, pruned items.
  int max_depth = -1;
  int min_depth = 0;
  bool one_file_system = false;
  const WalkPruner* pruner = nullptr;  // not owned; must outlive the search
  // How long a folder or item on a network or FUSE mount may say nothing before the search
  // goes on without it (0: wait for ever).
  std::chrono::milliseconds answer_timeout = kDefaultAnswerTimeout;
  // Only the index answers: nothing is walked, not even when the index finds nothing. The
  // search a front end starts at each keystroke, where a walk would be a disk's worth of work
  // per key.
  bool index_only = false;
};

enum class StartOutcome {
  kStarted,      // a search runs on the worker; the sink hears the rest
  kStopped,      // a search was running and has been asked to stop
  kVetoed,       // UM_SEARCH_BUSY or UM_BEFORE_SEARCH said no
  kNoRules,      // string 10027
  kNoRoot,       // string 10028
  kBadRules,     // the rule set could not be built
  kExplained,    // the root was a single file: see detective_report()
  kNothing,      // the root was a file and the search a single any-text rule: nothing to do
};

// The roots of a root text: the whole text when it names an existing item; otherwise, when
// it holds "|", every piece that is an existing folder, in the order typed (other pieces are
// dropped silently). Relative paths are taken from `base_folder`. With a `timeout`, a root on
// a mount that may stop answering is asked under it (a root that says nothing is dropped). `single_file` is set when
// the whole text names one file. `rebuilt` is the accepted roots joined by "|".
struct ParsedRoots {
  std::vector<std::string> roots;
  std::string rebuilt;
  bool single_file = false;
};
// A root at or below one of `offline` (the places of drives the index keeps and that are not
// mounted) is taken as a folder without asking the disk.
// A root that says nothing within `timeout` (on a mount that stopped answering) is not taken.
ParsedRoots ParseRootText(const std::string& text, const std::string& base_folder,
                          const std::vector<std::string>& offline = {}, std::chrono::milliseconds timeout = {});

struct RootError {
  std::string root;  // as given
  int error = 0;     // errno: ENOENT, ENOTDIR, EACCES ...
};
// As ParseRootText for roots taken literally; one that said nothing within `timeout` is an
// error ETIMEDOUT.
ParsedRoots ParseLiteralRoots(const std::vector<std::string>& given, const std::string& base_folder,
                              std::vector<RootError>* errors, const std::vector<std::string>& offline = {},
                              std::chrono::milliseconds timeout = {});

// The any-text expansion: the single "Find" rule turned into alternatives over the simple
// property list (text properties only), or one rule on the name when none qualifies.
std::vector<rules::RulePtr> ExpandAnyText(const rules::Rule& find_rule, const std::string& simple_list);

// Which route answered a root of the last search.
enum class RootRoute {
  kVolumeTable,  // the volume's file table
  kIndex,        // the index, from what it keeps of the disk
  kCatalogue,    // the index's catalogue of a drive that is not mounted
  kWalk,         // the folders themselves
};
struct RootAnswer {
  std::string root;
  RootRoute route = RootRoute::kWalk;
};

class SearchPanel {
 public:
  explicit SearchPanel(ResultSink& sink, VolumeScanRoute& volume = NoVolumeScan(), IndexRoute& index = NoIndex());
  ~SearchPanel();
  SearchPanel(const SearchPanel&) = delete;
  SearchPanel& operator=(const SearchPanel&) = delete;

  // While a search runs, stops it. Otherwise validates the request and starts a search (or
  // explains a single file). The message for kNoRules / kNoRoot / kBadRules is in error().
  StartOutcome StartOrStop(const SearchRequest& request);

  // Asks a running search to stop before its next item; safe from any thread, the sink's
  // callbacks included (a front end that wants only N results calls it from AddResult).
  void RequestStop() { stop_source_.request_stop(); }

  // From now on StartOrStop runs each search on the calling thread and returns when it has
  // ended (kStarted), stopped by `outside` as by RequestStop: for a front end that would only
  // wait for it (a console command), which then starts no thread for the search.
  void RunOnCaller(std::stop_token outside) {
    on_caller_ = true;
    outside_ = std::move(outside);
  }

  // Blocks until the running search (if any) has ended; returns its count.
  int64_t Wait();
  // Waits at most `timeout` for the running search to end; true when none runs any more.
  bool WaitFor(std::chrono::milliseconds timeout);
  bool running() const { return running_.load(); }

  const std::string& error() const { return error_; }
  const DetectiveReport& detective_report() const { return report_; }
  const std::string& root_text() const { return root_text_; }
  const WalkSummary& last_walk() const { return walk_summary_; }
  // The files the last walk met and could not read (ResultSink::ReportUnread was told the same).
  const UnreadTally& unread() const { return unread_; }
  // The last search was answered by the index: Start on the same search runs the walk.
  bool index_memory() const { return index_memory_; }
  // Which route answered each root of the last search, in the order they were answered (a
  // search stopped early lists only those it reached). Read after the search has ended.
  const std::vector<RootAnswer>& routes() const { return routes_; }

  // The whole search, on the calling thread: the routes per root, then the walk. Returns
  // how many items the sink took. Public for front ends that run their own threads.
  int64_t RunSearch(std::shared_ptr<rules::RuleSet> rule_set, const std::vector<std::string>& roots,
                    bool search_subfolders, const std::string& root_text, const SearchRequest& request,
                    std::stop_token stop);

  // Idle <-> running: sets the running flag and tells the sink (UM_SEARCH_STATE).
  void SetRunning(std::shared_ptr<const rules::RuleSet> rule_set);

 private:
  // Roots that do not exist here but that the index route answers for (a file server's
  // "//NAME/share/path"): moved from *errors into the parsed roots.
  void KeepServerRoots(const SearchRequest& request, ParsedRoots* parsed, std::vector<RootError>* errors);
  void AdviseOnReaders(const rules::RuleSet& rule_set, const SearchRequest& request);
  // Says at the end how many folders (and files) were left behind because they did not answer.
  void TellNotAnswering(uint64_t files);
  int64_t Walk(rules::RuleSet& rule_set, const std::vector<std::string>& roots, bool search_subfolders,
               const SearchRequest& request, std::stop_token stop);
  // The walk of `roots` (the any-text rule expanded first), then the advice on unread files.
  int64_t WalkRoots(rules::RuleSet& rule_set, const std::vector<std::string>& roots, bool search_subfolders,
                    const SearchRequest& request, std::stop_token stop);

  ResultSink& sink_;
  VolumeScanRoute& volume_;
  IndexRoute& index_;
  std::atomic<bool> running_{false};
  std::mutex state_mutex_;              // with state_changed_: running_ went false
  std::condition_variable state_changed_;
  std::thread worker_;
  std::stop_source stop_source_;
  bool on_caller_ = false;
  std::stop_token outside_;
  std::atomic<int64_t> count_{0};
  std::string error_;
  DetectiveReport report_;
  std::string root_text_;
  WalkSummary walk_summary_;
  UnreadTally unread_;
  // Index-memory: the last search was answered by the index (or the volume table).
  bool index_memory_ = false;
  std::vector<std::string> offline_;  // the index's catalogues of drives not mounted, at Start
  std::vector<RootAnswer> routes_;    // written by the search's worker
  std::string memory_root_text_;
  std::vector<rules::RulePtr> memory_rules_;
};

}  // namespace trovix::engine
