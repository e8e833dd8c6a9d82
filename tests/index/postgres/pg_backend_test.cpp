// The PostgreSQL back end on a real server: the layout it makes and migrates, and rows that
// go in through the writer coming back through the translated dialect as themselves.
#include <gtest/gtest.h>

#include <set>

#include "index/dialect/sql_parser.h"
#include "index/postgres/pg_connection.h"
#include "index/postgres/pg_index_writer.h"
#include "index/postgres/pg_schema.h"
#include "index/postgres/pg_translation.h"
#include "tests/support/pg_server_suite.h"

namespace trovix::engine::index {
namespace {

using namespace std::chrono_literals;

class PgBackend : public testing::PgServerSuite {
 protected:
  void SetUp() override {
    PgServerSuite::SetUp();
    if (!server_) return;
    std::string error;
    db_ = PgConnection::Open(server_->conninfo(), 5s, &error);
    ASSERT_TRUE(db_) << error;
    ASSERT_TRUE(db_->Exec("DROP TABLE IF EXISTS texts, items, meta, prop_names, reader_roles, scope, excluded, volumes, trovix_schema "
                          "CASCADE;"
                          "DROP FUNCTION IF EXISTS trovix_may_list",
                          &error))
        << error;
    writer_ = std::make_unique<PgIndexWriter>(*db_);
    ASSERT_TRUE(writer_->Open(&error)) << error;
  }

  // The names of the items a query finds, as the server keeps them (bytes).
  std::set<std::string> Names(const std::string& sql) {
    SqlStatement statement;
    std::string error;
    EXPECT_TRUE(ParseSql(sql, &statement, &error)) << error;
    PgQuery query;
    if (!TranslateToPostgres(statement, PgTranslateOptions{"files"}, &query, &error)) {
      ADD_FAILURE() << sql << ": " << error;
      return {};
    }
    PgResult r = db_->Query("SELECT name FROM items WHERE " + query.where, query.params, &error);
    if (!r) {
      ADD_FAILURE() << query.where << ": " << error;
      return {};
    }
    std::set<std::string> names;
    for (int i = 0; i < PQntuples(r.get()); ++i) {
      size_t n = 0;
      unsigned char* bytes = PQunescapeBytea(reinterpret_cast<const unsigned char*>(PQgetvalue(r.get(), i, 0)), &n);
      names.emplace(reinterpret_cast<char*>(bytes), n);
      PQfreemem(bytes);
    }
    return names;
  }

  void Add(int64_t id, const std::string& folder, const std::string& name, std::vector<std::string> pieces = {},
           std::vector<std::pair<std::string, SqlParam>> props = {}) {
    PgItemRow row;
    row.id = id;
    row.folder = folder;
    row.name = name;
    row.size = id * 100;
    row.props = std::move(props);
    ASSERT_TRUE(writer_->WriteItem(row)) << writer_->LastError();
    if (!pieces.empty()) {
      ASSERT_TRUE(writer_->WriteText(id, pieces)) << writer_->LastError();
    }
  }

