#include "index/postgres/pg_index_route.h"

#include <chrono>

#include "index/dialect/sql_parser.h"
#include "index/index_route.h"
#include "index/postgres/pg_connection.h"
#include "index/postgres/pg_schema.h"
#include "index/postgres/pg_translation.h"
#include "engine/extraction/contents_reader.h"
#include "props/catalogue.h"
#include "rules/item_value_provider.h"

namespace trovix::engine::index {
namespace {

// The item columns of a row, in the order selected, that go into an item's value cache.
constexpr const char* kRowProperties[] = {"System.Size", "System.DateModified", "System.DateCreated",
                                          "System.FileAttributes", "System.FileExtension", "System.Kind",
                                          "System.MIMEType"};
constexpr int kFirstValueColumn = 2;
constexpr const char* kRowSelect =
    "SELECT folder, name, size, modified, created, attributes, extension, kind, mime FROM items WHERE ";

std::string Bytes(const PGresult* r, int row, int column) { return PgBytesOf(r, row, column); }

// A value of the row as the property's type says.
props::PropValue FromText(const char* text, uint16_t vartype) {
  if (vartype == (props::VT_VECTOR | props::VT_LPWSTR)) {
    std::vector<std::string> parts;
    std::string_view rest = text;
    while (true) {
      const size_t end = rest.find("; ");
      parts.emplace_back(rest.substr(0, end));
      if (end == std::string_view::npos) break;
      rest.remove_prefix(end + 2);
    }
    return props::PropValue::TextVector(std::move(parts));
  }
  switch (vartype & props::kVarTypeMask) {
    case props::VT_LPWSTR:
    case props::VT_BSTR:
    case props::VT_LPSTR: return props::PropValue::Text(text);
    case props::VT_FILETIME: return props::PropValue::FileTime(std::strtoll(text, nullptr, 10));
    case props::VT_UI8: return props::PropValue::UInt64(std::strtoull(text, nullptr, 10));
    case props::VT_I8: return props::PropValue::Int64(std::strtoll(text, nullptr, 10));
    case props::VT_UI4: return props::PropValue::UInt32(static_cast<uint32_t>(std::strtoull(text, nullptr, 10)));
    default: return props::PropValue::Int32(static_cast<int32_t>(std::strtol(text, nullptr, 10)));
  }
}

void FillCache(props::ShellItem& item, const PGresult* r, int row) {
  static const std::vector<const props::PropertyInfo*> columns = [] {
    std::vector<const props::PropertyInfo*> infos;
    for (const char* name : kRowProperties) infos.push_back(props::DefaultCatalogue().FindProperty(name));
    return infos;
  }();
  for (int i = 0; i < static_cast<int>(columns.size()); ++i) {
    const props::PropertyInfo* info = columns[static_cast<size_t>(i)];
    const int column = kFirstValueColumn + i;
    if (info == nullptr) continue;
    item.AddCached(info->hash, PQgetisnull(r, row, column) ? props::PropValue()
                                                            : FromText(PQgetvalue(r, row, column), info->var_type()));
  }
}

}  // namespace

PgIndexRoute::PgIndexRoute(IndexServer server) : server_(std::move(server)) {}
PgIndexRoute::~PgIndexRoute() = default;

bool PgIndexRoute::IsInScope(const std::string& root) {
  ServerPlace place;
  return PlaceOnServer(server_, root, &place);
}

PgQueryReport PgIndexRoute::last_report() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return report_;
}

