// The indexer: keeps the index database equal to the folders in its crawl scope.
//
// Scope: crawl roots and exclusion patterns (git's pattern rules, matched against each name;
// a pattern with a "/" against the path below the root). A new index gets exclusions for
// caches and version-control internals; `status` shows them.
//
// Update runs in two phases, each resumable after a kill at any moment:
//   1. the walk: every folder of the scope is listed and compared with its rows (inode, size,
//      modification and change times); changed and new items are written with their
//      file-system facts and marked to be read, vanished items are removed with everything
//      below them. Committed in batches, so a killed update keeps what it had written.
//   2. the read: every item marked to be read gets its indexed properties (through the
//      property handlers, and so the extraction helper) and its text (through the contents
//      reader), then its mark is cleared, in batches.
// An unchanged tree costs one listing and one status per item and no write.
//
// Where the rows go: the local index (IndexDatabase), or any IndexStore (a file server's shared
// index). A store whose connection dropped, or whose server ended a batch, is reconnected and
// the update or refresh done again: what was committed stays, and the comparison goes on from
// there, so nothing is lost.
//
// Threads: one indexer per database writer (see WriterLock); its calls run on the caller's
// thread and notice `stop` between items.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include "index/index_store.h"
#include "index/sqlite/index_database.h"
#include "index/sqlite/index_schema.h"

namespace trovix::engine::index {

class IndexerThrottle;

struct ScopeEntry {
  std::string path;  // a crawl root, or an exclusion pattern
  bool include = true;
};

// Whether `path` lies in one of `roots` and no step of it below the root matches an
// exclusion pattern.
bool PathInScope(const std::string& path, const std::vector<std::string>& roots,
                 const std::vector<std::string>& exclusions);

// The text the names table keeps for a name: the shown name under the matchers' folding.
std::string NameKey(std::string_view raw_name);

// What the content-plugin values an index keeps depend on: the installed plugins, their detect
// strings and fields ("" without plugins). The index records, under kPluginSignatureMeta, the
// one its values were read under; an update that finds another reads them again.
inline constexpr std::string_view kPluginSignatureMeta = "plugin_fields";
std::string InstalledPluginSignature();

// The exclusions a new scope starts with.
const std::vector<std::string>& DefaultExclusions();

struct UpdateStats {
  int64_t folders = 0;    // folders listed
  int64_t items = 0;      // items seen on disk
  int64_t added = 0;
  int64_t changed = 0;
  int64_t removed = 0;
  int64_t read = 0;       // items whose properties and text were read
  int64_t text_bytes = 0; // text put in the contents table
  int64_t partial = 0;    // items whose text went on past what the index keeps
  int64_t walk_ms = 0;    // time spent in each phase
  int64_t read_ms = 0;
  int64_t read_batches = 0;         // batches the read phase wrote
  int64_t retries = 0;              // times the store's connection was made anew and the work done again
  std::vector<std::string> errors;  // "PATH: reason" for folders that could not be listed
  // Folders on network or FUSE mounts that said nothing within the time-out: left behind
  // with their rows as they were (the server may come back), never waited for.
  std::vector<std::string> not_answering;
};

struct UpdateProgress {
  const char* phase = "";  // "walk" or "read"
  const UpdateStats* stats = nullptr;
  std::string current;     // the folder or file at hand
};

class Indexer {
 public:
  explicit Indexer(IndexDatabase& db);
  // The store must outlive the indexer.
  explicit Indexer(IndexStore& store);
  ~Indexer();

  // Adds a crawl root (an existing folder; made absolute) or an exclusion pattern. False
  // with *error when the folder does not exist or lies inside another root already.
  bool AddRoot(const std::string& folder, std::string* error);
  bool AddExclusion(const std::string& pattern, std::string* error);
  // Removes a root with every item below it, or an exclusion pattern.
  bool Remove(const std::string& path_or_pattern, std::string* error);
  // The scope as the database holds it now (another process may have changed it).
  std::vector<ScopeEntry> Scope() const;

