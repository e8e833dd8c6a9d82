// The shared index on PostgreSQL at scale. Two modes:
//
//   pg_index_bench generate [ROWS]        (default 10,000,000)
//       Generates ROWS items inside the server (generate_series joined to a vocabulary: names
//       of two words and a number, folders four levels deep, sizes spread over nine orders of
//       magnitude, dates over three years, and a text of about 120 words for every tenth item,
//       words drawn with a long tail as real text has them), makes the search indexes the way
//       a first build does, and prints the build's time and the size per million items; then
//       name and contents queries, cold and warm.
//
//   pg_index_bench compare INDEX_DB ROOT
//       Carries the local index at INDEX_DB (made by `trovix-cli index add ROOT`) into an empty
//       shared index through the program's own first build (MirrorLocalIndex, what
//       `index add --server` runs), prints its time and both sizes, and asks both back ends
//       the same rules through their routes (plan, query, rows into items, re-test), cold and
//       warm.
//
//   pg_index_bench update ROOT
//       Walks ROOT into an empty shared index (names and facts only, nothing read), then times
//       updates of the unchanged tree: asking the server for each folder's stored children one
//       folder at a time, and with the children of a folder's subfolders read ahead in one
//       query (what `index update --server` does).
//
// Cold: the server is restarted (its shared buffers start empty) and every file of its data
// folder, and the local index file, is written out and dropped from the page cache
// (posix_fadvise), so the first query reads from the disk. Warm: the same query again.
//
// Without TROVIX_BENCH_PG="host=... dbname=..." it starts a server of its own in a temporary
// folder (as the tests do; TMPDIR chooses where) and removes it at the end; with it, the
// tables of that database are dropped and made anew (never point it at a real index), and
// cold runs drop only the local caches they can. Not part of the tests: bench/pg_scale.sh.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "bench/counting_sink.h"
#include "engine/extraction/own_properties.h"
#include "index/dialect/sql_parser.h"
#include "index/index_route.h"
#include "index/indexer.h"
#include "index/postgres/pg_connection.h"
#include "index/postgres/pg_index_route.h"
#include "index/postgres/pg_index_store.h"
#include "index/postgres/pg_index_writer.h"
#include "index/postgres/pg_schema.h"
#include "index/postgres/pg_translation.h"
#include "index/sqlite/index_database.h"
#include "props/catalogue.h"
#include "rules/rule_set.h"
#include "rules/value/value_syntax.h"
#include "tests/support/pg_server.h"

namespace {

using namespace trovix;
using namespace trovix::engine::index;
using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point since) { return std::chrono::duration<double>(Clock::now() - since).count(); }

int Fail(const std::string& why) {
  std::fprintf(stderr, "pg_index_bench: %s\n", why.c_str());
  return 1;
}

// Pronounceable words from syllables, all different and none shorter than three syllables
// (a short word would be found inside longer ones): a vocabulary of a few thousand, as real
// text has.
std::vector<std::string> Vocabulary(size_t count) {
  const char* syllables[] = {"ka", "lo", "mi", "ne", "ru", "sa", "to", "vi", "der", "lan", "mor", "pel", "qua", "ste",
                             "win", "zor", "bra", "chi", "fen", "gul"};
  std::mt19937 random(3);
  std::vector<std::string> words;
  std::set<std::string> seen;
  while (words.size() < count) {
    std::string w;
    for (int s = 3 + random() % 2; s > 0; --s) w += syllables[random() % std::size(syllables)];
    if (seen.insert(w).second) words.push_back(w);
  }
  return words;
}