int64_t PgIndexRoute::RunIndexQuery(rules::RuleSet& rule_set, const std::string& root,
                                    const IndexQueryOptions& options, ResultSink& sink, std::stop_token stop) {
  PgQueryReport report;
  report.server = server_.name;
  auto record = [&](int64_t n) {
    std::lock_guard<std::mutex> lock(mutex_);
    report_ = report;
    return n;
  };
  ServerPlace place;
  if (!PlaceOnServer(server_, root, &place)) return record(0);
  // A server's index keeps the plugin values of the plugins its own indexer ran, which this
  // machine cannot know: rules on plugin fields are answered by the walk.
  if (UsesPluginField(rule_set)) return record(0);
  const PlannedQuery plan = PlanIndexQuery(rule_set, place.server_path, options.search_subfolders);
  if (plan.sql.empty()) return record(0);
  // The machine prefix sends the query to the server's own index.
  report.sql = plan.sql;
  const size_t table = report.sql.find(" FROM SystemIndex");
  if (table != std::string::npos) report.sql.insert(table + 6, server_.name + ".");
  report.filter_mode = plan.filter_mode;

  // Said once, and the search walks instead.
  auto unanswered = [&](const std::string& why) {
    report.error = why;
    sink.Notice("the index of " + server_.name + " did not answer (" + why +
                "): searching by walking the folders (robust search)");
    return record(0);
  };
  SqlStatement statement;
  PgQuery query;
  std::string error;
  if (!ParseSql(report.sql, &statement, &error) ||
      !TranslateToPostgres(statement, PgTranslateOptions{server_.name}, &query, &error)) {
    report.error = error;
    return record(0);
  }
  const auto timeout = std::chrono::milliseconds(server_.timeout_ms);
  // Stopped: the search ends without rows and without a walk, which is no failure to report.
  auto stopped = [&] {
    report.error = PgConnection::kStopped;
    return record(0);
  };
  if (!connection_ || !connection_->ok()) {
    connection_ = PgConnection::Open(server_.conninfo, timeout, &error, stop);
    if (!connection_) return stop.stop_requested() ? stopped() : unanswered(error);
    // A statement the client gave up on ends on the server too.
    if (!connection_->Exec("SET statement_timeout = " + std::to_string(server_.timeout_ms + 1000), &error))
      return unanswered(error);
    const int version = PgSchemaVersion(*connection_, &error);
    if (version != kPgSchemaVersion) {
      connection_.reset();
      return unanswered(version < 0 ? error
                                    : "its index has layout " + std::to_string(version) + ", this program reads " +
                                          std::to_string(kPgSchemaVersion));
    }
  }
  PgResult rows = connection_->Query(kRowSelect + query.where, query.params, &error, timeout, stop);
  if (!rows) {
    if (!connection_->ok()) connection_.reset();
    return stop.stop_requested() ? stopped() : unanswered(error);
  }
  const PGresult* r = rows.get();
  report.rows = PQntuples(r);

  std::unique_ptr<rules::RuleSet> retest;
  rules::ItemValueProvider provider;
  ContentsReader contents{ContentsOptions{}};
  if (plan.filter_mode != 0) {
    retest = rule_set.Copy();
    provider.set_contents_source(&contents);
    retest->set_value_provider(&provider);
  }
  std::string local_root = root;
  while (local_root.size() > 1 && local_root.back() == '/') local_root.pop_back();
  // Items of a mounted share can be asked of the disk; "//NAME" paths only through the server.
  const bool on_disk = !place.remote_prefix.empty();
  int64_t accepted = 0;
  for (int i = 0; i < report.rows && !stop.stop_requested(); ++i) {
    const std::string folder = Bytes(r, i, 0);
    const std::string name = Bytes(r, i, 1);
    const std::string path = LocalPath(place, folder == "/" ? "/" + name : folder + "/" + name);
    if (options.hidden_mode == 0 && HiddenBelow(path, local_root)) continue;
    auto item = props::ShellItem::FromPath(path);
    FillCache(*item, r, i);
    // The index may lag behind the disk by a moment: an item that is gone is no result.
    if (on_disk && item->Status() == nullptr) continue;
    if (retest) {
      provider.set_item(item);
      const bool matched = retest->Evaluate();
      provider.set_item(nullptr);
      if (!matched) continue;
    }
    if (sink.AddResult(item) == 0) ++accepted;
  }
  if (retest) retest->set_value_provider(nullptr);
  report.accepted = accepted;
  return record(accepted);
}

SharedIndexRoutes::SharedIndexRoutes(IndexRoute& local, const std::string& conf_path) : local_(local) {
  const std::string path = conf_path.empty() ? DefaultIndexesConfPath() : conf_path;
  if (path.empty()) return;
  for (IndexServer& s : ReadIndexesConf(path, &problems_)) servers_.push_back(std::make_unique<PgIndexRoute>(std::move(s)));
}

bool SharedIndexRoutes::ServiceAvailable() { return !servers_.empty() || local_.ServiceAvailable(); }

PgIndexRoute* SharedIndexRoutes::ServerFor(const std::string& root) {
  for (auto& s : servers_)
    if (s->IsInScope(root)) return s.get();
  return nullptr;
}

bool SharedIndexRoutes::IsInScope(const std::string& root) {
  return ServerFor(root) != nullptr || (local_.ServiceAvailable() && local_.IsInScope(root));
}

int64_t SharedIndexRoutes::RunIndexQuery(rules::RuleSet& rule_set, const std::string& root,
                                         const IndexQueryOptions& options, ResultSink& sink, std::stop_token stop) {
  PgIndexRoute* server = ServerFor(root);
  {
    std::lock_guard<std::mutex> lock(mutex_);
    last_server_ = server ? server->server().name : std::string();
  }
  if (server == nullptr) return local_.RunIndexQuery(rule_set, root, options, sink, stop);
  sink.SetStatus("searching the index of " + server->server().name + "...");
  return server->RunIndexQuery(rule_set, root, options, sink, stop);
}

std::string SharedIndexRoutes::last_server() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return last_server_;
}

}  // namespace trovix::engine::index
