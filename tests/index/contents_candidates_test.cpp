#include "index/sqlite/contents_candidates.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>

#include "index/dialect/sql_parser.h"
#include "index/sqlite/index_schema.h"
#include "index/sqlite/sqlite_functions.h"
#include "index/sqlite/text_pieces.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine::index {
namespace {

using Ids = std::vector<int64_t>;

// A contents table of many pieces where the words "light" and "house" are everywhere and
// "lighthouse" is in three pieces only: every trigram of it but "hth" is common.
class ContentsCandidates : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(sqlite3_open((tree_.root() + "/index.db").c_str(), &db_), SQLITE_OK);
    ASSERT_EQ(RegisterIndexFunctions(db_), SQLITE_OK);
    Exec("PRAGMA synchronous=OFF; BEGIN");
    Exec(SchemaSql(kTrigramTokenizer));
    for (int64_t item = 1; item <= kRareTrigramPieces + 50; ++item)
      AddPiece(item, "a light in the house, a quiet harbour " + std::to_string(item));
    AddPiece(1000, "the Lighthouse keeper");
    AddPiece(1001, "lighthouses of the north");
    // The phrase across a line break and a run of blanks, as the walk reads it.
    AddPiece(1002, "lighthouse  \n keeper");
    Exec("COMMIT");
  }
  void TearDown() override { sqlite3_close(db_); }

  void Exec(const std::string& sql) {
    char* message = nullptr;
    ASSERT_EQ(sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &message), SQLITE_OK) << message;
  }
  void AddPiece(int64_t item, const std::string& text, int64_t piece = 0) {
    const std::string kept = IndexedText(text);
    const std::string body = CompressText(kept), seams = SeamSet(kept);
    sqlite3_stmt* stmt = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(db_, "INSERT INTO items(id, parent, name, is_folder, state) VALUES (?, 0, 'f', 0, 1)",
                                 -1, &stmt, nullptr), SQLITE_OK);
    sqlite3_bind_int64(stmt, 1, item);
    if (piece == 0) {
      ASSERT_EQ(sqlite3_step(stmt), SQLITE_DONE);
    }
    sqlite3_finalize(stmt);
    ASSERT_EQ(sqlite3_prepare_v2(db_, "INSERT INTO texts(id, lead, seams, body) VALUES (?, 0, ?, ?)", -1, &stmt, nullptr),
              SQLITE_OK);
    sqlite3_bind_int64(stmt, 1, TextPieceId(item, piece));
    sqlite3_bind_blob(stmt, 2, seams.data(), static_cast<int>(seams.size()), SQLITE_TRANSIENT);
    sqlite3_bind_blob(stmt, 3, body.data(), static_cast<int>(body.size()), SQLITE_TRANSIENT);
    ASSERT_EQ(sqlite3_step(stmt), SQLITE_DONE);
    sqlite3_finalize(stmt);
    ASSERT_EQ(sqlite3_prepare_v2(db_, "INSERT INTO contents(rowid, text) VALUES (?, ?)", -1, &stmt, nullptr), SQLITE_OK);
    sqlite3_bind_int64(stmt, 1, TextPieceId(item, piece));
    sqlite3_bind_text(stmt, 2, kept.data(), static_cast<int>(kept.size()), SQLITE_TRANSIENT);
    ASSERT_EQ(sqlite3_step(stmt), SQLITE_DONE);
    sqlite3_finalize(stmt);
  }

  // The query of `where`, narrowed when `narrow`, and the item ids it returns.
  Ids Run(const std::string& where, bool narrow, SqliteQuery* query) {
    SqlStatement statement;
    std::string error;
    Ids ids;
    EXPECT_TRUE(ParseSql("SELECT Path FROM SystemIndex WHERE " + where, &statement, &error)) << error;
    EXPECT_TRUE(TranslateToSqlite(statement, SqliteTranslateOptions{}, query, &error)) << error;
    if (narrow) NarrowContentsLookups(db_, query);
    sqlite3_stmt* stmt = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(db_, query->sql.c_str(), -1, &stmt, nullptr), SQLITE_OK) << sqlite3_errmsg(db_);
    EXPECT_EQ(BindSqliteParams(stmt, query->params), SQLITE_OK);
    while (sqlite3_step(stmt) == SQLITE_ROW) ids.push_back(sqlite3_column_int64(stmt, 0));
    sqlite3_finalize(stmt);
    std::sort(ids.begin(), ids.end());
    return ids;
  }
  // The FTS query of the first contents lookup after narrowing.
  std::string Narrowed(const std::string& where) {
    SqliteQuery query;
    Run(where, true, &query);
    if (query.contents_lookups.empty()) return "(no lookup)";
    return std::get<std::string>(query.params[query.contents_lookups[0].param]);
  }

  testing::TempTree tree_;
  sqlite3* db_ = nullptr;
};

