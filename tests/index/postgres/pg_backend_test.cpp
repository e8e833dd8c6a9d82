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
    ASSERT_TRUE(DropLayout(&error)) << error;
    writer_ = std::make_unique<PgIndexWriter>(*db_);
    ASSERT_TRUE(writer_->Open(&error)) << error;
  }

  bool DropLayout(std::string* error) {
    return db_->Exec("DROP TABLE IF EXISTS texts, items, meta, prop_names, reader_roles, scope, excluded, volumes, shares, "
                     "trovix_schema CASCADE;"
                     "DROP FUNCTION IF EXISTS trovix_may_list",
                     error);
  }

  // The tables partitioned by share, in one transaction.
  void Partition() {
    std::string error;
    int shares = 0;
    ASSERT_TRUE(db_->Exec("BEGIN", &error) && PartitionByShare(*db_, &shares, &error) && db_->Exec("COMMIT", &error))
        << error;
    bool partitioned = false;
    ASSERT_TRUE(PgPartitioned(*db_, &partitioned, &error) && partitioned) << error;
  }

  // One text column of every row of a query, as the given role reads it.
  std::set<std::string> Column(const std::string& sql, const std::string& role = {}) {
    std::string error;
    std::unique_ptr<PgConnection> other;
    if (!role.empty()) {
      other = PgConnection::Open(server_->conninfo() + " user=" + role, 5s, &error);
      EXPECT_TRUE(other) << error;
      if (!other) return {};
    }
    PgResult r = (other ? *other : *db_).Query(sql, {}, &error);
    EXPECT_TRUE(r) << sql << ": " << error;
    std::set<std::string> out;
    for (int i = 0; r && i < PQntuples(r.get()); ++i) out.insert(PQgetvalue(r.get(), i, 0));
    return out;
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
  std::set<std::string> Where(const std::string& condition) {
    return Names("SELECT Path FROM SystemIndex WHERE " + condition);
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

TEST_F(PgBackend, AnOlderLayoutIsMigratedKeepingItsRowsEachUnderItsShare) {
  std::string error;
  ASSERT_TRUE(DropLayout(&error) && EnsurePgSchema(*db_, &error, 3)) << error;
  // Rows as the layout before shares kept them; /srv/ab is no part of the share /srv/a.
  ASSERT_TRUE(db_->Exec(R"sql(
INSERT INTO scope VALUES ('/srv/a'::bytea, true), ('/srv/b'::bytea, true), ('.git'::bytea, false);
INSERT INTO items(id, folder, name, name_key, folder_key, path_key) VALUES
  (1, '/srv/a', 'x.txt', 'x.txt', '/srv/a', '/srv/a/x.txt'),
  (2, '/srv/a/sub', 'y.txt', 'y.txt', '/srv/a/sub', '/srv/a/sub/y.txt'),
  (3, '/srv/b', 'z.txt', 'z.txt', '/srv/b', '/srv/b/z.txt'),
  (4, '/srv/ab', 'w.txt', 'w.txt', '/srv/ab', '/srv/ab/w.txt');
INSERT INTO texts(item, piece, body) VALUES (1, 0, 'harbour'), (3, 0, 'lantern'), (3, 1, 'quiet');
)sql",
                        &error))
      << error;
  ASSERT_TRUE(EnsurePgSchema(*db_, &error)) << error;
  EXPECT_EQ(PgSchemaVersion(*db_, &error), 4);
  const std::set<std::string> shares = {"x.txt 1", "y.txt 1", "z.txt 2", "w.txt 0"};
  const std::string items = "SELECT encode(name, 'escape') || ' ' || share FROM items";
  const std::string texts = "SELECT body || ' ' || share FROM texts";
  EXPECT_EQ(Column("SELECT encode(path, 'escape') || ' ' || id FROM shares"),
            (std::set<std::string>{"/srv/a 1", "/srv/b 2"}));
  EXPECT_EQ(Column(items), shares);
  EXPECT_EQ(Column(texts), (std::set<std::string>{"harbour 1", "lantern 2", "quiet 2"}));
  // Partitioned, the same rows lie in their shares' partitions, and a row of no share in the
  // default one; the texts still go with their items.
  Partition();
  EXPECT_EQ(Column(items), shares);
  EXPECT_EQ(Column("SELECT encode(name, 'escape') FROM items_share_1"), (std::set<std::string>{"x.txt", "y.txt"}));
  EXPECT_EQ(Column("SELECT encode(name, 'escape') FROM items_other"), (std::set<std::string>{"w.txt"}));
  EXPECT_EQ(Column("SELECT body FROM texts_share_2"), (std::set<std::string>{"lantern", "quiet"}));
  ASSERT_TRUE(db_->Exec("DELETE FROM items WHERE id = 3", &error)) << error;
  EXPECT_EQ(Column(texts), (std::set<std::string>{"harbour 1"}));
  EXPECT_EQ(Where("System.ItemNameDisplay = 'x.txt'"), (std::set<std::string>{"x.txt"}));
  // The writer replaces a row of a partitioned table by its share and id, as before.
  PgItemRow row;
  row.id = 2;
  row.share = 1;
  row.folder = "/srv/a/sub";
  row.name = "renamed.txt";
  ASSERT_TRUE(writer_->WriteItem(row)) << writer_->LastError();
  ASSERT_TRUE(writer_->WriteText(2, {"rewritten"})) << writer_->LastError();
  EXPECT_EQ(Column(items), (std::set<std::string>{"x.txt 1", "renamed.txt 1", "w.txt 0"}));
  EXPECT_EQ(Column(texts), (std::set<std::string>{"harbour 1", "rewritten 1"}));
}

TEST_F(PgBackend, AwkwardNamesAndRuleTextComeBackAsThemselves) {
  const std::vector<std::string> names = {"it's", "back\\slash", "100%", "a_b", "say \"hi\"", "bad\xff\xfe.txt",
                                          "Straße", "plain"};
  int64_t id = 1;
  for (const std::string& name : names) Add(id++, "/srv/share", name);
  EXPECT_EQ(Where("System.ItemNameDisplay = 'it''s'"), std::set<std::string>{"it's"});
  EXPECT_EQ(Names("SELECT Path FROM files.SystemIndex WHERE System.ItemNameDisplay LIKE '%\\%'"),
            std::set<std::string>{"back\\slash"});
  // LIKE's own characters in brackets stand for themselves; alone they are wildcards.
  EXPECT_EQ(Where("System.ItemNameDisplay LIKE '%[%]'"), std::set<std::string>{"100%"});
  EXPECT_EQ(Where("System.ItemNameDisplay LIKE '_[_]_'"), std::set<std::string>{"a_b"});
  EXPECT_EQ(Where("System.ItemNameDisplay LIKE 'say \"\"hi\"\"'"), std::set<std::string>{"say \"hi\""});
  EXPECT_EQ(Where("System.ItemNameDisplay LIKE 'bad\xff%'"), std::set<std::string>{"bad\xff\xfe.txt"});
  EXPECT_EQ(Where("CONTAINS(System.ItemNameDisplay, '\"STRAẞE\"')"), std::set<std::string>{"Straße"});
  EXPECT_EQ(Where("CONTAINS(System.ItemPathDisplay, '\"ARE/PL\"')"), std::set<std::string>{"plain"});
  EXPECT_EQ(Where("System.Size >= 700 AND NOT System.ItemNameDisplay = 'plain'"), std::set<std::string>{"Straße"});
  EXPECT_TRUE(Where("System.ItemNameDisplay = ''';DROP TABLE items;--'").empty());
}

TEST_F(PgBackend, ScopeAndDirectoryTakeFoldersByTheirBytes) {
  Add(1, "/srv", "top");
  Add(2, "/srv/a", "in a");
  Add(3, "/srv/a/b\xff", "deep");
  Add(4, "/srv/ab", "beside");
  Add(5, "/srv/a%", "percent");
  EXPECT_EQ(Where("System.Size > 0 AND SCOPE='file:/srv/a'"), (std::set<std::string>{"in a", "deep"}));
  EXPECT_EQ(Where("System.Size > 0 AND DIRECTORY='file:/srv/a'"), std::set<std::string>{"in a"});
  EXPECT_EQ(Where("System.Size > 0 AND SCOPE='file:/srv/a%'"), std::set<std::string>{"percent"});
  ASSERT_TRUE(writer_->Forget("/srv/a"));
  EXPECT_EQ(Where("System.Size > 0"), (std::set<std::string>{"top", "beside", "percent"}));
}

TEST_F(PgBackend, ContentsFindFragmentsAndPhrasesAsTheWalkReadsThem) {
  Add(1, "/d", "one.txt", {"the quick brown fox jumps over the lazy dog"});
  Add(2, "/d", "two.txt", {"quick brown cow", "a brown fox jumps there"});
  Add(3, "/d", "three.txt", {"nothing here at all"});
  // A fragment anywhere (trigrams), a phrase with a whole word inside (words), a phrase whose
  // ends are pieces of words.
  EXPECT_EQ(Where("CONTAINS('\"ump\"')"), (std::set<std::string>{"one.txt", "two.txt"}));
  EXPECT_EQ(Where("CONTAINS('\"quick brown fox\"')"), std::set<std::string>{"one.txt"});
  EXPECT_EQ(Where("CONTAINS('\"ick brown f\"')"), std::set<std::string>{"one.txt"});
  EXPECT_EQ(Where("CONTAINS('\"own fox jum\"') AND NOT CONTAINS('\"lazy\"')"), std::set<std::string>{"two.txt"});
  // Words the 'simple' configuration keeps that a language's would drop.
  EXPECT_EQ(Where("CONTAINS('\"over the lazy\"')"), std::set<std::string>{"one.txt"});
}

TEST_F(PgBackend, PropertiesKeepTheirTypesInJson) {
  Add(1, "/p", "a.jpg", {}, {{"System.Photo.CameraModel", std::string("Canon EOS")}, {"System.Image.HorizontalSize", int64_t{4000}}});
  Add(2, "/p", "b.jpg", {}, {{"System.Photo.CameraModel", std::string("NIKON")}, {"System.Image.HorizontalSize", int64_t{800}}});
  Add(3, "/p", "c.txt");
  EXPECT_EQ(Where("System.Image.HorizontalSize > 1000"), std::set<std::string>{"a.jpg"});
  EXPECT_EQ(Where("CONTAINS(System.Photo.CameraModel, 'nikon')"), std::set<std::string>{"b.jpg"});
  // A missing value satisfies no comparison, and NOT over it holds.
  EXPECT_EQ(Where("NOT System.Image.HorizontalSize > 1000"), (std::set<std::string>{"b.jpg", "c.txt"}));
}

// Two users and three folders: one everybody may list, one private to its owner, one for a
// group. Each database role reads only the rows its user could list.
TEST_F(PgBackend, EachRoleReadsOnlyWhatItsUserCouldListWhetherPartitionedOrNot) {
  const PgAccess root{0, 0, 0755}, srv{0, 0, 0755};
  // Each folder a share of its own.
  auto add = [&](int64_t id, int share, const std::string& folder, const std::string& name, PgAccess own,
                 std::vector<std::string> text) {
    PgItemRow row;
    row.id = id;
    row.share = share;
    row.folder = "/srv/" + folder;
    row.name = name;
    row.size = 1;
    row.access = PgAccess{own.uid, own.gid, 0644};
    row.chain = {root, srv, own};
    ASSERT_TRUE(writer_->WriteItem(row)) << writer_->LastError();
    ASSERT_TRUE(writer_->WriteText(id, text)) << writer_->LastError();
  };
  std::string error;
  ASSERT_TRUE(db_->Exec("INSERT INTO shares(id, path) VALUES (1, '/srv/pub'), (2, '/srv/private'), (3, '/srv/team')",
                        &error))
      << error;
  add(1, 1, "pub", "open.txt", PgAccess{1001, 1001, 0755}, {"shared words"});
  add(2, 2, "private", "secret.txt", PgAccess{1001, 1001, 0700}, {"secret words"});
  add(3, 3, "team", "plan.txt", PgAccess{0, 2000, 0750}, {"team words"});
  PgItemRow unknown;  // written without what stat said: nobody's
  unknown.id = 4;
  unknown.share = 1;
  unknown.folder = "/srv/pub";
  unknown.name = "unknown.txt";
  ASSERT_TRUE(writer_->WriteItem(unknown));
  ASSERT_TRUE(db_->Exec("DROP ROLE IF EXISTS alice; DROP ROLE IF EXISTS bob; DROP ROLE IF EXISTS carol;"
                        "CREATE ROLE alice LOGIN; CREATE ROLE bob LOGIN; CREATE ROLE carol LOGIN;"
                        "GRANT SELECT ON items, texts TO alice, bob, carol;"
                        "INSERT INTO reader_roles VALUES ('alice', 1001, '{1001}'), ('bob', 1002, '{1002,2000}')",
                        &error))
      << error;
  const std::string names = "SELECT name_key FROM items";
  auto each_reads_its_own = [&] {
    EXPECT_EQ(Column(names, "alice"), (std::set<std::string>{"open.txt", "secret.txt"}));
    EXPECT_EQ(Column(names, "bob"), (std::set<std::string>{"open.txt", "plan.txt"}));
    EXPECT_TRUE(Column(names, "carol").empty());  // no user of the server
    // The text of an item is as private as the item.
    EXPECT_EQ(Column("SELECT body FROM texts", "bob"), (std::set<std::string>{"shared words", "team words"}));
    EXPECT_TRUE(Column("SELECT body FROM texts WHERE strpos(body, 'secret') > 0", "bob").empty());
  };
  each_reads_its_own();
  // Partitioned: the grants are kept, and the policies hold on the tables and on each partition
  // read by its own name.
  Partition();
  each_reads_its_own();
  ASSERT_TRUE(db_->Exec("GRANT SELECT ON ALL TABLES IN SCHEMA public TO alice, bob", &error)) << error;
  EXPECT_TRUE(Column("SELECT name_key FROM items_share_2", "bob").empty());
  EXPECT_TRUE(Column("SELECT body FROM texts_share_2", "bob").empty());
  EXPECT_EQ(Column("SELECT body FROM texts_share_2", "alice"), (std::set<std::string>{"secret words"}));
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
