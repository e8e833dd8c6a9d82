#include "index/index_route.h"

#include <sqlite3.h>

#include <chrono>
#include <condition_variable>
#include <optional>
#include <thread>

#include "engine/extraction/contents_reader.h"
#include "engine/walk/folder_enumerator.h"
#include "index/sqlite/index_database.h"
#include "index/dialect/index_query_text.h"
#include "index/sqlite/index_translation.h"
#include "index/indexer.h"
#include "index/sqlite/sqlite_functions.h"
#include "platform/sqlite_statement.h"
#include "props/catalogue.h"
#include "rules/compare_flags.h"
#include "rules/item_value_provider.h"
#include "rules/query/query_builder.h"
#include "rules/matchers/text_matcher.h"

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

// A step below the root that begins with "." is hidden: the walk neither returns nor enters it.
bool HiddenBelow(const std::string& path, const std::string& root) {
  size_t pos = root == "/" ? 0 : root.size();
  while ((pos = path.find('/', pos)) != std::string::npos) {
    if (pos + 1 < path.size() && path[pos + 1] == '.') return true;
    ++pos;
  }
  return false;
}

// The columns of items that go into an item's value cache, in the order selected.
constexpr const char* kRowColumns[] = {"System.Size", "System.DateModified", "System.DateCreated",
                                       "System.FileAttributes", "System.FileExtension", "System.Kind",
                                       "System.MIMEType"};
constexpr int kFirstValueColumn = 4;
constexpr int kStateColumn = kFirstValueColumn + static_cast<int>(std::size(kRowColumns));

// One query's shared state: the search thread and the worker both hold it, so a worker that
// outlives the 7,000 ms wait still has everything it touches.
struct IndexQueryJob {
  std::shared_ptr<IndexDatabase> db;  // a connection of its own while the worker runs
  SqliteQuery query;
  std::string root;
  IndexQueryOptions options;
  int filter_mode = 0;
  std::unique_ptr<rules::RuleSet> rule_set;  // the worker's own copy, for re-tests

  std::atomic<bool> cancel{false};
  sqlite3* connection = nullptr;  // while the worker's statement runs; guarded by mutex
  std::mutex mutex;
  std::condition_variable changed;
  std::optional<props::ShellItemPtr> row;  // the row handed over, until the search takes it
  bool done = false;
  // Mirrors of `row` and `done` that may be read without the lock: each side looks at them
  // for a moment before it sleeps, which spares two thread switches per row when the other
  // side is about to hand over.
  std::atomic<bool> slot_full{false};
  std::atomic<bool> finished{false};
  std::string error;
  int64_t rows = 0;
};

// Where a quick re-test (filter mode 2) reads an item's text: the copy the index keeps, so that
// no document is opened again. The copy is folded, which is what a rule that ignores case
// compares anyway; rows whose text was not read yet (and rules that tell case apart) go to
// the file's own reader.
class IndexedTextSource final : public props::ContentsSource {
 public:
  IndexedTextSource(sqlite3* db, props::ContentsSource& fallback)
      : text_(db, "SELECT text FROM contents WHERE rowid=?"), fallback_(fallback) {}

  // The row the next Read is about, and whether the index has read its text.
  void SetRow(int64_t id, bool read) {
    id_ = id;
    read_ = read;
  }

  props::ContentsResult Read(props::ShellItem& item, const props::TextPieceSink& on_text) override {
    if (!read_) return fallback_.Read(item, on_text);
    text_.Bind(1, id_);
    props::ContentsResult result;
    if (text_.Step() == SQLITE_ROW) {
      result.status = props::ContentsStatus::kText;
      on_text(text_.Text(0));
    } else {
      result.status = props::ContentsStatus::kNoText;
    }
    text_.Reset();
    return result;
  }

 private:
  Statement text_;
  props::ContentsSource& fallback_;
  int64_t id_ = 0;
  bool read_ = false;
};

// Whether every contents rule of the set ignores case (then the index's folded text serves).
bool ContentsRulesIgnoreCase(const rules::RuleSet& set) {
  for (const auto& rule : set.rules())
    if (rule->IsContents() && !(rule->Flags() & 0x1)) return false;
  return true;
}