// Writes every file below `folder` out and drops it from the page cache: the next read of it
// comes from the disk. Needs no privilege (clean pages of files one may open).
void DropFromCache(const std::string& path) {
  std::error_code ec;
  auto drop = [](const std::filesystem::path& p) {
    const int fd = open(p.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    fdatasync(fd);
    posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    close(fd);
  };
  if (!std::filesystem::is_directory(path, ec)) return drop(path);
  for (auto it = std::filesystem::recursive_directory_iterator(path, ec); !ec && it != std::filesystem::end(it);
       it.increment(ec))
    if (it->is_regular_file(ec)) drop(it->path());
}

// The server: ours (restartable, its folder known) or the one TROVIX_BENCH_PG names.
struct Server {
  std::unique_ptr<trovix::testing::PgTestServer> own;
  std::string conninfo;

  bool Start(std::string* error) {
    const char* given = std::getenv("TROVIX_BENCH_PG");
    if (given && *given) return conninfo = given, true;
    // Memory a file server would give its database; the rest as the tests run it. The
    // statements' statistics count the round trips of an update.
    own = trovix::testing::PgTestServer::Start(
        error, {"shared_buffers=2GB", "work_mem=64MB", "max_wal_size=16GB", "checkpoint_timeout=1h",
                "synchronous_commit=off", "max_connections=40", "shared_preload_libraries=pg_stat_statements"});
    if (!own) return false;
    conninfo = own->conninfo();
    return true;
  }
  std::unique_ptr<PgConnection> Connect(std::string* error) const {
    return PgConnection::Open(conninfo, std::chrono::seconds(60), error);
  }
  // Empty shared buffers and page cache; false when only the page cache could be dropped.
  bool MakeCold(std::string* error) {
    if (!own) return false;
    own->Stop();
    DropFromCache(own->data());
    return own->Restart(error);
  }
};

double DatabaseMB(PgConnection& db, const char* what = "pg_database_size(current_database())") {
  std::string error;
  PgResult r = db.Query(std::string("SELECT ") + what, {}, &error);
  return r ? std::atof(PQgetvalue(r.get(), 0, 0)) / 1e6 : -1;
}

bool Exec(PgConnection& db, const std::string& sql) {
  std::string error;
  if (db.Exec(sql, &error)) return true;
  std::fprintf(stderr, "pg_index_bench: %s\n  in: %.300s\n", error.c_str(), sql.c_str());
  return false;
}

bool ResetTables(PgConnection& db) {
  return Exec(db,
              "SET client_min_messages = warning; DROP TABLE IF EXISTS texts, items, meta, prop_names, reader_roles, shares, scope, excluded, volumes, "
              "trovix_schema CASCADE; DROP FUNCTION IF EXISTS trovix_may_list");
}

// ---- generate ----

// The rows, made by the server itself. A number from a row's id: hashint8 spreads the ids
// over the whole int4 range; u(k) is a uniform fraction, w(k) a word drawn with a long tail
// (index floor(N^u) - 1: the first words are common, the last ones rare).
std::string GenerateSql(int64_t rows, size_t vocabulary) {
  const std::string n = std::to_string(vocabulary);
  auto u = [](const std::string& of, int k) {
    return "((hashint8(" + of + " * 7919 + " + std::to_string(k) + ") & 2147483647)::float8 / 2147483648.0)";
  };
  auto tail = [&](const std::string& of, int k) {
    return "(floor(power(" + n + ", " + u(of, k) + "))::int - 1)";
  };
  const std::string r = std::to_string(rows);
  // 50 items a folder, as a walk meets them; folders /srv/share/<team>/<project>/<year>/<topic>.
  return "INSERT INTO items(id, folder, name, name_key, folder_key, path_key, extension, is_folder, size, modified, "
         "created, state) "
         "SELECT g, convert_to(f, 'UTF8'), convert_to(nm, 'UTF8'), lower(nm), lower(f), lower(f || '/' || nm), "
         "nullif(lower(ext), ''), false, size, modified, modified - 10000000::bigint * (hashint8(g * 3) & 65535), 1 "
         "FROM (SELECT g, "
         "  '/srv/share/' || team.w || '/' || project.w || '-' || (g / 50 % 89) || '/' || (2015 + g / 50 % 11) || '/' || "
         "  topic.w AS f, "
         "  CASE WHEN g % 3 = 0 THEN initcap(a.w) ELSE a.w END || (CASE WHEN g % 2 = 0 THEN '_' ELSE ' ' END) || b.w || "
         "  '-' || g || e.ext AS nm, e.ext, "
         "  floor(power(10, 9 * " + u("g", 4) + "))::bigint AS size, "
         "  133000000000000000 + floor(" + u("g", 5) + " * 946080000)::bigint * 10000000 AS modified "
         " FROM generate_series(1::bigint, " + r + ") g "
         " JOIN bench_words team ON team.n = (g / 400000) % 24 "
         " JOIN bench_words project ON project.n = 100 + (g / 20000) % 400 "
         " JOIN bench_words topic ON topic.n = " + tail("g / 50", 1) + " "
         " JOIN bench_words a ON a.n = " + tail("g", 2) + " "
         " JOIN bench_words b ON b.n = " + tail("g", 3) + " "
         " JOIN bench_ext e ON e.n = (hashint8(g * 5) & 2147483647) % 40) s";
}

std::string GenerateTextsSql(int64_t rows, size_t vocabulary) {
  const std::string n = std::to_string(vocabulary);
  // Every tenth item has a text of 120 words; every thousandth also holds the planted phrase.
  return "INSERT INTO texts(item, piece, body) "
         "SELECT d, 0, (SELECT string_agg(w.w, ' ' ORDER BY k) FROM generate_series(1, 120) k "
         "  JOIN bench_words w ON w.n = floor(power(" + n +
         ", (hashint8(d * 131 + k) & 2147483647)::float8 / 2147483648.0))::int - 1) "
         "  || CASE WHEN d % 10000 = 0 THEN ' ' || (SELECT string_agg(w, ' ') FROM bench_phrase) ELSE '' END "
         "FROM generate_series(10::bigint, " + std::to_string(rows) + ", 10) d";
}

int64_t Count(PgConnection& db, const std::string& sql_text, std::string* error) {
  SqlStatement statement;
  PgQuery query;
  if (!ParseSql(sql_text, &statement, error) ||
      !TranslateToPostgres(statement, PgTranslateOptions{"bench"}, &query, error))
    return -1;
  PgResult r = db.Query("SELECT count(*) FROM items WHERE " + query.where, query.params, error);
  return r ? std::atoll(PQgetvalue(r.get(), 0, 0)) : -1;
}

int Generate(int64_t rows) {
  Server server;
  std::string error;
  if (!server.Start(&error)) return Fail(error);
  auto db = server.Connect(&error);
  if (!db) return Fail(error);
  if (!ResetTables(*db)) return 1;
  {
    PgIndexWriter writer(*db);
    if (!writer.Open(&error)) return Fail(error);
  }
  const std::vector<std::string> words = Vocabulary(5000);
  std::string data;
  for (size_t i = 0; i < words.size(); ++i) data += std::to_string(i) + '\t' + words[i] + '\n';
  const char* extensions[] = {".txt", ".pdf", ".docx", ".jpg", ".JPG", ".png", ".csv", ".md", ".xlsx", ".log"};
  std::string ext_data;
  for (int i = 0; i < 40; ++i) ext_data += std::to_string(i) + '\t' + (i < 30 ? extensions[i % 10] : "") + '\n';
  const std::vector<std::string> phrase = {words[4100], words[4200], words[4300]};
  if (!Exec(*db, "CREATE TEMP TABLE bench_words(n integer PRIMARY KEY, w text NOT NULL); "
                 "CREATE TEMP TABLE bench_ext(n integer PRIMARY KEY, ext text NOT NULL); "
                 "CREATE TEMP TABLE bench_phrase(w text)") ||
      !db->CopyIn("COPY bench_words FROM STDIN", data, &error) ||
      !db->CopyIn("COPY bench_ext FROM STDIN", ext_data, &error) ||
      !db->CopyIn("COPY bench_phrase FROM STDIN", phrase[0] + "\n" + phrase[1] + "\n" + phrase[2] + "\n", &error) ||
      !Exec(*db, "ANALYZE bench_words; ANALYZE bench_ext"))
    return Fail(error);

  // As a first build does it: the rows without the search indexes, then the indexes.
  const auto start = Clock::now();
  if (!Exec(*db, "BEGIN") || !DropSearchIndexes(*db, &error)) return Fail(error);
  if (!Exec(*db, GenerateSql(rows, words.size()))) return 1;
  const double items_s = Seconds(start);
  std::printf("items   %lld rows in %.1f s\n", static_cast<long long>(rows), items_s);
  std::fflush(stdout);
  // Each text is 120 look-ups of single words: a hash of the whole vocabulary per text would
  // cost more than the texts.
  if (!Exec(*db, "SET LOCAL enable_hashjoin = off; SET LOCAL enable_mergejoin = off") ||
      !Exec(*db, GenerateTextsSql(rows, words.size())))
    return 1;
  const double texts_s = Seconds(start) - items_s;
  std::printf("texts   %lld in %.1f s\n", static_cast<long long>(rows / 10), texts_s);
  std::fflush(stdout);
  if (!MakeSearchIndexes(*db, &error) || !Exec(*db, "COMMIT")) return Fail(error);
  const double indexes_s = Seconds(start) - items_s - texts_s;
  if (!Exec(*db, "VACUUM ANALYZE items") || !Exec(*db, "VACUUM ANALYZE texts")) return 1;
  const double total_s = Seconds(start);
  const double per_million = 1e6 / static_cast<double>(rows);
  const double db_mb = DatabaseMB(*db);
  std::printf("build   %.1f s (rows %.1f s, texts %.1f s, search indexes %.1f s, vacuum %.1f s)\n", total_s,
              items_s, texts_s, indexes_s, total_s - items_s - texts_s - indexes_s);
  std::printf("size    %.0f MB: %.0f MB per million items (items and their indexes %.0f MB, texts %.0f MB)\n", db_mb,
              db_mb * per_million, DatabaseMB(*db, "pg_total_relation_size('items')"),
              DatabaseMB(*db, "pg_total_relation_size('texts')"));
  std::fflush(stdout);

  const std::string common = words[2];
  const std::string rare = words[4321];
  const std::vector<std::pair<const char*, std::string>> queries = {
      {"name fragment", "SELECT Path FROM SystemIndex WHERE CONTAINS(System.ItemNameDisplay, '\"" + rare.substr(1, 5) + "\"')"},
      {"name wildcard", "SELECT Path FROM SystemIndex WHERE System.ItemNameDisplay LIKE '" + words[20] + "%.pdf'"},
      {"name common", "SELECT Path FROM SystemIndex WHERE System.ItemNameDisplay LIKE '%" + common + "%'"},
      {"size in folder", "SELECT Path FROM SystemIndex WHERE System.Size > 100000000 AND SCOPE='file:/srv/share/" +
                             words[0] + "/" + words[100] + "-7'"},
      {"contents rare word", "SELECT Path FROM SystemIndex WHERE CONTAINS('\"" + rare + "\"')"},
      {"contents common word", "SELECT Path FROM SystemIndex WHERE CONTAINS('\"" + common + "\"')"},
      {"contents phrase", "SELECT Path FROM SystemIndex WHERE CONTAINS('\"" + phrase[0] + " " + phrase[1] + " " +
                              phrase[2] + "\"')"},
      {"contents fragment", "SELECT Path FROM SystemIndex WHERE CONTAINS('\"" + rare.substr(1, 6) + "*\"')"},
  };
  for (const auto& [label, sql] : queries) {
    db.reset();
    const bool cold = server.MakeCold(&error);
    if (!cold && server.own) return Fail(error);
    db = server.Connect(&error);
    if (!db) return Fail(error);
    for (const char* pass : {cold ? "cold" : "first", "warm"}) {
      const auto t = Clock::now();
      const int64_t n = Count(*db, sql, &error);
      if (n < 0) std::fprintf(stderr, "%s: %s\n", label, error.c_str());
      std::printf("%-22s %-5s %9.1f ms  %lld items\n", label, pass, Seconds(t) * 1000, static_cast<long long>(n));
      std::fflush(stdout);
    }
  }
  return 0;
}

// ---- compare ----

using bench::CountingSink;

int Compare(const std::string& index_db, const std::string& root) {
  engine::InstallOwnPropertySource();
  Server server;
  std::string error;
  if (!server.Start(&error)) return Fail(error);
  auto local = IndexDatabase::Open(index_db, IndexDatabase::Access::kRead, &error);
  if (!local) return Fail(index_db + ": " + error);
  std::printf("sqlite  size %.0f MB\n", static_cast<double>(std::filesystem::file_size(index_db)) / 1e6);
  {
    auto db = server.Connect(&error);
    if (!db || !ResetTables(*db)) return Fail(error);
    db.reset();
    // The program's own first build into the server: the same indexer as the local index,
    // walking and reading the share again (its read phase needs TROVIX_EXTRACT, set by the
    // script).
    auto store = PgIndexStore::Open(server.conninfo, std::chrono::minutes(10), &error);
    if (!store) return Fail(error);
    Indexer indexer(*store);
    if (!indexer.AddRoot(root, &error)) return Fail(error);
    const auto start = Clock::now();
    UpdateStats stats;
    if (!indexer.Update({}, &stats, {})) return Fail(indexer.error());
    const double s = Seconds(start);
    store.reset();
    db = server.Connect(&error);
    if (!db) return Fail(error);
    std::printf("postgres first build %.1f s: %lld items, %lld read (%.0f items/s); size %.0f MB\n", s,
                static_cast<long long>(stats.added), static_cast<long long>(stats.read),
                static_cast<double>(stats.added) / s, DatabaseMB(*db));
    if (!Exec(*db, "VACUUM ANALYZE items") || !Exec(*db, "VACUUM ANALYZE texts")) return 1;
  }
  local.reset();

  IndexServer shared{"bench", server.conninfo, 600'000, {{root, root}}};
  const std::pair<const char*, const char*> rules_asked[] = {
      {"System.ItemNameDisplay", "invoice_2019"},  {"System.ItemNameDisplay", "*.pdf"},
      {"System.ItemNameDisplay", "report*2019*"},  {"System.Size", "> 32 KB"},
      {"System.Search.Contents", "arbour"},        {"System.Search.Contents", "\"quiet harbour lights\""},
      {"System.Search.Contents", "ledger"},
  };
  for (const auto& [property, text] : rules_asked) {
    auto rule = rules::Rule::CreateFor(*props::DefaultCatalogue().FindProperty(property));
    rules::ParseRuleText(*rule, text);
    rules::RuleSet set;
    set.Compile({rule});
    for (int back_end = 0; back_end < 2; ++back_end) {
      // Cold for both: the local index file out of the page cache, the server restarted.
      DropFromCache(index_db);
      const bool cold = back_end == 0 || server.MakeCold(&error);
      std::unique_ptr<engine::IndexRoute> route;
      if (back_end == 0) route = std::make_unique<SqliteIndexRoute>(index_db);
      else route = std::make_unique<PgIndexRoute>(shared);
      for (const char* pass : {cold ? "cold" : "first", "warm"}) {
        CountingSink sink;
        const auto t = Clock::now();
        route->RunIndexQuery(set, root, engine::IndexQueryOptions{true, 2, nullptr}, sink, {});
        const double ms = Seconds(t) * 1000;
        std::string why = back_end == 0 ? static_cast<SqliteIndexRoute&>(*route).last_report().error
                                        : static_cast<PgIndexRoute&>(*route).last_report().error;
        std::printf("%-8s %-22s %-28s %-5s %9.1f ms  %lld items%s%s\n", back_end == 0 ? "sqlite" : "postgres",
                    property, text, pass, ms, static_cast<long long>(sink.count), why.empty() ? "" : "  ",
                    why.c_str());
        std::fflush(stdout);
      }
    }
  }
  return 0;
}

int UnchangedUpdates(const std::string& root) {
  Server server;
  std::string error;
  if (!server.Start(&error)) return Fail(error);
  auto db = server.Connect(&error);
  if (!db || !ResetTables(*db)) return Fail(error);
  auto store = PgIndexStore::Open(server.conninfo, std::chrono::seconds(60), &error);
  if (!store) return Fail(error);
  Indexer indexer(*store);
  if (!indexer.AddRoot(root, &error)) return Fail(error);
  UpdateStats built;
  if (!indexer.Update({}, &built, {}, {}, false)) return Fail(indexer.error());
  std::printf("first walk: %lld items in %lld folders, %.2f s\n", static_cast<long long>(built.items),
              static_cast<long long>(built.folders), built.walk_ms / 1000.0);
  // The statements the server ran for the walk so far (-1 where it does not count them).
  const bool counted = db->Exec("CREATE EXTENSION IF NOT EXISTS pg_stat_statements", &error);
  auto statements = [&] {
    PgResult r = counted ? db->Query("SELECT coalesce(sum(calls), 0) FROM pg_stat_statements WHERE query LIKE "
                                     "'%FROM items WHERE folder%'",
                                     {}, &error)
                         : nullptr;
    return r ? std::atoll(PQgetvalue(r.get(), 0, 0)) : -1;
  };
  for (const size_t rows : {size_t{0}, size_t{200000}}) {
    store->set_prefetch_rows(rows);
    for (int pass = 1; pass <= 3; ++pass) {
      UpdateStats stats;
      const long long before = statements();
      if (!indexer.Update({}, &stats, {}, {}, false)) return Fail(indexer.error());
      std::printf("unchanged, %s: pass %d walk %.2f s, %lld queries for stored children (%lld changes)\n",
                  rows == 0 ? "one query per folder" : "subfolders read ahead", pass, stats.walk_ms / 1000.0,
                  counted ? statements() - before : -1LL,
                  static_cast<long long>(stats.added + stats.changed + stats.removed));
    }
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "generate") return Generate(argc > 2 ? std::atoll(argv[2]) : 10'000'000);
  if (mode == "compare" && argc == 4) return Compare(argv[2], argv[3]);
  if (mode == "update" && argc == 3) return UnchangedUpdates(argv[2]);
  std::fprintf(stderr,
               "usage: pg_index_bench generate [ROWS]\n       pg_index_bench compare INDEX_DB ROOT\n"
               "       pg_index_bench update ROOT\n");
  return 2;
}
