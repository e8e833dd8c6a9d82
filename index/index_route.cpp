#include "index/index_route.h"

#include <sqlite3.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <optional>
#include <set>
#include <stop_token>
#include <thread>
#include <unordered_map>

#include "engine/extraction/contents_reader.h"
#include "engine/walk/folder_enumerator.h"
#include "index/sqlite/index_database.h"
#include "index/dialect/index_query_text.h"
#include "index/sqlite/index_schema.h"
#include "index/sqlite/contents_candidates.h"
#include "index/sqlite/index_translation.h"
#include "index/sqlite/text_pieces.h"
#include "index/indexer.h"
#include "index/volume_catalogue.h"
#include "index/sqlite/sqlite_functions.h"
#include "platform/dir_reader.h"
#include "platform/sqlite_statement.h"
#include "props/catalogue.h"
#include "rules/compare_flags.h"
#include "rules/item_value_provider.h"
#include "base/ascii.h"
#include "base/file_name.h"
#include "rules/matchers/text_matcher.h"
#include "rules/query/query_builder.h"

namespace trovix::engine::index {
using platform::Statement;
namespace {

using namespace std::chrono_literals;

// The index keeps every text folded: a rule that tells case apart, a Float written with six
// digits, or a kind tested by its extensions is answered wider than it asks and must be
// re-tested.
bool IndexIsLooserThan(const rules::RuleSet& set) {
  for (const auto& rule : set.rules()) {
    if (rule->Kind() == rules::kKindFloat) return true;
    // An extension that two kinds list is the first kind's to the walk and both kinds' to
    // the index's extension tests.
    if (rule->PropertyName() == "Stock.Kind") return true;
    if (rules::IsTextKind(rule->Kind()) && !(rule->Flags() & 0x1)) return true;
  }
  return false;
}

props::PropValue FromColumn(const Statement& s, int column, uint16_t vartype) {
  if (s.IsNull(column)) return {};
  if (vartype == (props::VT_VECTOR | props::VT_LPWSTR)) {
    std::vector<std::string> parts;
    std::string_view text = s.Text(column);
    size_t start = 0;
    while (start <= text.size()) {
      size_t end = text.find("; ", start);
      if (end == std::string_view::npos) end = text.size();
      parts.emplace_back(text.substr(start, end - start));
      start = end + 2;
    }
    return props::PropValue::TextVector(std::move(parts));
  }
  switch (vartype & props::kVarTypeMask) {
    case props::VT_LPWSTR:
    case props::VT_BSTR:
    case props::VT_LPSTR:
      return props::PropValue::Text(std::string(s.Text(column)));
    case props::VT_FILETIME:
      return props::PropValue::FileTime(s.Int(column));
    case props::VT_R4:
    case props::VT_R8:
      return props::PropValue::Double(s.Double(column));
    case props::VT_BOOL:
      return props::PropValue::Bool(s.Int(column) != 0);
    case props::VT_UI8:
      return props::PropValue::UInt64(static_cast<uint64_t>(s.Int(column)));
    case props::VT_I8:
      return props::PropValue::Int64(s.Int(column));
    case props::VT_UI1:
    case props::VT_UI2:
    case props::VT_UI4:
      return props::PropValue::UInt32(static_cast<uint32_t>(s.Int(column)));
    default:
      return props::PropValue::Int32(static_cast<int32_t>(s.Int(column)));
  }
}


// The columns of items that go into an item's value cache, in the order selected.
constexpr const char* kRowColumns[] = {"System.Size", "System.DateModified", "System.DateCreated",
                                       "System.FileAttributes", "System.FileExtension", "System.Kind",
                                       "System.MIMEType"};
constexpr int kFirstValueColumn = 4;
constexpr int kStateColumn = kFirstValueColumn + static_cast<int>(std::size(kRowColumns));
// How many rows the worker may hold ready for the search before it waits.
constexpr size_t kHandOverRows = 256;

// One query's shared state: the search thread and the worker both hold it, so a worker that
// outlives the 7,000 ms wait still has everything it touches.
struct IndexQueryJob {
  std::shared_ptr<IndexDatabase> db;  // a connection of its own while the worker runs
  SqliteQuery query;
  std::string root;
  IndexQueryOptions options;
  int filter_mode = 0;
  // Rows whose text the index holds only in part come too, and are re-tested on the file.
  bool partial_rows = false;
  std::unique_ptr<rules::RuleSet> rule_set;  // the worker's own copy, for re-tests