// Yields the processor while `busy` holds, for a few microseconds at most.
template <typename Busy>
void SpinWhile(Busy busy) {
  for (int i = 0; i < 64 && busy(); ++i) std::this_thread::yield();
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

void RunWorker(const std::shared_ptr<IndexQueryJob>& job) {
  auto finish = [&](std::string error) {
    std::lock_guard<std::mutex> lock(job->mutex);
    if (job->error.empty()) job->error = std::move(error);
    job->done = true;
    job->finished.store(true);
    job->changed.notify_all();
  };
  std::shared_ptr<IndexDatabase> db = job->db;
  if (!db) return finish("the index cannot be read");
  {
    std::lock_guard<std::mutex> lock(job->mutex);
    job->connection = db->db();
  }
  const std::string sql = "SELECT i.id, f.path, i.name, i.is_folder, i.size, i.modified, i.created, i.attributes, i.extension, "
        "i.kind, i.mime, i.state FROM items i JOIN folders f ON f.id=i.parent WHERE i.id IN (" +
        job->query.sql + ")";
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
    const std::string path = JoinPath(std::string(rows.Text(1)), rows.Text(2));
    if (job->options.hidden_mode == 0 && HiddenBelow(path, job->root)) continue;
    auto item = props::ShellItem::FromPath(path);
    FillCache(*item, rows, props_of, rows.Int(0));
    indexed_text.SetRow(rows.Int(0), rows.Int(kStateColumn) != 0);
    // The index may lag behind the disk by a moment: an item that is gone is no result.
    if (item->Status() == nullptr) continue;
    if (job->filter_mode != 0) {
      provider.set_item(item);
      bool matched = job->rule_set->Evaluate();
      provider.set_item(nullptr);
      if (!matched) continue;
    }
    // UM_INDEX_ROW: one row in the hand-over slot at a time. The worker prepares the next
    // row while the search takes this one, and waits when the slot is still full, so it is
    // never more than one row ahead of the results.
    SpinWhile([&] { return job->slot_full.load() && !job->cancel.load(); });
    std::unique_lock<std::mutex> lock(job->mutex);
    job->changed.wait(lock, [&] { return !job->row.has_value() || job->cancel.load(); });
    if (job->cancel.load()) break;
    job->row = std::move(item);
    job->slot_full.store(true);
    job->changed.notify_all();
  }
  if (job->rule_set) job->rule_set->set_value_provider(nullptr);
  release();
  const bool failed = !job->cancel.load() && rc != SQLITE_DONE && rc != SQLITE_ROW;
  finish(failed ? "the index failed: " + db->LastError() : std::string());
}

}  // namespace

PlannedQuery PlanIndexQuery(const rules::RuleSet& rule_set, const std::string& root, bool search_subfolders) {
  PlannedQuery plan;
  const rules::BuildResult where = rules::BuildWhere(rule_set);
  if (where.text.empty()) return plan;
  const std::string select = IndexScopeText(root, search_subfolders, "Path");
  if (select.empty()) return plan;
  plan.sql = InsertWhere(select, where.text);
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
    auto db = IndexDatabase::Open(path_, IndexDatabase::Access::kRead, &error);
    available_ = db != nullptr;
    if (db) {
      Indexer indexer(*db);
      for (const auto& e : indexer.Scope()) (e.include ? roots_ : exclusions_).push_back(e.path);
      tokenizer_ = TokenizerFromMeta(db->Meta("contents_tokenizer", "trigram"));
    }
  }
  return available_ == 1;
}

bool SqliteIndexRoute::IsInScope(const std::string& root) {
  return ServiceAvailable() && PathInScope(root, roots_, exclusions_);
}

IndexQueryReport SqliteIndexRoute::last_report() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return report_;
}

int64_t SqliteIndexRoute::RunIndexQuery(rules::RuleSet& rule_set, const std::string& root,
                                        const IndexQueryOptions& options, ResultSink& sink, std::stop_token stop) {
  IndexQueryReport report;
  const PlannedQuery plan = PlanIndexQuery(rule_set, root, options.search_subfolders);
  report.sql = plan.sql;
  report.filter_mode = plan.filter_mode;
  auto record = [&](int64_t n) {
    std::lock_guard<std::mutex> lock(mutex_);
    report_ = report;
    return n;
  };
  if (plan.sql.empty()) return record(0);

  auto job = std::make_shared<IndexQueryJob>();
  if (!TranslateIndexSql(plan.sql, tokenizer_, &job->query, &report.error)) return record(0);
  // The route keeps one connection for its queries; a worker that outlived its wait still
  // holds the last one, and then the next query gets a new one.
  if (!connection_ || connection_.use_count() > 1) {
    std::string error;
    connection_ = IndexDatabase::Open(path_, IndexDatabase::Access::kRead, &error);
    if (!connection_) {
      report.error = error;
      return record(0);
    }
    RegisterIndexFunctions(connection_->db());
  }
  job->db = connection_;
  job->root = root;
  job->options = options;
  job->filter_mode = plan.filter_mode;
  if (plan.filter_mode != 0) job->rule_set = rule_set.Copy();

  std::thread worker([job] { RunWorker(job); });
  int64_t accepted = 0;
  bool cancelled = false;
  {
    std::unique_lock<std::mutex> lock(job->mutex);
    while (true) {
      if (!job->row.has_value() && !job->done) {
        lock.unlock();
        SpinWhile([&] { return !job->slot_full.load() && !job->finished.load() && !stop.stop_requested(); });
        lock.lock();
      }
      job->changed.wait_for(lock, 50ms, [&] { return job->row.has_value() || job->done || stop.stop_requested(); });
      if (stop.stop_requested()) {
        cancelled = true;
        break;
      }
      if (job->row.has_value()) {
        props::ShellItemPtr item = std::move(*job->row);
        job->row.reset();
        job->slot_full.store(false);
        job->changed.notify_all();
        lock.unlock();
        if (sink.AddResult(item) == 0) ++accepted;
        lock.lock();
        continue;
      }
      if (job->done) break;
    }
  }
  if (cancelled) {
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
  {
    std::lock_guard<std::mutex> lock(job->mutex);
    report.error = job->error;
    report.rows = job->rows;
  }
  report.accepted = accepted;
  return record(accepted);
}

}  // namespace trovix::engine::index
