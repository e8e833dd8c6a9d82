// The shared index on PostgreSQL at scale: generates ROWS items (names, folders, sizes, dates,
// and a text for every tenth) with COPY, then times name and contents queries cold (the first
// run after the build) and warm, and prints the build's rate and the database's size per
// million items.
//
//   pg_index_bench [ROWS]                 (default 1,000,000)
//   TROVIX_BENCH_PG="host=... dbname=..." pg_index_bench 10000000
//
// Without TROVIX_BENCH_PG it starts a server of its own in a temporary folder (as the tests do).
// The tables of the database it is given are dropped and made anew: never point it at a real
// index. Not part of the tests (it takes minutes at ten million rows).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "index/dialect/sql_parser.h"
#include "index/postgres/pg_connection.h"
#include "index/postgres/pg_index_writer.h"
#include "index/postgres/pg_schema.h"
#include "index/postgres/pg_translation.h"
#include "tests/support/pg_server.h"

namespace {

using namespace trovix::engine::index;
using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point since) { return std::chrono::duration<double>(Clock::now() - since).count(); }

// Pronounceable words from syllables: a vocabulary of a few thousand, as real text has.
std::vector<std::string> Vocabulary(size_t count) {
  const char* syllables[] = {"ka", "lo", "mi", "ne", "ru", "sa", "to", "vi", "der", "lan", "mor", "pel", "qua", "ste",
                             "win", "zor", "bra", "chi", "fen", "gul"};
  std::mt19937 random(3);
  std::vector<std::string> words;
  for (size_t i = 0; i < count; ++i) {
    std::string w;
    for (int s = 2 + random() % 3; s > 0; --s) w += syllables[random() % std::size(syllables)];
    words.push_back(w);
  }
  return words;
}

int64_t Count(PgConnection& db, const std::string& sql_text) {
  trovix::engine::index::SqlStatement statement;
  std::string error;
  PgQuery query;
  if (!ParseSql(sql_text, &statement, &error) || !TranslateToPostgres(statement, PgTranslateOptions{"bench"}, &query, &error)) {
    std::fprintf(stderr, "%s: %s\n", sql_text.c_str(), error.c_str());
    return -1;
  }
  PgResult r = db.Query("SELECT count(*) FROM items WHERE " + query.where, query.params, &error);
  if (!r) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return -1;
  }
  return std::atoll(PQgetvalue(r.get(), 0, 0));
}

}  // namespace

int main(int argc, char** argv) {
  const int64_t rows = argc > 1 ? std::atoll(argv[1]) : 1'000'000;
  std::unique_ptr<trovix::testing::PgTestServer> own;
  std::string conninfo = std::getenv("TROVIX_BENCH_PG") ? std::getenv("TROVIX_BENCH_PG") : "";
  std::string error;
  if (conninfo.empty()) {
    own = trovix::testing::PgTestServer::Start(&error);
    if (!own) return std::fprintf(stderr, "pg_index_bench: %s\n", error.c_str()), 1;
    conninfo = own->conninfo();
  }
  auto db = PgConnection::Open(conninfo, std::chrono::seconds(30), &error);
  if (!db) return std::fprintf(stderr, "pg_index_bench: %s\n", error.c_str()), 1;
  db->Exec("SET client_min_messages = warning; DROP TABLE IF EXISTS texts, items, meta, prop_names, reader_roles, trovix_schema CASCADE; "
           "DROP FUNCTION IF EXISTS trovix_may_list");
  PgIndexWriter writer(*db);
  if (!writer.Open(&error)) return std::fprintf(stderr, "pg_index_bench: %s\n", error.c_str()), 1;

  const std::vector<std::string> words = Vocabulary(5000);
  const char* extensions[] = {".txt", ".pdf", ".docx", ".jpg", ".csv", ".md", ""};
  std::mt19937 random(7);
  const auto build = Clock::now();
  constexpr int64_t kBatch = 50'000;
  std::vector<PgItemRow> batch;
  std::vector<std::pair<int64_t, std::vector<std::string>>> texts;
  writer.Begin();
  writer.BeginFirstBuild();
  for (int64_t i = 1; i <= rows; ++i) {
    PgItemRow row;
    row.id = i;
    row.folder = "/srv/share/p" + std::to_string(i / 5000 % 2000) + "/" + words[static_cast<size_t>(i) % 97];
    row.name = words[random() % words.size()] + "_" + words[random() % words.size()] + "_" + std::to_string(i) +
               extensions[random() % std::size(extensions)];
    row.size = static_cast<int64_t>(random() % 10'000'000);
    row.modified = 133'000'000'000'000'000LL + static_cast<int64_t>(random() % 1'000'000) * 10'000'000LL;
    row.state = 1;
    if (i % 10 == 0) {
      std::string text;
      for (int w = 0; w < 120; ++w) text += words[random() % words.size()] + " ";
      texts.emplace_back(i, std::vector<std::string>{text});
    }
    batch.push_back(std::move(row));
    if (static_cast<int64_t>(batch.size()) == kBatch || i == rows) {
      if (!writer.CopyItems(batch, texts)) return std::fprintf(stderr, "pg_index_bench: %s\n", writer.LastError().c_str()), 1;
      batch.clear();
      texts.clear();
    }
  }
  const double copy_s = Seconds(build);
  if (!writer.EndFirstBuild() || !writer.Commit())
    return std::fprintf(stderr, "pg_index_bench: %s\n", writer.LastError().c_str()), 1;
  const double build_s = Seconds(build);
  PgResult size = db->Query("SELECT pg_database_size(current_database())", {}, &error);
  const double bytes = size ? std::atof(PQgetvalue(size.get(), 0, 0)) : 0;
  std::printf("rows %lld  build %.1f s (copy %.1f s, indexes %.1f s; %.0f rows/s, %.1f s per million)  size %.0f MB (%.0f MB per million)\n",
              static_cast<long long>(rows), build_s, copy_s, build_s - copy_s, static_cast<double>(rows) / build_s,
              build_s * 1e6 / static_cast<double>(rows), bytes / 1e6, bytes / 1e6 * 1e6 / static_cast<double>(rows));

  const std::string rare = words[4321];
  const std::string phrase = words[10] + " " + words[11] + " " + words[12];
  const std::pair<const char*, std::string> queries[] = {
      {"name fragment", "SELECT Path FROM SystemIndex WHERE CONTAINS(System.ItemNameDisplay, '\"" + rare.substr(1, 5) + "\"')"},
      {"name wildcard", "SELECT Path FROM SystemIndex WHERE System.ItemNameDisplay LIKE '" + rare + "%.pdf'"},
      {"size and scope", "SELECT Path FROM SystemIndex WHERE System.Size > 9990000 AND SCOPE='file:/srv/share/p7'"},
      {"contents word", "SELECT Path FROM SystemIndex WHERE CONTAINS('\"" + rare + "\"')"},
      {"contents phrase", "SELECT Path FROM SystemIndex WHERE CONTAINS('\"" + phrase + "\"')"},
  };
  for (const auto& [label, sql] : queries) {
    for (const char* pass : {"cold", "warm"}) {
      const auto start = Clock::now();
      const int64_t n = Count(*db, sql);
      std::printf("%-16s %s %8.1f ms  %lld rows\n", label, pass, Seconds(start) * 1000, static_cast<long long>(n));
    }
  }
  return 0;
}
