#include "cli/commands/index_command.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <optional>
#include <stop_token>

#include "cli/cli_store.h"
#include "cli/commands/command_table.h"
#include "cli/options/number_option.h"
#include "cli/output/json_text.h"
#include "index/sqlite/index_database.h"
#include "index/sqlite/index_schema.h"
#include "index/index_watch.h"
#include "index/indexer.h"
#include "index/volume_catalogue.h"
#include "platform/mount_table.h"
#include "index/indexer_state.h"
#include "index/indexer_throttle.h"
#include "platform/process_priority.h"
#include "index/postgres/indexes_conf.h"
#include "index/postgres/pg_index_store.h"
#include "index/sqlite_index_store.h"
#include "platform/sqlite_statement.h"
#include "platform/stop_signals.h"
#include "engine/extraction/own_properties.h"
#include "engine/results/result_sink.h"
#include "engine/walk/folder_walk.h"

namespace trovix::cli {
namespace {

namespace ix = engine::index;

std::string& IndexSwitch() {
  static std::string path;
  return path;
}

int Fail(const std::string& message) {
  std::fprintf(stderr, "trovix-cli: %s\n", message.c_str());
  return 2;
}

// Ctrl+C and a service manager's stop end an update or a watch between two items, with what
// was written kept (on a server, a statement under way ends at once and its batch is undone).
std::stop_source& Interrupt() {
  static std::stop_source source;
  return source;
}

// The exit status of a command that Ctrl+C stopped, as a search's.
constexpr int kInterrupted = 130;

// Says on stderr that Ctrl+C stopped the command on `where` and what became of its work.
int Interrupted(const std::string& where, const std::string& outcome) {
  std::fprintf(stderr, "trovix-cli: %s: interrupted; %s\n", where.c_str(), outcome.c_str());
  return kInterrupted;
}

// For a change of a server's index that one long statement makes: Ctrl+C ends the statement
// on the server too, and the change is undone. (A local index's change is one transaction,
// which a killed process leaves undone: it keeps the default Ctrl+C.)
class ServerStatementStop {
 public:
  ServerStatementStop(ix::IndexStore& store, bool server) : store_(store) {
    if (server) signals_.emplace(Interrupt(), false);
    store_.StopWith(Interrupt().get_token());
  }
  ~ServerStatementStop() { store_.StopWith({}); }
  ServerStatementStop(const ServerStatementStop&) = delete;
  ServerStatementStop& operator=(const ServerStatementStop&) = delete;