  std::unique_ptr<PgConnection> db_;
  std::unique_ptr<PgIndexWriter> writer_;
};

TEST_F(PgBackend, MakesItsLayoutOnceAndRefusesANewerOne) {
  std::string error;
  EXPECT_EQ(PgSchemaVersion(*db_, &error), kPgSchemaVersion);
  // A second program connecting finds it made and changes nothing.
  ASSERT_TRUE(EnsurePgSchema(*db_, &error)) << error;
  PgResult r = db_->Query("SELECT count(*) FROM trovix_schema", {}, &error);
  ASSERT_TRUE(r) << error;
  EXPECT_STREQ(PQgetvalue(r.get(), 0, 0), "1");
  ASSERT_TRUE(db_->Exec("UPDATE trovix_schema SET version = 99", &error));
  EXPECT_FALSE(EnsurePgSchema(*db_, &error));
  EXPECT_NE(error.find("newer"), std::string::npos) << error;
}

TEST_F(PgBackend, AwkwardNamesAndRuleTextComeBackAsThemselves) {
  const std::vector<std::string> names = {"it's", "back\\slash", "100%", "a_b", "say \"hi\"", "bad\xff\xfe.txt",
                                          "Straße", "plain"};
  int64_t id = 1;
  for (const std::string& name : names) Add(id++, "/srv/share", name);
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE System.ItemNameDisplay = 'it''s'"), std::set<std::string>{"it's"});
  EXPECT_EQ(Names("SELECT Path FROM files.SystemIndex WHERE System.ItemNameDisplay LIKE '%\\%'"),
            std::set<std::string>{"back\\slash"});
  // LIKE's own characters in brackets stand for themselves; alone they are wildcards.
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE System.ItemNameDisplay LIKE '%[%]'"),
            std::set<std::string>{"100%"});
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE System.ItemNameDisplay LIKE '_[_]_'"),
            std::set<std::string>{"a_b"});
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE System.ItemNameDisplay LIKE 'say \"\"hi\"\"'"),
            std::set<std::string>{"say \"hi\""});
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE System.ItemNameDisplay LIKE 'bad\xff%'"),
            std::set<std::string>{"bad\xff\xfe.txt"});
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE CONTAINS(System.ItemNameDisplay, '\"STRAẞE\"')"),
            std::set<std::string>{"Straße"});
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE CONTAINS(System.ItemPathDisplay, '\"ARE/PL\"')"),
            std::set<std::string>{"plain"});
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE System.Size >= 700 AND NOT System.ItemNameDisplay = 'plain'"),
            std::set<std::string>{"Straße"});
  EXPECT_TRUE(Names("SELECT Path FROM SystemIndex WHERE System.ItemNameDisplay = ''';DROP TABLE items;--'").empty());
}

TEST_F(PgBackend, ScopeAndDirectoryTakeFoldersByTheirBytes) {
  Add(1, "/srv", "top");
  Add(2, "/srv/a", "in a");
  Add(3, "/srv/a/b\xff", "deep");
  Add(4, "/srv/ab", "beside");
  Add(5, "/srv/a%", "percent");
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE System.Size > 0 AND SCOPE='file:/srv/a'"),
            (std::set<std::string>{"in a", "deep"}));
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE System.Size > 0 AND DIRECTORY='file:/srv/a'"),
            std::set<std::string>{"in a"});
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE System.Size > 0 AND SCOPE='file:/srv/a%'"),
            std::set<std::string>{"percent"});
  ASSERT_TRUE(writer_->Forget("/srv/a"));
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE System.Size > 0"),
            (std::set<std::string>{"top", "beside", "percent"}));
}

TEST_F(PgBackend, ContentsFindFragmentsAndPhrasesAsTheWalkReadsThem) {
  Add(1, "/d", "one.txt", {"the quick brown fox jumps over the lazy dog"});
  Add(2, "/d", "two.txt", {"quick brown cow", "a brown fox jumps there"});
  Add(3, "/d", "three.txt", {"nothing here at all"});
  // A fragment anywhere (trigrams), a phrase with a whole word inside (words), a phrase whose
  // ends are pieces of words.
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE CONTAINS('\"ump\"')"), (std::set<std::string>{"one.txt", "two.txt"}));
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE CONTAINS('\"quick brown fox\"')"),
            std::set<std::string>{"one.txt"});
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE CONTAINS('\"ick brown f\"')"), std::set<std::string>{"one.txt"});
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE CONTAINS('\"own fox jum\"') AND NOT CONTAINS('\"lazy\"')"),
            std::set<std::string>{"two.txt"});
  // Words the 'simple' configuration keeps that a language's would drop.
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE CONTAINS('\"over the lazy\"')"), std::set<std::string>{"one.txt"});
}

TEST_F(PgBackend, PropertiesKeepTheirTypesInJson) {
  Add(1, "/p", "a.jpg", {}, {{"System.Photo.CameraModel", std::string("Canon EOS")}, {"System.Image.HorizontalSize", int64_t{4000}}});
  Add(2, "/p", "b.jpg", {}, {{"System.Photo.CameraModel", std::string("NIKON")}, {"System.Image.HorizontalSize", int64_t{800}}});
  Add(3, "/p", "c.txt");
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE System.Image.HorizontalSize > 1000"), std::set<std::string>{"a.jpg"});
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE CONTAINS(System.Photo.CameraModel, 'nikon')"),
            std::set<std::string>{"b.jpg"});
  // A missing value satisfies no comparison, and NOT over it holds.
  EXPECT_EQ(Names("SELECT Path FROM SystemIndex WHERE NOT System.Image.HorizontalSize > 1000"),
            (std::set<std::string>{"b.jpg", "c.txt"}));
}