  std::atomic<bool> cancel{false};
  sqlite3* connection = nullptr;  // while the worker's statement runs; guarded by mutex
  std::mutex mutex;
  std::condition_variable changed;
  // The rows handed over and not taken yet: at most kHandOverRows, so that the worker never
  // runs far ahead of the results (a stop drops what it holds, and no more is read).
  std::vector<props::ShellItemPtr> ready;
  bool done = false;
  std::string error;
  int64_t rows = 0;
  std::vector<std::string> offline;  // mount points of the catalogues of drives not mounted
  // Parked places of catalogues (volume_catalogue.h) and their mount points: rows there are
  // said at the mount point, offline.
  std::vector<std::pair<std::string, std::string>> parked;
  bool parked_only = false;  // a query of one parked place: rows elsewhere (partial ones) are not its
  int64_t offline_rows = 0;
};

// A row of a drive that is not mounted: an item whose status is what the index kept, so that
// nothing asks the disk that is not there.
props::ShellItemPtr OfflineItem(const std::string& path, const Statement& row) {
  platform::FileStatus st;
  const bool folder = row.Int(3) != 0;
  st.type = folder ? platform::FileType::kDirectory : platform::FileType::kRegular;
  st.mode = folder ? 040755 : 0100644;
  st.size = static_cast<uint64_t>(std::max<int64_t>(0, row.Int(4)));
  st.modified = row.Int(5);
  st.created = row.Int(6);
  st.changed = row.Int(5);
  st.links = 1;
  auto item = props::ShellItem::FromListing(path, st.type);
  item->SetListedStatus(0, st);
  item->set_offline();
  return item;
}

// Where a quick re-test (filter mode 2) reads an item's text: the copy the index keeps, so that
// no document is opened again. The copy is folded, which is what a rule that ignores case
// compares anyway; rows whose text was not read yet or was cut short (and rules that tell
// case apart) go to the file's own reader.
class IndexedTextSource final : public props::ContentsSource {
 public:
  IndexedTextSource(sqlite3* db, props::ContentsSource& fallback) : db_(db), fallback_(fallback) {}

  // The row the next Read is about, and whether the index holds its whole text.
  void SetRow(int64_t id, bool whole) {
    id_ = id;
    whole_ = whole;
  }

  props::ContentsResult Read(props::ShellItem& item, const props::TextPieceSink& on_text) override {
    if (!whole_) return fallback_.Read(item, on_text);
    // Prepared at the first re-test: most queries never make one.
    if (!pieces_.ok()) pieces_.Prepare(db_, "SELECT lead, body FROM texts WHERE id >= ? AND id < ? ORDER BY id");
    pieces_.Bind(1, TextPieceId(id_, 0)).Bind(2, TextPieceId(id_ + 1, 0));
    props::ContentsResult result;
    result.status = props::ContentsStatus::kNoText;
    while (pieces_.Step() == SQLITE_ROW) {
      if (!InflateText(pieces_.Blob(1), &text_)) continue;
      result.status = props::ContentsStatus::kText;
      // Each piece's lead repeats the one before: the scan sees the text once, as the file has it.
      const size_t lead = std::min(text_.size(), static_cast<size_t>(std::max<int64_t>(0, pieces_.Int(0))));
      if (!on_text(std::string_view(text_).substr(lead))) break;
    }
    pieces_.Reset();
    return result;
  }