 private:
  ix::IndexStore& store_;
  std::optional<platform::StopSignals> signals_;
};

std::unique_ptr<ix::IndexDatabase> OpenForWriting(std::string* error) {
  std::string notice;
  auto db = ix::IndexDatabase::Open(IndexPathInEffect(), ix::IndexDatabase::Access::kWrite, error, &notice);
  if (!notice.empty()) std::fprintf(stderr, "trovix-cli: %s\n", notice.c_str());
  return db;
}

std::unique_ptr<ix::WriterLock> TakeLock(std::string* error) {
  int64_t holder = 0;
  auto lock = ix::WriterLock::TryAcquire(IndexPathInEffect(), &holder);
  if (!lock)
    *error = "another indexer is writing the index" +
             (holder > 0 ? " (process " + std::to_string(holder) + ", perhaps a running watch)" : std::string()) +
             "; try again when it has finished";
  return lock;
}

// Takes "--server NAME" out of `args`: *server gets NAME (empty without the option). False
// when the option has no name.
bool TakeServer(std::vector<std::string>* args, std::string* server) {
  server->clear();
  for (size_t i = 0; i < args->size(); ++i) {
    if ((*args)[i] != "--server") continue;
    if (i + 1 >= args->size()) return false;
    *server = (*args)[i + 1];
    args->erase(args->begin() + static_cast<std::ptrdiff_t>(i), args->begin() + static_cast<std::ptrdiff_t>(i) + 2);
    return true;
  }
  return true;
}

// Opens the shared index that indexes.conf names `name`, for the file server's own indexer to
// write into: its clients search it.
std::unique_ptr<ix::PgIndexStore> OpenServerIndex(const std::string& name, std::string* error) {
  std::vector<std::string> problems;
  const std::vector<ix::IndexServer> servers = ix::ReadIndexesConf(ix::DefaultIndexesConfPath(), &problems);
  for (const std::string& p : problems) std::fprintf(stderr, "trovix-cli: %s\n", p.c_str());
  const auto server = std::find_if(servers.begin(), servers.end(), [&](const ix::IndexServer& s) { return s.name == name; });
  if (server == servers.end()) {
    *error = "indexes.conf (" + ix::DefaultIndexesConfPath() + ") names no server " + name;
    return nullptr;
  }
  // Writing may wait for locks and builds: a longer wait than a search's.
  auto store = ix::PgIndexStore::Open(server->conninfo, std::chrono::seconds(30), error);
  if (!store) *error = "the index of " + name + ": " + *error;
  return store;
}

std::string Ago(int64_t when) {
  if (when <= 0) return "never";
  int64_t seconds = static_cast<int64_t>(std::time(nullptr)) - when;
  char stamp[64];
  std::time_t t = static_cast<std::time_t>(when);
  std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", std::localtime(&t));
  std::string ago = seconds < 120 ? std::to_string(seconds) + " s ago"
                    : seconds < 7200 ? std::to_string(seconds / 60) + " min ago"
                    : seconds < 172800 ? std::to_string(seconds / 3600) + " h ago"
                                       : std::to_string(seconds / 86400) + " days ago";
  return std::string(stamp) + " (" + ago + ")";
}

int64_t FileSize(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? static_cast<int64_t>(st.st_size) : 0;
}

int64_t Count(ix::IndexDatabase& db, const char* sql) {
  platform::Statement s(db.db(), sql);
  return s.Step() == SQLITE_ROW ? s.Int(0) : 0;
}

// The catalogues of the file systems the index has seen, online or not: one line each, or a
// JSON array appended to *json_out.
void ListCatalogues(ix::IndexDatabase& db, std::string* json_out) {
  ix::VolumeCatalogues catalogues(db.db());
  catalogues.Check(platform::ReadMountTable());
  if (json_out != nullptr) *json_out += ",\"catalogues\":[";
  bool first = true;
  for (const ix::Catalogue& c : catalogues.list()) {
    const int64_t items = ix::CatalogueItemCount(db.db(), c.id);
    const char* state = c.online ? "online" : c.moved_to.empty() ? "offline" : "moved";
    if (json_out == nullptr) {
      std::printf("catalogue:   %s %s at %s, %lld items, %s, seen %s", c.identity.c_str(), c.fs_type.c_str(),
                  c.mount_point.c_str(), static_cast<long long>(items), state, Ago(c.seen).c_str());
      if (!c.moved_to.empty()) std::printf(" (mounted at %s now: the next update follows it)", c.moved_to.c_str());
      std::printf("\n");
      continue;
    }
    std::string& out = *json_out;
    out += first ? "{\"identity\":" : ",{\"identity\":";
    first = false;
    AppendJsonString(out, c.identity);
    out += ",\"fs_type\":";
    AppendJsonString(out, c.fs_type);
    out += ",\"mount_point\":";
    AppendJsonString(out, c.mount_point);
    out += ",\"items\":" + std::to_string(items) + ",\"online\":" + (c.online ? "true" : "false") + ",\"seen\":";
    if (c.seen > 0) AppendJsonDate(out, base::FileTimeFromUnix(c.seen, 0));
    else out += "null";
    out += "}";
  }
  if (json_out != nullptr) *json_out += "]";
}

// What the indexer does now, how far behind it is, what it cannot follow and what it cost today.
void PrintIndexerState() {
  for (const std::string& line : ix::IndexerStateLines(IndexPathInEffect(), std::time(nullptr)))
    std::printf("%s\n", line.c_str());
}

// The same as a JSON member: ,"indexer":{...}.
void AppendIndexerStateJson(std::string& out) {
  const std::string db_path = IndexPathInEffect();
  const std::optional<ix::IndexerState> state = ix::ReadIndexerState(db_path);
  const bool running = state && ix::IndexerRunning(*state);
  const int64_t now = std::time(nullptr);
  out += ",\"indexer\":{\"running\":";
  out += running ? "true" : "false";
  out += ",\"paused_by_user\":";
  out += ix::IndexPausedByUser(db_path) ? "true" : "false";
  if (running) {
    out += ",\"pid\":" + std::to_string(state->pid) + ",\"mode\":";
    AppendJsonString(out, state->watching ? "watch" : "update");
    out += ",\"activity\":";
    AppendJsonString(out, state->paused_why.empty() ? state->activity : "paused");
    if (!state->paused_why.empty()) {
      out += ",\"paused_why\":";
      AppendJsonString(out, state->paused_why);
    }
    out += ",\"behind_seconds\":" +
           std::to_string(state->oldest_unwritten > 0 ? std::max<int64_t>(now - state->oldest_unwritten, 0) : 0);
    out += ",\"unwatched_count\":" + std::to_string(state->unwatched_count) + ",\"unwatched\":[";
    for (size_t i = 0; i < state->unwatched.size(); ++i) {
      if (i > 0) out += ",";
      AppendJsonString(out, state->unwatched[i]);
    }
    out += "],\"no_events\":[";
    for (size_t i = 0; i < state->no_events.size(); ++i) {
      out += i > 0 ? ",{\"folder\":" : "{\"folder\":";
      AppendJsonString(out, state->no_events[i].first);
      out += ",\"kind\":";
      AppendJsonString(out, state->no_events[i].second);
      out += "}";
    }
    out += "]";
  }
  char cpu[48];
  std::snprintf(cpu, sizeof cpu, "%.3f",
                state && state->cpu_day == ix::LocalDay(now) ? state->cpu_seconds_today : 0.0);
  out += ",\"cpu_seconds_today\":" + std::string(cpu) + "}";
}

int Status(bool json) {
  std::string error;
  auto db = ix::IndexDatabase::Open(IndexPathInEffect(), ix::IndexDatabase::Access::kRead, &error);
  if (!db) return Fail(error);
  ix::Indexer indexer(*db);
  const int64_t items = Count(*db, "SELECT count(*) FROM items WHERE parent<>0");
  const int64_t folders = Count(*db, "SELECT count(*) FROM folders");
  const int64_t pending = Count(*db, "SELECT count(*) FROM items WHERE state=0");
  const int64_t with_text = Count(*db, ("SELECT count(*) FROM texts WHERE (id & " + std::to_string(ix::kMaxTextPieces - 1) + ") = 0").c_str());
  const int64_t finished = std::atoll(db->Meta("update_finished", "0").c_str());
  const int64_t size = FileSize(db->path()) + FileSize(db->path() + "-wal");
  const std::string tokenizer = db->Meta("contents_tokenizer", "trigram");
  if (json) {
    std::string out = "{\"database\":";
    AppendJsonString(out, db->path());
    out += ",\"items\":" + std::to_string(items) + ",\"folders\":" + std::to_string(folders) +
           ",\"pending\":" + std::to_string(pending) + ",\"with_text\":" + std::to_string(with_text) +
           ",\"bytes\":" + std::to_string(size) + ",\"updated\":";
    // Never updated: null, as a value a property does not have.
    if (finished > 0) AppendJsonDate(out, base::FileTimeFromUnix(finished, 0));
    else out += "null";
    const std::vector<ix::ScopeEntry> scope = indexer.Scope();
    for (bool include : {true, false}) {
      out += include ? ",\"roots\":[" : "],\"exclusions\":[";
      bool first = true;
      for (const auto& e : scope) {
        if (e.include != include) continue;
        if (!first) out += ",";
        first = false;
        AppendJsonString(out, e.path);
      }
    }
    out += "],\"contents_tokenizer\":";
    AppendJsonString(out, tokenizer);
    ListCatalogues(*db, &out);
    AppendIndexerStateJson(out);
    out += "}\n";
    std::fputs(out.c_str(), stdout);
    return 0;
  }
  std::printf("database:    %s (%.1f MB)\n", db->path().c_str(), static_cast<double>(size) / 1e6);
  std::printf("items:       %lld in %lld folders, %lld with text", static_cast<long long>(items),
              static_cast<long long>(folders), static_cast<long long>(with_text));
  if (pending > 0) std::printf(", %lld still to read (trovix-cli index update)", static_cast<long long>(pending));
  std::printf("\nupdated:     %s\n", Ago(finished).c_str());
  for (const auto& e : indexer.Scope())
    if (e.include) std::printf("folder:      %s\n", e.path.c_str());
  for (const auto& e : indexer.Scope())
    if (!e.include) std::printf("excluded:    %s\n", e.path.c_str());
  ListCatalogues(*db, nullptr);
  PrintIndexerState();
  return 0;
}

void PrintProgress(const ix::UpdateProgress& p) {
  if (!isatty(STDERR_FILENO)) return;
  std::string line = std::string(p.phase) + ": " + std::to_string(p.stats->items) + " items, " +
                     std::to_string(p.stats->read) + " read  " + p.current;
  if (line.size() > 78) line = line.substr(0, 75) + "...";
  std::fprintf(stderr, "\r\033[K%s", line.c_str());
}

// What an update or a watch writes into, and holds while it does: the local index (its
// writer's lock, then the database), or with `server` that server's shared index (which
// holds its own lock); and the source of files' own properties (the extraction helpers) that
// the read phase asks.
struct Writer {
  std::unique_ptr<ix::WriterLock> lock;
  std::unique_ptr<ix::IndexDatabase> db;
  std::unique_ptr<ix::SqliteIndexStore> local;
  std::unique_ptr<ix::PgIndexStore> shared;
  std::string where;  // the index's name in messages