// Narrowed or not, a lookup finds the same pieces: a rare word asks for its rare trigram
// alone, common words keep every trigram, and an absent trigram is asked for alone.
TEST_F(ContentsCandidates, NarrowsToTheRareTrigramsAndFindsWhatEveryTrigramFinds) {
  EXPECT_EQ(Narrowed("CONTAINS('lighthouse')"), "\"hth\"");
  EXPECT_EQ(Narrowed("CONTAINS('harbourzzz')"), "\"rzz\"");
  const std::string common = "CONTAINS('\"quiet harbour\"')";
  SqliteQuery all;
  Run(common, false, &all);
  ASSERT_EQ(all.contents_lookups.size(), 1u);
  EXPECT_EQ(Narrowed(common), std::get<std::string>(all.params[all.contents_lookups[0].param]));
  const std::pair<const char*, Ids> cases[] = {
      {"CONTAINS('lighthouse')", {1000, 1001, 1002}},
      {"CONTAINS('\"lighthouse keeper\"')", {1000, 1002}},
      {"CONTAINS('ighthous')", {1000, 1001, 1002}},
      {"CONTAINS('lighthouse AND north')", {1001}},
      {"CONTAINS('harbourzzz')", {}},
  };
  for (const auto& [where, expected] : cases) {
    SqliteQuery every, narrowed;
    EXPECT_EQ(Run(where, false, &every), expected) << where;
    EXPECT_EQ(Run(where, true, &narrowed), expected) << where;
  }
  SqliteQuery query;
  EXPECT_EQ(Run(common, true, &query).size(), static_cast<size_t>(kRareTrigramPieces + 50));
}

// A piece of an item already found is not confirmed again, but that shortcut never outlives
// the run of the statement: run again after the item's text changed, the same statement asks
// its next piece anew.
TEST_F(ContentsCandidates, AnItemFoundInOneRunIsConfirmedAgainInTheNext) {
  AddPiece(3000, "the lantern keeper sleeps");
  AddPiece(3000, "lantern keeper", 1);
  SqliteQuery query;
  std::string error;
  SqlStatement statement;
  ASSERT_TRUE(ParseSql("SELECT Path FROM SystemIndex WHERE CONTAINS('\"lantern keeper\"')", &statement, &error));
  ASSERT_TRUE(TranslateToSqlite(statement, SqliteTranslateOptions{}, &query, &error)) << error;
  sqlite3_stmt* stmt = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(db_, query.sql.c_str(), -1, &stmt, nullptr), SQLITE_OK) << sqlite3_errmsg(db_);
  auto run = [&] {
    Ids ids;
    EXPECT_EQ(BindSqliteParams(stmt, query.params), SQLITE_OK);
    while (sqlite3_step(stmt) == SQLITE_ROW) ids.push_back(sqlite3_column_int64(stmt, 0));
    sqlite3_reset(stmt);
    return ids;
  };
  EXPECT_EQ(run(), Ids{3000});
  // Its text changed: the phrase is gone, and a later piece holds its trigrams apart.
  Exec("DELETE FROM texts WHERE id>=" + std::to_string(TextPieceId(3000, 0)));
  AddPiece(3000, "a lantern kit, a keeper", 2);
  EXPECT_EQ(run(), Ids{});
  sqlite3_finalize(stmt);
}

}  // namespace
}  // namespace trovix::engine::index