  // Brings the index up to date below every root, or below the given folders only (each
  // must lie inside a root). Returns false when the database failed; folders that could
  // not be listed are in stats->errors and lose their rows.
  // `read` false: the walk only; what is still to read waits for the next update.
  bool Update(const std::vector<std::string>& only, UpdateStats* stats, std::stop_token stop,
              const std::function<void(const UpdateProgress&)>& progress = {}, bool read = true);
  // The walk phase for one folder (not below it unless `recursive`), then the read phase:
  // what the watcher calls when a folder changed.
  bool Refresh(const std::string& folder, bool recursive, UpdateStats* stats, std::stop_token stop);
  // Removes the rows of a path and everything below it (the watcher's delete); without
  // `with_self` only what is below it.
  bool Forget(const std::string& path, bool with_self = true);

  // Looks at the mount table: a catalogue whose drive is mounted at another place now has its
  // paths (and the crawl roots at or below its old place) moved there, and what it held is
  // compared as before (not read anew); a catalogue whose drive is not mounted is left alone
  // by every walk until it is back, unless another drive is mounted in its place: then its
  // rows are parked (volume_catalogue.h) and the drive there is indexed as any folder; they
  // come back when their own drive does. Update and Refresh call it first. *moved (when given)
  // gets "OLD -> NEW" for each catalogue moved. False when the database failed.
  bool FollowDrives(std::vector<std::string>* moved = nullptr);
  // Drops the catalogue whose identity is `identity` ("uuid:..." or "fsid:...", or the UUID
  // alone) with every row at and below its mount point and the crawl roots there. A drive
  // that is mounted inside an indexed folder is catalogued again by the next update.
  bool ForgetCatalogue(const std::string& identity, std::string* error);

  // Whether `path` lies in a root and is not excluded.
  bool InScope(const std::string& path) const;
  const std::string& error() const { return error_; }
  IndexStore& store() const { return db_; }
  // How often a failed update or refresh is done again on a new connection, and the pause
  // before the first retry (each later one waits once more as long).
  static constexpr int kAttempts = 5;
  void set_retry_pause(std::chrono::milliseconds pause) { retry_pause_ = pause; }

  // The text kept per item (bytes of UTF-8): its whole text up to this bound, in pieces of
  // text_piece_bytes(); past it the row is marked partial and a contents search re-tests it
  // through the file's own reader. That re-test reads the whole file at every contents
  // search, so the bound is set well above the text files people keep (a package list or a
  // log of 100 MB is answered from the index alone); 256 MiB is about 37,000 pieces, inside
  // kMaxTextPieces. Memory does not grow with it: text is compressed as it is read.
  static constexpr size_t kMaxTextBytes = 256u << 20;
  // Small pieces: a query confirms each candidate piece by inflating it, and a phrase's
  // trigrams meet by chance in a whole file far more often than within 8 KiB of it (a
  // twentieth of the confirming, for a tenth more index).
  static constexpr size_t kTextPieceBytes = 8u << 10;
  static constexpr size_t kTextPieceOverlap = kTextOverlapBytes;
  // Text that is nothing but NULs and blanks this far in is taken for no text.
  static constexpr size_t kZeroProbeBytes = 64u << 10;
  // The read phase writes its batch after at most kReadBatchItems items, and once what they
  // read (compressed text pieces and values) holds kReadBatchBytes. Text is folded, cut and
  // compressed as it is read, and only one item at a time may hold more than an eighth of the
  // bound (4 MiB at most) of it; an item that would take the batch past its bound is read
  // again by the next one. So a batch holds about kReadBatchBytes + 4 MiB x workers + one
  // item's compressed text, and no item's whole text is held at once, however large.
  static constexpr size_t kReadBatchItems = 256;
  static constexpr size_t kReadBatchBytes = 32u << 20;
  // How long a folder on a network or FUSE mount may say nothing before the walk goes on
  // without it (0: wait for ever).
  void set_answer_timeout(std::chrono::milliseconds timeout) { answer_timeout_ = timeout; }
  // Another bound than kReadBatchBytes (tests, with small files).
  void set_read_batch_bytes(size_t bytes) { read_batch_bytes_ = bytes; }
  // Another piece size than kTextPieceBytes (tests, so that a file of a few kilobytes has
  // several pieces). Applies to text read from now on.
  void set_text_piece_bytes(size_t bytes) { text_piece_bytes_ = bytes; }
  // Another bound than kMaxTextBytes (tests, for rows whose text is cut short).
  void set_max_text_bytes(size_t bytes) { max_text_bytes_ = bytes; }
  // What holds the work back (pause, battery, CPU budget) and hears what it does: passed
  // between every folder and every file. Null: nothing holds it back. Not owned.
  void set_throttle(IndexerThrottle* throttle) { throttle_ = throttle; }