  // `locked` false: a change of scope, which needs no writer's lock on the local index.
  bool Open(const std::string& server, std::string* error, bool locked = true) {
    if (!server.empty()) {
      shared = OpenServerIndex(server, error);
      where = "the index of " + server;
    } else {
      if (locked && !(lock = TakeLock(error))) return false;
      db = OpenForWriting(error);
      if (db) local = std::make_unique<ix::SqliteIndexStore>(*db);
      where = "the index at " + IndexPathInEffect();
    }
    if (!local && !shared) return false;
    if (locked) engine::InstallOwnPropertySource();
    return true;
  }
  ix::IndexStore& store() { return shared ? static_cast<ix::IndexStore&>(*shared) : *local; }
};

// What an update or a watch may take of the machine: --budget PERCENT, --normal-priority.
struct Cost {
  double budget_percent = 0;
  bool normal_priority = false;
};

// Takes the cost options out of `args`; false with *error for a bad budget.
bool TakeCostOptions(std::vector<std::string>& args, Cost* cost, std::string* error) {
  for (size_t i = 0; i < args.size();) {
    if (args[i] == "--normal-priority") {
      cost->normal_priority = true;
      args.erase(args.begin() + static_cast<long>(i));
      continue;
    }
    std::string value;
    size_t used = 0;
    if (args[i] == "--budget") {
      if (i + 1 >= args.size()) return *error = "--budget needs a percentage (1 to 100)", false;
      value = args[i + 1];
      used = 2;
    } else if (args[i].rfind("--budget=", 0) == 0) {
      value = args[i].substr(9);
      used = 1;
    } else {
      ++i;
      continue;
    }
    if (!value.empty() && value.back() == '%') value.pop_back();
    char* end = nullptr;
    const double percent = std::strtod(value.c_str(), &end);
    if (value.empty() || end == value.c_str() || *end != '\0' || !(percent > 0 && percent <= 100))
      return *error = "--budget takes a percentage of one processor from 1 to 100, not \"" + value + "\"", false;
    cost->budget_percent = percent;
    args.erase(args.begin() + static_cast<long>(i), args.begin() + static_cast<long>(i + used));
  }
  return true;
}

// The time-out for folders on mounts that stop answering: the setting, or --answer-timeout MS
// (taken out of `args`). False with a message when the option's value is wrong.
bool TakeAnswerTimeout(std::vector<std::string>* args, std::chrono::milliseconds* timeout, std::string* error) {
  if (const auto& settings = LoadedSettings()) *timeout = std::chrono::milliseconds(settings->nAnswerTimeout);
  for (size_t i = 0; i < args->size(); ++i) {
    std::string value;
    if ((*args)[i].rfind("--answer-timeout=", 0) == 0) {
      value = (*args)[i].substr(17);
      args->erase(args->begin() + static_cast<std::ptrdiff_t>(i));
    } else if ((*args)[i] == "--answer-timeout") {
      if (i + 1 >= args->size()) return *error = "--answer-timeout needs a number of milliseconds", false;
      value = (*args)[i + 1];
      args->erase(args->begin() + static_cast<std::ptrdiff_t>(i), args->begin() + static_cast<std::ptrdiff_t>(i) + 2);
    } else {
      continue;
    }
    long long n = 0;
    if (!ParseNumberOption("--answer-timeout", value, 0, 3'600'000, &n, error)) return false;
    *timeout = std::chrono::milliseconds(n);
    --i;
  }
  return true;
}

// Idle CPU and disk priority unless asked otherwise, before the indexer starts its threads (they
// inherit it, and so do the extraction helpers it starts). A refusal is said and the work goes on.
void LowerPriority(const Cost& cost) {
  if (cost.normal_priority) return;
  if (std::string why; !platform::EnterBackgroundPriority(&why))
    std::fprintf(stderr, "trovix-cli: running at a priority above idle: %s\n", why.c_str());
}

// Names what was left behind, once each, and says how much.
void TellNotAnswering(const ix::UpdateStats& stats) {
  for (const auto& path : stats.not_answering)
    std::fprintf(stderr, "trovix-cli: %s\n", engine::NotAnsweringText(path).c_str());
  if (const size_t n = stats.not_answering.size(); n > 0)
    std::fprintf(stderr, "trovix-cli: %zu %s not read: not answering; their entries are kept as they were\n", n,
                 n == 1 ? "folder or file was" : "folders or files were");
}

int Update(std::vector<std::string> folders) {
  std::string error;
  Cost cost;
  if (!TakeCostOptions(folders, &cost, &error)) return Fail(error);
  std::string server;
  if (!TakeServer(&folders, &server)) return Fail("--server needs the name of a server in indexes.conf");
  const auto names_only = std::find(folders.begin(), folders.end(), "--names-only");
  const bool read = names_only == folders.end();
  if (!read) folders.erase(names_only);
  std::chrono::milliseconds answer_timeout = engine::kDefaultAnswerTimeout;
  if (std::string message; !TakeAnswerTimeout(&folders, &answer_timeout, &message)) return Fail(message);
  for (const auto& f : folders)
    if (f.size() > 1 && f[0] == '-') return Fail(UnknownOptionMessage(*FindCommand("index"), f));
  Writer writer;
  if (!writer.Open(server, &error)) return Fail(error);
  LowerPriority(cost);
  ix::Indexer indexer(writer.store());
  // An update asked for by hand runs even when indexing is paused or on battery: only the
  // budget holds it back.
  ix::ThrottleOptions throttle_options;
  throttle_options.db_path = IndexPathInEffect();
  throttle_options.budget_percent = cost.budget_percent;
  throttle_options.obey_user_pause = false;
  throttle_options.pause_on_battery = false;
  ix::IndexerThrottle throttle(throttle_options);
  indexer.set_throttle(&throttle);
  indexer.set_answer_timeout(answer_timeout);
  const std::vector<ix::ScopeEntry> scope = indexer.Scope();
  if (std::none_of(scope.begin(), scope.end(), [](const ix::ScopeEntry& e) { return e.include; }))
    return Fail("the index has no folders yet (trovix-cli index add FOLDER)");
  platform::StopSignals signals(Interrupt(), false);
  std::vector<std::string> moved;
  if (!indexer.FollowDrives(&moved)) return Fail("the index could not follow its drives: " + indexer.error());
  for (const auto& m : moved)
    std::fprintf(stderr, "trovix-cli: a drive is mounted at another place; its catalogue follows it: %s\n", m.c_str());
  ix::UpdateStats stats;
  bool ok = indexer.Update(folders, &stats, Interrupt().get_token(), PrintProgress, read);
  throttle.SetActivity("finished");
  throttle.Publish(true);
  if (isatty(STDERR_FILENO)) std::fprintf(stderr, "\r\033[K");
  for (const auto& e : stats.errors) std::fprintf(stderr, "trovix-cli: %s\n", e.c_str());
  TellNotAnswering(stats);
  if (stats.retries > 0)
    std::fprintf(stderr, "trovix-cli: the connection to %s was made anew %lld time(s)\n", server.c_str(),
                 static_cast<long long>(stats.retries));
  const bool interrupted = Interrupt().stop_requested();
  // A server's statement under way was ended with its batch: the index is as the last batch
  // before it left it.
  if (!ok && interrupted)
    return Interrupted(writer.where, "the batch under way was undone, and the next update goes on from there");
  if (!ok)
    return Fail(writer.where + " could not be brought up to date: " + indexer.error() +
                (server.empty() ? " (a full disk?)" : "") +
                "; it keeps what was written before, and the next update goes on from there");
  if (!server.empty()) std::printf("%s: ", server.c_str());
  std::printf("%lld items in %lld folders: %lld added, %lld changed, %lld removed, %lld read "
              "(walk %.2f s, read %.2f s)%s%s\n",
              static_cast<long long>(stats.items), static_cast<long long>(stats.folders),
              static_cast<long long>(stats.added), static_cast<long long>(stats.changed),
              static_cast<long long>(stats.removed), static_cast<long long>(stats.read),
              static_cast<double>(stats.walk_ms) / 1000, static_cast<double>(stats.read_ms) / 1000,
              writer.shared && writer.shared->first_build() ? " (first build)" : "",
              interrupted ? " (interrupted; the next update goes on from here)" : "");
  if (interrupted) return kInterrupted;
  return stats.errors.empty() && stats.not_answering.empty() ? 0 : 2;
}

int Watch(std::vector<std::string> args) {
  std::string error;
  Cost cost;
  if (!TakeCostOptions(args, &cost, &error)) return Fail(error);
  std::chrono::milliseconds answer_timeout = engine::kDefaultAnswerTimeout;
  if (!TakeAnswerTimeout(&args, &answer_timeout, &error)) return Fail(error);
  std::string server;
  if (!TakeServer(&args, &server)) return Fail("--server needs the name of a server in indexes.conf");
  if (!args.empty()) return Fail(UnknownOptionMessage(*FindCommand("index"), args[0]));
  Writer writer;
  if (!writer.Open(server, &error)) return Fail(error);
  LowerPriority(cost);
  ix::Indexer indexer(writer.store());
  ix::WatchOptions options;
  ix::ThrottleOptions throttle_options;
  throttle_options.db_path = IndexPathInEffect();
  throttle_options.watching = true;
  throttle_options.budget_percent = cost.budget_percent;
  throttle_options.pause_on_battery = !(LoadedSettings() && LoadedSettings()->bIndexOnBattery != 0);
  throttle_options.rescan_seconds = options.rescan_seconds;
  ix::IndexerThrottle throttle(throttle_options);
  indexer.set_throttle(&throttle);
  options.throttle = &throttle;
  indexer.set_answer_timeout(answer_timeout);
  platform::StopSignals signals(Interrupt(), false);
  auto log = [](const std::string& line) {
    std::fprintf(stderr, "trovix-cli index watch: %s\n", line.c_str());
    std::fflush(stderr);
  };
  return ix::WatchIndex(indexer, options, Interrupt().get_token(), log) ? 0 : 2;
}

int ForgetCatalogue(const std::vector<std::string>& args) {
  if (args.size() != 1) return Fail("index forget needs one catalogue's identity (trovix-cli index status lists them)");
  std::string error;
  Writer writer;
  if (!writer.Open({}, &error)) return Fail(error);
  ix::Indexer indexer(writer.store());
  if (!indexer.ForgetCatalogue(args[0], &error)) return Fail(error);
  std::printf("forgot the catalogue %s\n", args[0].c_str());
  return 0;
}

int ChangeScope(const std::string& verb, std::vector<std::string> args) {
  std::string server;
  if (!TakeServer(&args, &server)) return Fail("--server needs the name of a server in indexes.conf");
  if (args.empty()) return Fail("index " + verb + " needs " + (verb == "exclude" ? "a pattern" : "a folder"));
  std::string error;
  Writer writer;
  if (!writer.Open(server, &error, false)) return Fail(error);
  ix::Indexer indexer(writer.store());
  int status = 0;
  {
    // On a server a folder's rows go in one statement, long on a large share.
    ServerStatementStop stop(writer.store(), writer.shared != nullptr);
    for (const auto& a : args) {
      bool ok = verb == "add" ? indexer.AddRoot(a, &error)
                : verb == "exclude" ? indexer.AddExclusion(a, &error)
                                    : indexer.Remove(a, &error);
      if (!ok && Interrupt().stop_requested()) return Interrupted(writer.where, a + " is as it was");
      if (!ok) {
        std::fprintf(stderr, "trovix-cli: %s\n", error.c_str());
        status = 2;
      }
    }
  }
  if (verb == "add" && status == 0 && !server.empty()) {
    // On a file server the folders are read at once and go to its shared index.
    writer = Writer();
    return Update({"--server", server});
  }
  if (verb == "add" && status == 0)
    std::printf("added; trovix-cli index update reads the folders (or index watch keeps them live)\n");
  return status;
}

// `index partition --server NAME`: the shared index partitioned by share.
int Partition(std::vector<std::string> args) {
  std::string server;
  if (!TakeServer(&args, &server) || server.empty())
    return Fail("index partition needs --server NAME: only a server's shared index is partitioned");
  if (!args.empty()) return Fail(UnknownOptionMessage(*FindCommand("index"), args[0]));
  std::string error;
  auto store = OpenServerIndex(server, &error);
  if (!store) return Fail(error);
  int shares = 0;
  // The rebuild runs long on a big index.
  ServerStatementStop stop(*store, true);
  if (!store->PartitionByShare(&shares)) {
    if (Interrupt().stop_requested()) return Interrupted("the index of " + server, "it is as it was");
    return Fail("the index of " + server + ": " + store->LastError());
  }
  std::printf("%s: partitioned by share (%d share(s))\n", server.c_str(), shares);
  return 0;
}

}  // namespace

void SetIndexPathSwitch(std::string path) { IndexSwitch() = std::move(path); }

std::string IndexPathInEffect() { return IndexSwitch().empty() ? ix::DefaultIndexPath() : IndexSwitch(); }

int RunIndexSqlCommand(const std::vector<std::string>& args);

int RunIndexCommand(const std::vector<std::string>& args) {
  if (args.empty()) return Status(false);
  const std::string& verb = args[0];
  std::vector<std::string> rest(args.begin() + 1, args.end());
  if (verb == "add" || verb == "remove" || verb == "exclude") return ChangeScope(verb, rest);
  if (verb == "update") return Update(rest);
  if (verb == "watch") return Watch(rest);
  if (verb == "forget") return ForgetCatalogue(rest);
  if (verb == "partition") return Partition(rest);
  if (verb == "pause" || verb == "resume") {
    if (!rest.empty()) return Fail(UnknownOptionMessage(*FindCommand("index"), rest[0]));
    std::string error;
    if (!ix::SetIndexPaused(IndexPathInEffect(), verb == "pause", &error)) return Fail(error);
    std::printf(verb == "pause" ? "indexing paused until trovix-cli index resume\n" : "indexing resumed\n");
    return 0;
  }
  if (verb == "sql") return RunIndexSqlCommand(rest);
  if (verb == "status" || verb == "list") {
    bool json = false;
    for (const auto& a : rest) {
      if (a == "--json") json = true;
      else return Fail(UnknownOptionMessage(*FindCommand("index"), a));
    }
    if (verb == "status") return Status(json);
    std::string error;
    auto db = ix::IndexDatabase::Open(IndexPathInEffect(), ix::IndexDatabase::Access::kRead, &error);
    if (!db) return Fail(error);
    ix::Indexer indexer(*db);
    for (const auto& e : indexer.Scope())
      std::printf("%s\t%s\n", e.include ? "folder" : "excluded", e.path.c_str());
    return 0;
  }
  return Fail("unknown index command \"" + verb +
              "\" (add, remove, exclude, list, update, status, watch, pause, resume, forget, partition, sql)");
}

}  // namespace trovix::cli