// Two users and three folders: one everybody may list, one private to its owner, one for a
// group. Each database role reads only the rows its user could list.
TEST_F(PgBackend, EachRoleReadsOnlyWhatItsUserCouldList) {
  const PgAccess root{0, 0, 0755}, srv{0, 0, 0755};
  auto add = [&](int64_t id, const std::string& folder, const std::string& name, PgAccess own, std::vector<std::string> text) {
    PgItemRow row;
    row.id = id;
    row.folder = "/srv/" + folder;
    row.name = name;
    row.size = 1;
    row.access = PgAccess{own.uid, own.gid, 0644};
    row.chain = {root, srv, own};
    ASSERT_TRUE(writer_->WriteItem(row)) << writer_->LastError();
    ASSERT_TRUE(writer_->WriteText(id, text)) << writer_->LastError();
  };
  add(1, "pub", "open.txt", PgAccess{1001, 1001, 0755}, {"shared words"});
  add(2, "private", "secret.txt", PgAccess{1001, 1001, 0700}, {"secret words"});
  add(3, "team", "plan.txt", PgAccess{0, 2000, 0750}, {"team words"});
  PgItemRow unknown;  // written without what stat said: nobody's
  unknown.id = 4;
  unknown.folder = "/srv/pub";
  unknown.name = "unknown.txt";
  ASSERT_TRUE(writer_->WriteItem(unknown));
  std::string error;
  ASSERT_TRUE(db_->Exec("DROP ROLE IF EXISTS alice; DROP ROLE IF EXISTS bob; DROP ROLE IF EXISTS carol;"
                        "CREATE ROLE alice LOGIN; CREATE ROLE bob LOGIN; CREATE ROLE carol LOGIN;"
                        "GRANT SELECT ON items, texts TO alice, bob, carol;"
                        "INSERT INTO reader_roles VALUES ('alice', 1001, '{1001}'), ('bob', 1002, '{1002,2000}')",
                        &error))
      << error;
  auto seen_by = [&](const std::string& role, const std::string& sql) {
    auto c = PgConnection::Open(server_->conninfo() + " user=" + role, 5s, &error);
    EXPECT_TRUE(c) << error;
    std::set<std::string> out;
    if (!c) return out;
    PgResult r = c->Query(sql, {}, &error);
    EXPECT_TRUE(r) << error;
    for (int i = 0; r && i < PQntuples(r.get()); ++i) out.insert(PQgetvalue(r.get(), i, 0));
    return out;
  };
  const std::string names = "SELECT name_key FROM items";
  EXPECT_EQ(seen_by("alice", names), (std::set<std::string>{"open.txt", "secret.txt"}));
  EXPECT_EQ(seen_by("bob", names), (std::set<std::string>{"open.txt", "plan.txt"}));
  EXPECT_TRUE(seen_by("carol", names).empty());  // no user of the server
  // The text of an item is as private as the item.
  EXPECT_EQ(seen_by("bob", "SELECT body FROM texts"), (std::set<std::string>{"shared words", "team words"}));
  EXPECT_TRUE(seen_by("bob", "SELECT body FROM texts WHERE strpos(body, 'secret') > 0").empty());
}

TEST_F(PgBackend, AQueryForAnotherMachineIsRefused) {
  SqlStatement statement;
  std::string error;
  ASSERT_TRUE(ParseSql("SELECT Path FROM elsewhere.SystemIndex WHERE System.Size > 1", &statement, &error));
  PgQuery query;
  EXPECT_FALSE(TranslateToPostgres(statement, PgTranslateOptions{"files"}, &query, &error));
  EXPECT_NE(error.find("elsewhere"), std::string::npos);
}

}  // namespace
}  // namespace trovix::engine::index