 private:
  sqlite3* db_;
  Statement pieces_;
  props::ContentsSource& fallback_;
  std::string text_;
  int64_t id_ = 0;
  bool whole_ = false;
};

// Whether every contents rule of the set ignores case (then the index's folded text serves).
bool ContentsRulesIgnoreCase(const rules::RuleSet& set) {
  for (const auto& rule : set.rules())
    if (rule->IsContents() && !(rule->Flags() & 0x1)) return false;
  return true;
}

void FillCache(props::ShellItem& item, Statement& row, Statement& props_of, int64_t id) {
  const props::Catalogue& cat = props::DefaultCatalogue();
  static const std::vector<const props::PropertyInfo*> columns = [&cat] {
    std::vector<const props::PropertyInfo*> infos;
    for (const char* name : kRowColumns) infos.push_back(cat.FindProperty(name));
    return infos;
  }();
  for (int i = 0; i < static_cast<int>(columns.size()); ++i) {
    const props::PropertyInfo* info = columns[static_cast<size_t>(i)];
    if (info != nullptr) item.AddCached(info->hash, FromColumn(row, kFirstValueColumn + i, info->var_type()));
  }
  props_of.Bind(1, id);
  while (props_of.Step() == SQLITE_ROW) {
    const props::PropertyInfo* info = cat.FindProperty(props_of.Text(0));
    if (info != nullptr) item.AddCached(info->hash, FromColumn(props_of, 1, info->var_type()));
  }
  props_of.Reset();
  // Every property the index keeps was asked of the file: one missing here is one it lacks.
  if (row.Int(kStateColumn) != 0) item.set_own_properties_read();
}

// Hands one row's item on; false when the query is to stop.
using DeliverRow = std::function<bool(props::ShellItemPtr item, bool offline)>;

void RunRows(const std::shared_ptr<IndexQueryJob>& job, const DeliverRow& deliver) {
  auto finish = [&](std::string error) {
    std::lock_guard<std::mutex> lock(job->mutex);
    if (job->error.empty()) job->error = std::move(error);
    job->done = true;
    job->changed.notify_all();
  };
  std::shared_ptr<IndexDatabase> db = job->db;
  if (!db) return finish("the index cannot be read");
  {
    std::lock_guard<std::mutex> lock(job->mutex);
    job->connection = db->db();
  }
  const std::string columns = "SELECT i.id, f.path, i.name, i.is_folder, i.size, i.modified, i.created, i.attributes, "
                              "i.extension, i.kind, i.mime, i.state FROM ";
  // A query of the items table alone drives the join, so rows stream as it finds them; as
  // "IN (query)" it built the whole set of ids before the first row (a quarter of a second for a
  // broad name over a million items, which a search as typed would wait at every key).
  const bool streams = !job->partial_rows && job->query.sql.rfind("SELECT items.id FROM ", 0) == 0;
  const std::string sql =
      streams ? columns + "(" + job->query.sql + ") q CROSS JOIN items i ON i.id=q.id JOIN folders f ON f.id=i.parent"
              : columns + "items i JOIN folders f ON f.id=i.parent WHERE i.id IN (" + job->query.sql +
                    // One set, made once: as "IN (query) OR IN (partial rows)" the planner ran
                    // the query twice, once per way it could reach a row.
                    (job->partial_rows
                         ? " UNION SELECT id FROM items WHERE state=" + std::to_string(kStatePartialText)
                         : std::string()) +
                    ")";
  Statement rows(db->db(), sql);
  auto release = [&] {
    std::lock_guard<std::mutex> lock(job->mutex);
    job->connection = nullptr;
  };
  if (!rows.ok()) {
    release();
    return finish("the index cannot run the query: " + db->LastError());
  }
  BindSqliteParams(rows.get(), job->query.params);
  Statement props_of(db->db(),
                     "SELECT n.name, p.value FROM props p JOIN prop_names n ON n.id=p.prop WHERE p.item=?");
  rules::ItemValueProvider provider;
  ContentsReader contents{ContentsOptions{}};
  IndexedTextSource indexed_text(db->db(), contents);
  const bool quick = job->filter_mode == 2 && job->rule_set && ContentsRulesIgnoreCase(*job->rule_set);
  provider.set_contents_source(quick ? static_cast<props::ContentsSource*>(&indexed_text) : &contents);
  if (job->rule_set) job->rule_set->set_value_provider(&provider);
  int rc;
  while (!job->cancel.load() && (rc = rows.Step()) == SQLITE_ROW) {
    ++job->rows;
    std::string folder(rows.Text(1));
    bool offline = false;
    for (const auto& [place, mount_point] : job->parked) {
      if (!IsAtOrBelow(folder, place)) continue;
      folder = FromParkedPlace(folder, place, mount_point);
      offline = true;
      break;
    }
    if (job->parked_only && !offline) continue;
    const std::string path = JoinPath(folder, rows.Text(2));
    const int64_t state = rows.Int(kStateColumn);
    const bool partial = job->partial_rows && state == kStatePartialText;
    // A partial row came whatever the query said, scope included.
    if (partial && !(job->options.search_subfolders ? IsAtOrBelow(folder, job->root) : folder == job->root)) continue;
    if (job->options.hidden_mode == 0 && HiddenBelow(path, job->root)) continue;
    for (const std::string& place : job->offline) offline |= IsAtOrBelow(path, place);
    auto item = offline ? OfflineItem(path, rows) : props::ShellItem::FromPath(path);
    FillCache(*item, rows, props_of, rows.Int(0));
    indexed_text.SetRow(rows.Int(0), state == 1);
    // The index may lag behind the disk by a moment: an item that is gone is no result. An
    // item of a drive that is not mounted is the exception: the catalogue is all there is.
    if (!offline && item->Status() == nullptr) continue;
    if (offline && partial) continue;  // the rest of its text is on the drive
    if (job->filter_mode != 0 || partial) {
      provider.set_item(item);
      bool matched = job->rule_set->Evaluate();
      provider.set_item(nullptr);
      if (!matched) continue;
    }
    if (!deliver(std::move(item), offline)) break;
  }
  if (job->rule_set) job->rule_set->set_value_provider(nullptr);
  release();
  const bool failed = !job->cancel.load() && rc != SQLITE_DONE && rc != SQLITE_ROW;
  finish(failed ? "the index failed: " + db->LastError() : std::string());
}

// The worker of a query on a thread of its own: UM_INDEX_ROW, a few at a time. The search takes
// every row ready when it wakes, so a thread switch is paid per handful of rows rather than
// two per row, and the first row goes at once (the search is waiting for it).
void RunWorker(const std::shared_ptr<IndexQueryJob>& job) {
  RunRows(job, [&job](props::ShellItemPtr item, bool offline) {
    std::unique_lock<std::mutex> lock(job->mutex);
    job->changed.wait(lock, [&] { return job->ready.size() < kHandOverRows || job->cancel.load(); });
    if (job->cancel.load()) return false;
    job->offline_rows += offline;
    job->ready.push_back(std::move(item));
    if (job->ready.size() == 1) job->changed.notify_all();
    return true;
  });
}

// The items the crawl's exclusions passed over below `root` (a folder of __pycache__ is still
// part of the folder a user searches): each is tested as the walk tests it, and a folder
// among them is walked with everything below it. The user is told once. Returns the number
// the sink took; *walked the items tested.
int64_t WalkExcluded(IndexDatabase& db, const rules::RuleSet& rule_set, const std::string& root,
                     const IndexQueryOptions& options, ResultSink& sink, std::stop_token stop, int64_t* walked) {
  const auto [lo, hi] = FolderPathsBelow(root);
  // The excluded entries drive the join: they are few (often none), while the folders below a
  // root can be the whole index, and probing each of them costs more than the query it follows.
  Statement entries(db.db(),
                    "SELECT f.path, e.name FROM excluded e CROSS JOIN folders f ON f.id=e.parent "
                    "WHERE f.path=?1 OR (?2 AND f.path>=?3 AND f.path<?4) ORDER BY f.path, e.name");
  entries.Bind(1, root).Bind(2, int64_t{options.search_subfolders ? 1 : 0}).Bind(3, lo).Bind(4, hi);
  std::deque<std::pair<std::string, platform::FileType>> queue;
  std::set<std::string> names;
  while (entries.Step() == SQLITE_ROW) {
    std::string path = JoinPath(std::string(entries.Text(0)), entries.Text(1));
    if (options.hidden_mode == 0 && HiddenBelow(path, root)) continue;
    names.emplace(entries.Text(1));
    queue.emplace_back(std::move(path), platform::FileType::kUnknown);
  }
  if (queue.empty()) return 0;
  std::unique_ptr<rules::RuleSet> set = rule_set.Copy();
  rules::ItemValueProvider provider;
  ContentsReader contents{ContentsOptions{}};
  provider.set_contents_source(&contents);
  set->set_value_provider(&provider);
  FolderEnumerator::Options enum_options;
  enum_options.flags = options.hidden_mode == 0 ? SHCONTF_FOLDERS | SHCONTF_NONFOLDERS : kEnumerateAll;
  int64_t accepted = 0;
  while (!queue.empty() && !stop.stop_requested()) {
    auto [path, type] = std::move(queue.front());
    queue.pop_front();
    auto item = type == platform::FileType::kUnknown ? props::ShellItem::FromPath(path)
                                                     : props::ShellItem::FromListing(path, type);
    if (item->Status() == nullptr) continue;
    ++*walked;
    provider.set_item(item);
    const bool matched = set->Evaluate();
    provider.set_item(nullptr);
    if (matched && sink.AddResult(item) == 0) ++accepted;
    // Folders are entered as the walk enters them: not through links.
    if (!options.search_subfolders || item->Status()->type != platform::FileType::kDirectory) continue;
    FolderEnumerator folder(platform::DefaultDirSystem(), enum_options);
    if (folder.Read(path, false, stop) != 0) continue;
    for (const FolderChild& child : folder.children())
      queue.emplace_back(JoinPath(path, child.name), child.type);
  }
  set->set_value_provider(nullptr);
  std::string list;
  for (const std::string& name : names) {
    if (list.size() > 60) {
      list += " ...";
      break;
    }
    list += (list.empty() ? "" : ", ") + name;
  }
  sink.Notice("the index leaves out " + list + " here: " + std::to_string(*walked) +
              " item(s) in them were searched by walking");
  return accepted;
}

}  // namespace

bool HiddenBelow(const std::string& path, const std::string& root) {
  size_t pos = root == "/" ? 0 : root.size();
  while ((pos = path.find('/', pos)) != std::string::npos) {
    if (pos + 1 < path.size() && path[pos + 1] == '.') return true;
    ++pos;
  }
  return false;
}

bool UsesPluginField(const rules::RuleSet& rule_set) {
  return std::any_of(rule_set.rules().begin(), rule_set.rules().end(), [](const rules::RulePtr& rule) {
    const props::PropertyInfo* info = rule->Descriptor();
    return info != nullptr && info->provider != 0;
  });
}

PlannedQuery PlanIndexQuery(const rules::RuleSet& rule_set, const std::string& root, bool search_subfolders) {
  PlannedQuery plan;
  const rules::BuildResult where = rules::BuildWhere(rule_set);
  if (where.text.empty()) return plan;
  const std::string select = IndexScopeText(root, search_subfolders, "Path");
  if (select.empty()) return plan;
  plan.sql = InsertWhere(select, where.text);
  plan.contents = rule_set.contents_rule() >= 0;
  if (where.all_translated && !IndexIsLooserThan(rule_set)) {
    plan.filter_mode = 0;
  } else {
    // The index answered the contents rule: a quick re-test leaves the text alone.
    const size_t phrase = plan.sql.find("CONTAINS('\"", 1);
    plan.filter_mode = rule_set.contents_rule() >= 0 && phrase != std::string::npos ? 2 : 1;
  }
  return plan;
}

SqliteIndexRoute::SqliteIndexRoute(std::string database_path) : path_(std::move(database_path)) {}

bool SqliteIndexRoute::ServiceAvailable() {
  if (available_ < 0) {
    std::string error;
    available_ = Connect(&error);
    if (available_) {
      Indexer indexer(*connection_);
      for (const auto& e : indexer.Scope()) (e.include ? roots_ : exclusions_).push_back(e.path);
      tokenizer_ = TokenizerFromMeta(connection_->Meta("contents_tokenizer", "trigram"));
    }
  }
  return available_ == 1;
}

bool SqliteIndexRoute::IsInScope(const std::string& root) {
  // A parked catalogue is nowhere in the crawl scope, and only the index can answer for it.
  return ServiceAvailable() && (PathInScope(root, roots_, exclusions_) || IsParkedPlace(root));
}

bool SqliteIndexRoute::Connect(std::string* error) {
  // The route keeps one connection for its queries; a worker that outlived its wait still
  // holds the last one, and then the next query gets a new one.
  if (connection_ && connection_.use_count() == 1) return true;
  connection_ = IndexDatabase::Open(path_, IndexDatabase::Access::kRead, error);
  if (!connection_) return false;
  RegisterIndexFunctions(connection_->db());
  return true;
}

void SqliteIndexRoute::CheckCatalogues(VolumeCatalogues& catalogues) {
  // The catalogue of the root file system is always there: only other drives are looked for
  // in the mount table, which is read again only when the kernel says it changed.
  bool elsewhere = false;
  for (const Catalogue& c : catalogues.list()) elsewhere |= c.mount_point != "/";
  if (!elsewhere) {
    catalogues.Check({});
    return;
  }
  if (!mount_watch_) mount_watch_ = std::make_unique<platform::MountTableWatch>();
  if (!mounts_ || mount_watch_->Changed()) mounts_ = platform::ReadMountTable();
  catalogues.Check(*mounts_);
}

std::vector<std::string> SqliteIndexRoute::OfflineCatalogues() {
  std::string error;
  if (!ServiceAvailable() || !Connect(&error)) return {};
  VolumeCatalogues catalogues(connection_->db());
  if (catalogues.list().empty()) return {};
  CheckCatalogues(catalogues);
  std::vector<std::string> out = catalogues.OfflineMountPoints();
  // A catalogue whose place another drive holds is asked at its parked place: its mount point
  // would be searched as the drive there is.
  for (const Catalogue& c : catalogues.list())
    if (c.displaced && c.parked) out.push_back(ParkedPlace(c.identity));
  return out;
}

IndexQueryReport SqliteIndexRoute::last_report() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return report_;
}