 private:
  struct Impl;
  bool UpdateOnce(const std::vector<std::string>& only, UpdateStats* stats, std::stop_token stop,
                  const std::function<void(const UpdateProgress&)>& progress, bool read);
  bool RefreshOnce(const std::string& folder, bool recursive, UpdateStats* stats, std::stop_token stop);
  // Runs `work` until it succeeds, fails for a reason a new connection does not mend, or
  // kAttempts ran out.
  bool Retrying(UpdateStats* stats, const std::stop_token& stop, const std::function<bool()>& work);
  // `touched` (when given) collects the rows the walk marked to be read.
  bool Walk(const std::string& folder, bool recursive, UpdateStats* stats, std::stop_token stop,
            const std::function<void(const UpdateProgress&)>& progress, std::vector<int64_t>* touched = nullptr);
  // Reads the rows marked to be read: all of them, or only `ids` (a watch's refresh, which must
  // not pass over the whole table for the few rows it changed).
  bool ReadPending(UpdateStats* stats, std::stop_token stop, const std::function<void(const UpdateProgress&)>& progress,
                   const std::vector<int64_t>* ids = nullptr);
  void LoadScope() const;
  // Keeps the store's error and rolls the transaction back; false, for `return Abandon();`.
  bool Abandon();
  // Moves the rows, roots and names of a catalogue from mount point `from` to `to`.
  bool Relocate(const std::string& from, const std::string& to);
  // Moves a catalogue's rows from its mount point to its parked place, and back to `to`.
  bool Park(const std::string& identity, const std::string& mount_point);
  bool Unpark(const std::string& identity, const std::string& to);
  // Changes the folder paths at and below `from` to begin with `to` instead.
  bool MoveFolderPaths(const std::string& from, const std::string& to);
  // Makes the item `top_id`, the folder at `to`, a child of its parent folder when that is
  // indexed and `to` is in scope, else a crawl root of its own.
  bool LinkTop(int64_t top_id, const std::string& to);
  struct SilentMounts;
  // Whether the file at `path` answers (asked under the time-out when it lies on a mount that
  // may stop answering); on a thread of the read phase.
  bool Answers(const std::string& path, SilentMounts& silent, const std::stop_token& stop) const;

  std::unique_ptr<IndexStore> own_store_;  // the local index's, when made from one
  IndexStore& db_;
  mutable std::vector<std::string> roots_;
  mutable std::vector<std::string> exclusions_;
  std::string error_;
  std::vector<std::string> offline_tops_;  // mount points of the catalogues not mounted now
  size_t read_batch_bytes_ = kReadBatchBytes;
  size_t text_piece_bytes_ = kTextPieceBytes;
  size_t max_text_bytes_ = kMaxTextBytes;
  IndexerThrottle* throttle_ = nullptr;
  std::chrono::milliseconds answer_timeout_{10'000};
  std::chrono::milliseconds retry_pause_{1'000};
};

}  // namespace trovix::engine::index
