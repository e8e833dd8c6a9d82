// The index route of a search: the rule set's WHERE text (rules/query/query_builder.h) in the
// SELECT text of the root (index_query_text.h), parsed and translated for the index database.
//
// Where the index answers alone (nothing is re-tested on the files) the query runs on the
// search's own thread and each row goes to the sink as SQLite yields it. Where rows are
// re-tested on their files, it runs on a worker thread of its own, which hands its rows to the
// search thread as they come (UM_INDEX_ROW), a few hundred at most waiting to be taken, so the
// first rows reach the results while the query still runs and the worker never runs far ahead
// of the results. Each row becomes an item whose value cache is filled from the row (the
// file-system facts and every property the index holds), so re-testing it reads nothing from
// the disk for those. Filter modes: 0 rows as
// they come (the WHERE text says everything the rules say), 1 each row re-tested with the
// rule set, 2 the same when a contents rule was answered by the index. Stop sets the job's
// cancel flag and interrupts the statement; a worker is waited for up to 7,000 ms, and one
// that does not end by then finishes on its own and releases the job itself.
//
// The route keeps one connection, opened by ServiceAvailable; the mount table (for the
// catalogues of other drives) is read again only when it changed.
//
// A drive that is not mounted keeps its catalogue (volume_catalogue.h): its rows are answered
// from what the index kept, each item marked offline (ShellItem::offline) with a status made
// of the stored facts, never tested against the disk that is not there; how old that
// catalogue is is said once per query through ResultSink::Notice. A catalogue whose mount
// point another drive holds now waits at its parked place: OfflineCatalogues names that place
// rather than the mount point (where the drive mounted now would answer), and a root there is
// answered from that catalogue alone, its rows shown under the mount point.
//
// What the index does not hold, the route still answers as the walk would: rows whose text
// the index keeps only in part come with every contents query and are re-tested on the file,
// and the items the crawl's exclusions passed over below the root are walked (said once
// through ResultSink::Notice).
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "index/sqlite/sqlite_translation.h"
#include "engine/search/search_routes.h"
#include "platform/mount_table.h"

namespace trovix::engine::index {

class IndexDatabase;
class VolumeCatalogues;

// What the last query of a route did, for front ends and tests.
struct IndexQueryReport {
  std::string sql;       // the SELECT text with the WHERE text inserted
  int filter_mode = 0;
  std::string error;     // why the index could not answer (then the walk does)
  int64_t rows = 0;      // rows the index returned
  int64_t accepted = 0;  // items the sink took
  int64_t walked = 0;    // items of excluded folders tested by walking them
  int64_t offline = 0;   // items answered from the catalogue of a drive that is not mounted
};

// The SELECT text a search sends for `root`, and its filter mode; empty text when no rule
// translates (then the index is not asked).
struct PlannedQuery {
  std::string sql;
  int filter_mode = 0;
  bool contents = false;  // the rule set has a contents rule
};
PlannedQuery PlanIndexQuery(const rules::RuleSet& rule_set, const std::string& root, bool search_subfolders);
// Whether a rule of the set is on a content plugin's field.
bool UsesPluginField(const rules::RuleSet& rule_set);

// Whether a step of `path` below `root` begins with ".": hidden, so the walk neither returns
// nor enters it, and an index route leaves such rows out unless hidden items are asked for.
bool HiddenBelow(const std::string& path, const std::string& root);

class SqliteIndexRoute final : public IndexRoute {
 public:
  explicit SqliteIndexRoute(std::string database_path);

  // The database exists and is an index of ours; asked once per route.
  bool ServiceAvailable() override;
  bool IsInScope(const std::string& root) override;
  std::vector<std::string> OfflineCatalogues() override;
  int64_t RunIndexQuery(rules::RuleSet& rule_set, const std::string& root, const IndexQueryOptions& options,
                        ResultSink& sink, std::stop_token stop) override;

  IndexQueryReport last_report() const;

 private:
  // The route's connection, opened when missing or still held by a worker; false with *error.
  bool Connect(std::string* error);
  // Which catalogued drives are mounted where they were.
  void CheckCatalogues(VolumeCatalogues& catalogues);
  std::string path_;
  int available_ = -1;  // -1 not asked yet
  std::vector<std::string> roots_, exclusions_;
  ContentsTokenizer tokenizer_ = ContentsTokenizer::kTrigram;
  std::shared_ptr<IndexDatabase> connection_;  // ServiceAvailable's, kept for the queries
  // The mount table as last read, and what tells when it changed since.
  std::optional<std::vector<platform::MountEntry>> mounts_;
  std::unique_ptr<platform::MountTableWatch> mount_watch_;
  mutable std::mutex mutex_;
  IndexQueryReport report_;
};

}  // namespace trovix::engine::index