// The part of a name its type is judged by, with the row's state: the name from its last
// dot but one (".1.gz", ".tar.gz"), or from its last dot, or whole when it has none; marked
// when that part is the whole name, since a name that begins with its only dot has no
// extension. Every ending the reasons look for has at most two dots.
static std::string TypeKey(int64_t state, std::string_view name) {
  size_t from = name.find_last_of('.');
  if (from == std::string_view::npos) {
    from = 0;
  } else if (from > 0) {
    const size_t before = name.find_last_of('.', from - 1);
    if (before != std::string_view::npos) from = before;
  }
  std::string key = std::to_string(state);
  key += from == 0 ? '=' : '~';
  key += AsciiLower(name.substr(from));
  return key;
}

// The files below the root whose text the index could not read, into the search's tally: the
// walk meets every file of the tree with a contents rule, and counts those it cannot read.
static void CountUnreadRows(IndexDatabase& db, const std::string& root, const IndexQueryOptions& options) {
  if (options.unread == nullptr || options.contents_options == nullptr) return;
  const auto [lo, hi] = FolderPathsBelow(root);
  // The unread rows come from their own index alone (items_unread holds their folders and
  // names; the planner matches its condition only against the same text, so the bound is
  // written out): they are few beside the items, but a tree of documents nobody reads
  // (/usr/share: 34,000 .gz and the like) has many of them in few folders, so each folder is
  // looked up and judged once, not once per row.
  Statement rows(db.db(), "SELECT i.parent, i.name, i.state FROM items i WHERE i.state>=" +
                              std::to_string(kStateUnreadTextBase));
  Statement folder_of(db.db(), "SELECT path FROM folders WHERE id=?");
  std::unordered_map<int64_t, std::optional<std::string>> folders;  // in scope: its path
  // Why a file was not read depends on its state and its name's type (the extension, and for
  // a compressed file whether it is a compressed tar): judged once per state and name ending,
  // and counted here before the tally takes the sums. /usr/share has 28,000 such rows.
  struct Judged {
    std::optional<std::pair<std::string, UnreadReason>> type;  // none: not news at the end
    int64_t files = 0;
  };
  std::unordered_map<std::string, Judged> judged;
  while (rows.Step() == SQLITE_ROW) {
    auto [at, added] = folders.try_emplace(rows.Int(0));
    if (added) {
      folder_of.Bind(1, rows.Int(0));
      if (folder_of.Step() == SQLITE_ROW) {
        std::string path(folder_of.Text(0));
        const bool in_scope = path == root || (options.search_subfolders && path >= lo && path < hi);
        // A hidden step below the root: the walk neither enters nor returns it.
        if (in_scope && !(options.hidden_mode == 0 && HiddenBelow(path, root))) at->second = std::move(path);
      }
      folder_of.Reset();
    }
    if (!at->second) continue;
    const std::string_view name = rows.Text(1);
    if (options.hidden_mode == 0 && !name.empty() && name[0] == '.') continue;
    auto [verdict, fresh] = judged.try_emplace(TypeKey(rows.Int(2), name));
    if (fresh) {
      const auto status = static_cast<props::ContentsStatus>(rows.Int(2) - kStateUnreadTextBase);
      UnreadReason reason;
      if (UnreadReasonOf(status, name, *options.contents_options, &reason))
        verdict->second.type.emplace(LowerExtension(name), reason);
    }
    ++verdict->second.files;
  }
  for (const auto& [key, j] : judged)
    if (j.type) options.unread->Add(j.type->first, j.type->second, j.files);
}

namespace {

// Whether the rows of the job come from the index alone: no row is re-tested on its file but
// those whose text the index keeps in part (rare: a file past the text limit).
bool AnswersAlone(const IndexQueryJob& job) {
  return job.filter_mode == 0 || (job.filter_mode == 2 && job.rule_set && ContentsRulesIgnoreCase(*job.rule_set));
}

// Runs the job's query on the search's own thread, each row to `sink` as it comes: where the
// index answers alone a row costs microseconds, and a thread of its own would cost more in
// start-up and hand-overs than the whole query (a rare word is answered in well under a
// millisecond). A stop interrupts the statement from whichever thread asks for it.
int64_t RunHere(const std::shared_ptr<IndexQueryJob>& job, ResultSink& sink, std::stop_token stop, bool* cancelled) {
  std::stop_callback interrupt(stop, [&job] {
    job->cancel.store(true);
    std::lock_guard<std::mutex> lock(job->mutex);
    if (job->connection != nullptr) sqlite3_interrupt(job->connection);
  });
  int64_t accepted = 0;
  RunRows(job, [&](props::ShellItemPtr item, bool offline) {
    // Stop is noticed before the next item.
    if (stop.stop_requested()) return false;
    {
      std::lock_guard<std::mutex> lock(job->mutex);
      job->offline_rows += offline;
    }
    if (sink.AddResult(item) == 0) ++accepted;
    return true;
  });
  *cancelled = stop.stop_requested();
  return accepted;
}

// Runs the job's query on a worker of its own and hands the rows to `sink` as they come.
// Returns the number the sink took; *cancelled when the search was stopped meanwhile.
int64_t RunJob(const std::shared_ptr<IndexQueryJob>& job, ResultSink& sink, std::stop_token stop, bool* cancelled) {
  if (AnswersAlone(*job)) return RunHere(job, sink, stop, cancelled);
  std::thread worker([job] { RunWorker(job); });
  // A stop wakes the wait below at once rather than at its next time-out: a front end that
  // searches as the user types stops the previous search at every key.
  std::stop_callback wake(stop, [&job] {
    { std::lock_guard<std::mutex> lock(job->mutex); }
    job->changed.notify_all();
  });
  int64_t accepted = 0;
  *cancelled = false;
  {
    std::vector<props::ShellItemPtr> taken;
    std::unique_lock<std::mutex> lock(job->mutex);
    while (!*cancelled) {
      job->changed.wait_for(lock, 50ms, [&] { return !job->ready.empty() || job->done || stop.stop_requested(); });
      if (stop.stop_requested()) {
        *cancelled = true;
        break;
      }
      if (job->ready.empty()) {
        if (job->done) break;
        continue;
      }
      taken.swap(job->ready);
      job->changed.notify_all();
      lock.unlock();
      for (const props::ShellItemPtr& item : taken) {
        // Stop is noticed before the next item, whatever the batch still holds.
        if (stop.stop_requested()) {
          *cancelled = true;
          break;
        }
        if (sink.AddResult(item) == 0) ++accepted;
      }
      taken.clear();
      lock.lock();
    }
  }
  if (*cancelled) {
    // The statement is interrupted where it is: the next key's query waits for nothing.
    job->cancel.store(true);
    std::unique_lock<std::mutex> lock(job->mutex);
    if (job->connection != nullptr) sqlite3_interrupt(job->connection);
    job->changed.notify_all();
    if (!job->changed.wait_for(lock, 7000ms, [&] { return job->done; })) {
      // The worker keeps its share of the job and ends on its own.
      lock.unlock();
      worker.detach();
    }
  }
  if (worker.joinable()) worker.join();
  return accepted;
}

// The query over `query_root` of every row of a catalogue whose drive is not there, for rules
// the index cannot express: they are tested on the rows instead of a walk.
void CatalogueRowsQuery(const std::string& query_root, bool search_subfolders, SqliteQuery* query) {
  const auto [lo, hi] = FolderPathsBelow(query_root);
  query->sql = "SELECT i.id FROM items i JOIN folders f ON f.id=i.parent WHERE f.path=?1";
  query->params = {query_root};
  if (search_subfolders) {
    query->sql += " OR (f.path>=?2 AND f.path<?3)";
    query->params.insert(query->params.end(), {lo, hi});
  }
}

// The job's query and filter mode for the rules over `query_root` (a catalogue's rows when
// the index has no form for them and `offline_root`); false when there is nothing to ask.
bool PlanJob(rules::RuleSet& rule_set, const std::string& query_root, bool offline_root, ContentsTokenizer tokenizer,
             IndexDatabase& db, IndexQueryJob& job, IndexQueryReport* report, bool* contents) {
  PlannedQuery plan = PlanIndexQuery(rule_set, query_root, job.options.search_subfolders);
  report->sql = plan.sql;
  report->filter_mode = plan.filter_mode;
  if (!plan.sql.empty() && !TranslateIndexSql(plan.sql, tokenizer, &job.query, &report->error)) return false;
  NarrowContentsLookups(db.db(), &job.query);
  // Plugin values read under other plugins than the installed ones would answer wrongly: the
  // walk answers until the next update reads them again.
  if (!plan.sql.empty() && UsesPluginField(rule_set) &&
      db.Meta(kPluginSignatureMeta) != InstalledPluginSignature()) {
    plan = PlannedQuery{};
    report->sql.clear();
    report->filter_mode = 0;
    job.query = {};
  }
  job.filter_mode = plan.filter_mode;
  if (plan.sql.empty()) {
    // Rules the index cannot express are answered by a walk, which a drive that is not
    // mounted cannot have: every row of the catalogue below the root is tested instead.
    if (!offline_root) return false;
    CatalogueRowsQuery(query_root, job.options.search_subfolders, &job.query);
    job.filter_mode = 1;
    report->sql = job.query.sql;
    report->filter_mode = 1;
  }
  job.partial_rows = plan.contents;
  *contents = plan.contents;
  if (job.filter_mode != 0 || plan.contents) job.rule_set = rule_set.Copy();
  return true;
}

}  // namespace

int64_t SqliteIndexRoute::RunIndexQuery(rules::RuleSet& rule_set, const std::string& root,
                                        const IndexQueryOptions& options, ResultSink& sink, std::stop_token stop) {
  IndexQueryReport report;
  auto record = [&](int64_t n) {
    std::lock_guard<std::mutex> lock(mutex_);
    report_ = report;
    return n;
  };
  if (!Connect(&report.error)) return record(0);
  // One read transaction for the whole search: its parts (the catalogues, the query, the
  // items left out, the unread count) see the same index while an indexer writes, and the
  // log's read lock is taken once rather than once per statement. Ended when no worker that
  // outlived its wait still uses the connection (that one ends with its worker).
  std::shared_ptr<IndexDatabase> snapshot = connection_;
  const bool began = sqlite3_get_autocommit(snapshot->db()) != 0 && snapshot->Exec("BEGIN");
  struct EndSnapshot {
    const std::shared_ptr<IndexDatabase>& db;
    bool began;
    ~EndSnapshot() {
      if (began && db.use_count() == 2) db->Exec("COMMIT");
    }
  } end_snapshot{snapshot, began};
  // A root given with a trailing "/" is the same folder.
  std::string top = root;
  while (top.size() > 1 && top.back() == '/') top.pop_back();

  // The drives of this search that are not mounted: their rows are answered from the
  // catalogue, and how old it is is said once. Those whose place another drive holds now
  // wait at their parked places, and are asked there after the drive that is mounted.
  std::vector<std::string> offline;
  std::vector<std::pair<std::string, std::string>> parked;  // parked place, mount point
  std::vector<std::pair<std::string, std::string>> parked_here;
  VolumeCatalogues catalogues(connection_->db());
  if (!catalogues.list().empty()) CheckCatalogues(catalogues);
  const int64_t now =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
  // A parked place as the root (search --offline, while another drive holds the catalogue's
  // mount point): that catalogue alone answers, never the drive mounted there now.
  const bool parked_root = IsParkedPlace(top);
  for (const Catalogue& c : catalogues.list()) {
    if (c.parked) parked.emplace_back(ParkedPlace(c.identity), c.mount_point);
    if (c.online || c.mount_point == "/") continue;
    if (!c.parked) offline.push_back(c.mount_point);
    if (parked_root ? !c.parked || !IsAtOrBelow(top, parked.back().first)
                    : !IsAtOrBelow(top, c.mount_point) && !IsAtOrBelow(c.mount_point, top))
      continue;
    if (c.parked) parked_here.push_back(parked.back());
    const std::string age = ", last seen " + CatalogueAge(c.seen, now) + " ago";
    if (c.displaced) {
      sink.Notice(c.mount_point + " holds another drive now: the results of " + c.identity +
                  " there come from the index's catalogue" + age);
    } else {
      sink.Notice(c.mount_point + " is not mounted: its results come from the index's catalogue of " + c.identity +
                  age);
    }
  }
  auto new_job = [&] {
    auto job = std::make_shared<IndexQueryJob>();
    job->db = connection_;
    job->root = top;
    job->options = options;
    job->offline = offline;
    job->parked = parked;
    return job;
  };

  bool root_offline = parked_root;
  for (const std::string& place : offline) root_offline |= IsAtOrBelow(top, place);
  bool cancelled = false;
  int64_t accepted = 0;
  if (!parked_root) {
    auto job = new_job();
    bool contents = false;
    // What the index cannot answer for the drive that is mounted, the walk does; the parked
    // catalogues wait for a question the index can answer.
    if (!PlanJob(rule_set, top, root_offline, tokenizer_, *connection_, *job, &report, &contents)) return record(0);
    accepted = RunJob(job, sink, stop, &cancelled);
    {
      std::lock_guard<std::mutex> lock(job->mutex);
      report.error = job->error;
      report.rows = job->rows;
      report.offline = job->offline_rows;
    }
    if (!cancelled && !stop.stop_requested() && report.error.empty() && !root_offline) {
      accepted += WalkExcluded(*connection_, rule_set, top, options, sink, stop, &report.walked);
      if (contents) CountUnreadRows(*connection_, top, options);
    }
  }
  // The catalogues parked below the root (or holding it): the same rules at their parked
  // places; their rows come back under the mount point, offline. The whole computer's query
  // ("/") has had them already.
  for (const auto& [place, mount_point] : parked_here) {
    if (cancelled || stop.stop_requested() || top == "/") break;
    if (!options.search_subfolders && !IsAtOrBelow(top, mount_point) && !parked_root) continue;
    const std::string query_root = parked_root                   ? top
                                   : IsAtOrBelow(top, mount_point) ? place + top.substr(mount_point.size())
                                                                   : place;
    auto away = new_job();
    away->parked_only = true;
    // Hidden steps and the scope of partial rows are judged where the rows are shown.
    if (parked_root) away->root = FromParkedPlace(top, place, mount_point);
    IndexQueryReport part;
    bool unused = false;
    if (!PlanJob(rule_set, query_root, true, tokenizer_, *connection_, *away, &part, &unused)) continue;
    accepted += RunJob(away, sink, stop, &cancelled);
    std::lock_guard<std::mutex> lock(away->mutex);
    report.rows += away->rows;
    report.offline += away->offline_rows;
    if (report.error.empty()) report.error = away->error;
  }
  report.accepted = accepted;
  return record(accepted);
}

}  // namespace trovix::engine::index
