// The indexer writing straight into a file server's shared index: the same walk and read as
// the local index, batches that a connection cut off mid-update leaves whole and the retry
// completes, and a watch that follows files as they come, move and go.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <thread>

#include "index/index_watch.h"
#include "index/indexer.h"
#include "index/postgres/pg_connection.h"
#include "index/postgres/pg_index_store.h"
#include "tests/support/index_fixtures.h"
#include "tests/support/pg_server_suite.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine::index {
namespace {

using namespace std::chrono_literals;
using trovix::testing::TempTree;

class PgIndexer : public testing::PgServerSuite {
 protected:
  // A new, empty database of the test server; its connection parameters.
  static std::string NewDatabase(const std::string& name) {
    EXPECT_EQ(server_->Psql("CREATE DATABASE " + name), 0);
    return server_->conninfo(name);
  }

  static std::unique_ptr<PgConnection> Connect(const std::string& conninfo) {
    std::string error;
    auto db = PgConnection::Open(conninfo, 5s, &error);
    EXPECT_TRUE(db) << error;
    return db;
  }

  // Builds the shared index of `root` in a database of its own, from nothing.
  static std::string FreshBuild(const std::string& name, const std::string& root) {
    const std::string conninfo = NewDatabase(name);
    std::string error;
    auto store = PgIndexStore::Open(conninfo, 5s, &error);
    EXPECT_TRUE(store) << error;
    if (!store) return conninfo;
    Indexer indexer(*store);
    EXPECT_TRUE(indexer.AddRoot(root, &error)) << error;
    UpdateStats stats;
    EXPECT_TRUE(indexer.Update({}, &stats, {})) << indexer.error();
    return conninfo;
  }

  // Every row the shared index holds, one line each: its place, facts, state, values and the
  // digest of each text piece; and the scope and the names the exclusions took out. Ids are
  // left out: they follow the order the work was done in.
  static std::vector<std::string> Dump(PgConnection& db) {
    std::string error;
    PgResult r = db.Query(
        "SELECT encode(folder, 'escape') || '/' || encode(name, 'escape') || ' ' || coalesce(size::text, '-') || ' ' || "
        "coalesce(modified::text, '-') || ' ' || is_folder || ' ' || listed || ' ' || state || ' ' || props::text || "
        "' ' || prop_keys::text || ' ' || coalesce(mode::text, '-') || ' ' || coalesce(chain_mode::text, '-') || ' ' || "
        "coalesce((SELECT string_agg(piece || ':' || md5(body), ',' ORDER BY piece) FROM texts t WHERE t.item = i.id), '') "
        "FROM items i UNION ALL SELECT 'scope ' || encode(path, 'escape') || include FROM scope "
        "UNION ALL SELECT 'excluded ' || encode(folder, 'escape') || '/' || encode(name, 'escape') FROM excluded "
        "ORDER BY 1",
        {}, &error);
    EXPECT_TRUE(r) << error;
    std::vector<std::string> lines;
    for (int i = 0; r && i < PQntuples(r.get()); ++i) lines.push_back(PQgetvalue(r.get(), i, 0));
    return lines;
  }

  static std::set<std::string> Paths(PgConnection& db) {
    std::string error;
    PgResult r = db.Query("SELECT encode(folder, 'escape') || '/' || encode(name, 'escape') FROM items", {}, &error);
    std::set<std::string> out;
    for (int i = 0; r && i < PQntuples(r.get()); ++i) out.insert(PQgetvalue(r.get(), i, 0));
    return out;
  }

};

// The server ends the writer's session on the fifth row it is sent (inserted or updated): as a
// connection that drops, or an administrator who ends it, half way through a batch.
void EndTheWriterOnItsFifthRow(PgConnection& db) {
  std::string error;
  ASSERT_TRUE(db.Exec(
      "CREATE SEQUENCE IF NOT EXISTS written; SELECT setval('written', 1, false); "
      "CREATE OR REPLACE FUNCTION end_writer() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN "
      "IF nextval('written') = 5 THEN PERFORM pg_terminate_backend(pg_backend_pid()); END IF; RETURN NEW; END $$; "
      "DROP TRIGGER IF EXISTS end_writer ON items; "
      "CREATE TRIGGER end_writer BEFORE INSERT OR UPDATE ON items FOR EACH ROW EXECUTE FUNCTION end_writer()",
      &error))
      << error;
}

TEST_F(PgIndexer, AnUpdateWhoseConnectionIsEndedIsDoneAgainAndEqualsAFreshBuild) {
  TempTree tree;
  for (int i = 0; i < 24; ++i)
    tree.File("root/d" + std::to_string(i % 3) + "/file" + std::to_string(i) + ".txt", "harbour " + std::to_string(i));
  tree.File("root/.git/HEAD", "ref");
  tree.File("root/bad\xff name.txt", "lantern");
  const std::string root = tree.path("root");
  const std::string conninfo = NewDatabase("cut");
  auto admin = Connect(conninfo);
  ASSERT_TRUE(admin);
  std::string error;
  auto store = PgIndexStore::Open(conninfo, 5s, &error);
  ASSERT_TRUE(store) << error;
  EndTheWriterOnItsFifthRow(*admin);
  Indexer indexer(*store);
  indexer.set_retry_pause(10ms);
  ASSERT_TRUE(indexer.AddRoot(root, &error)) << error;
  // The first build: its COPY is cut off.
  UpdateStats stats;
  ASSERT_TRUE(indexer.Update({}, &stats, {})) << indexer.error();
  EXPECT_EQ(stats.retries, 1);
  EXPECT_EQ(Paths(*admin).count(root + "/d1/file4.txt"), 1u);

  // A later update, cut off among changed, new and vanished rows.
  for (int i = 0; i < 3; ++i) std::filesystem::remove(tree.path("root/d0/file" + std::to_string(i * 3) + ".txt"));
  for (int i = 0; i < 3; ++i) tree.File("root/d2/new" + std::to_string(i) + ".txt", "quiet ledger");
  tree.File("root/d1/file1.txt", "rewritten, and longer than before");
  std::filesystem::rename(tree.path("root/d1"), tree.path("root/moved"));
  EndTheWriterOnItsFifthRow(*admin);
  UpdateStats later;
  ASSERT_TRUE(indexer.Update({}, &later, {})) << indexer.error();
  EXPECT_EQ(later.retries, 1);

  ASSERT_TRUE(admin->Exec("DROP TRIGGER end_writer ON items", &error)) << error;
  const std::string fresh = FreshBuild("fresh", root);
  auto fresh_db = Connect(fresh);
  ASSERT_TRUE(fresh_db);
  const std::vector<std::string> built = Dump(*fresh_db);
  EXPECT_EQ(Dump(*admin), built);
  // Every file is there, read, with its text; what the exclusions took out is noted.
  EXPECT_EQ(Paths(*admin).count(root + "/moved/file1.txt"), 1u);
  EXPECT_EQ(Paths(*admin).count(root + "/bad\\377 name.txt"), 1u);
  EXPECT_EQ(Paths(*admin).count(root + "/d0/file0.txt"), 0u);
  PgResult unread = admin->Query("SELECT count(*) FROM items WHERE state = 0", {}, &error);
  ASSERT_TRUE(unread) << error;
  EXPECT_STREQ(PQgetvalue(unread.get(), 0, 0), "0");
  EXPECT_NE(std::find(built.begin(), built.end(), "excluded " + root + "/.git"), built.end());
}

TEST_F(PgIndexer, FoldersReplacedInPlaceBelowFoldersReadAheadEqualAFreshBuild) {
  TempTree tree;
  for (int i = 0; i < 30; ++i)
    tree.File("root/d" + std::to_string(i % 3) + "/s" + std::to_string(i % 5) + "/f" + std::to_string(i) + ".txt", "x");
  tree.File("root/d0/s0/deep/er/file.txt", "y");
  tree.File("root/plain.txt", "z");
  const std::string root = tree.path("root");
  const std::string conninfo = NewDatabase("ahead");
  auto admin = Connect(conninfo);
  ASSERT_TRUE(admin);
  std::string error;
  auto store = PgIndexStore::Open(conninfo, 5s, &error);
  ASSERT_TRUE(store) << error;
  // Few rows wait in memory: the children of many folders come cut short and are asked again.
  store->set_prefetch_rows(7);
  Indexer indexer(*store);
  ASSERT_TRUE(indexer.AddRoot(root, &error)) << error;
  UpdateStats stats;
  ASSERT_TRUE(indexer.Update({}, &stats, {})) << indexer.error();
  // A folder made anew under the same name, a folder that became a file and a file that became
  // a folder, each below folders whose children were read ahead of the walk.
  std::filesystem::remove_all(tree.path("root/d0/s0"));
  tree.File("root/d0/s0/other.txt", "new");
  std::filesystem::remove_all(tree.path("root/d1/s1"));
  tree.File("root/d1/s1", "now a file");
  std::filesystem::remove(tree.path("root/plain.txt"));
  tree.File("root/plain.txt/inside.txt", "now a folder");
  tree.File("root/d2/s2/new/deeper.txt", "w");
  UpdateStats later;
  ASSERT_TRUE(indexer.Update({}, &later, {})) << indexer.error();
  const std::string fresh = FreshBuild("ahead_fresh", root);
  auto fresh_db = Connect(fresh);
  ASSERT_TRUE(fresh_db);
  EXPECT_EQ(Dump(*admin), Dump(*fresh_db));
  // Unchanged, the next update finds nothing to do.
  UpdateStats again;
  ASSERT_TRUE(indexer.Update({}, &again, {})) << indexer.error();
  EXPECT_EQ(again.added + again.changed + again.removed, 0);
}

TEST_F(PgIndexer, AServerThatStaysAwayFailsTheUpdateAfterItsRetries) {
  TempTree tree({"root/a.txt=x"});
  const std::string conninfo = NewDatabase("away");
  std::string error;
  auto store = PgIndexStore::Open(conninfo, 5s, &error);
  ASSERT_TRUE(store) << error;
  // Another writer of the same index is turned away.
  EXPECT_FALSE(PgIndexStore::Open(conninfo, 5s, &error));
  EXPECT_NE(error.find("another indexer"), std::string::npos) << error;
  Indexer indexer(*store);
  indexer.set_retry_pause(1ms);
  ASSERT_TRUE(indexer.AddRoot(tree.path("root"), &error)) << error;
  // The database is gone for good: every attempt fails, and the update says why.
  auto admin = Connect(server_->conninfo());
  ASSERT_TRUE(admin->Exec("SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE datname = 'away'", &error));
  ASSERT_TRUE(admin->Exec("DROP DATABASE away", &error)) << error;
  UpdateStats stats;
  EXPECT_FALSE(indexer.Update({}, &stats, {}));
  EXPECT_EQ(stats.retries, Indexer::kAttempts - 1);
  EXPECT_NE(indexer.error().find("away"), std::string::npos) << indexer.error();
}

bool WaitFor(const std::function<bool()>& done) { return testing::Eventually(done, 10s, 20ms); }

// The rows a batch holds back go in by one COPY when it commits; a stop while that COPY waits on
// the server (another session keeps the items from being written) ends it there and undoes the
// batch, and the next update writes them.
TEST_F(PgIndexer, AStopEndsACopyWaitingOnTheServerAndUndoesItsBatch) {
  TempTree tree({"root/a.txt=harbour"});
  const std::string root = tree.path("root");
  const std::string conninfo = NewDatabase("stopped");
  auto admin = Connect(conninfo);
  std::string error;
  auto store = PgIndexStore::Open(conninfo, 5s, &error);
  ASSERT_TRUE(admin && store) << error;
  Indexer indexer(*store);
  ASSERT_TRUE(indexer.AddRoot(root, &error)) << error;
  UpdateStats stats;
  ASSERT_TRUE(indexer.Update({}, &stats, {})) << indexer.error();
  const std::vector<std::string> before = Dump(*admin);
  tree.File("root/b.txt", "lantern");  // a new row in the root folder, which has no row to change
  auto holder = Connect(conninfo);
  ASSERT_TRUE(holder->Exec("BEGIN; LOCK TABLE items IN SHARE MODE", &error)) << error;
  auto waiting = [&](const char* query) {
    PgResult r = admin->Query("SELECT count(*) FROM pg_stat_activity WHERE wait_event_type = 'Lock' AND query LIKE $1",
                              {PgText(query)}, &error);
    return r ? std::atoi(PQgetvalue(r.get(), 0, 0)) : -1;
  };
  std::stop_source stop;
  bool updated = true;
  std::thread update([&] { updated = indexer.Update({}, &stats, stop.get_token()); });
  ASSERT_TRUE(WaitFor([&] { return waiting("COPY items%") == 1; }));
  const auto asked = std::chrono::steady_clock::now();
  stop.request_stop();
  update.join();
  EXPECT_LT(std::chrono::steady_clock::now() - asked, 2s);
  EXPECT_FALSE(updated);
  EXPECT_EQ(indexer.error(), PgConnection::kStopped);
  EXPECT_TRUE(WaitFor([&] { return waiting("%") == 0; }));  // ended on the server, the lock still held
  ASSERT_TRUE(holder->Exec("ROLLBACK", &error)) << error;
  EXPECT_EQ(Dump(*admin), before);

  ASSERT_TRUE(indexer.Update({}, &stats, {})) << indexer.error();
  auto fresh = Connect(FreshBuild("stopped_fresh", root));
  EXPECT_EQ(Dump(*admin), Dump(*fresh));
}

TEST_F(PgIndexer, AWatchFeedsTheServerAsFilesComeMoveAndGo) {
  TempTree tree({"root/a/one.txt=first"});
  const std::string root = tree.path("root");
  const std::string conninfo = NewDatabase("watched");
  auto admin = Connect(conninfo);
  ASSERT_TRUE(admin);
  std::string error;
  auto store = PgIndexStore::Open(conninfo, 5s, &error);
  ASSERT_TRUE(store) << error;
  Indexer indexer(*store);
  indexer.set_retry_pause(10ms);
  ASSERT_TRUE(indexer.AddRoot(root, &error)) << error;
  WatchOptions options;
  options.settle_ms = 50;
  options.max_delay_ms = 200;
  std::atomic<bool> watching{false};
  std::jthread watch([&](std::stop_token stop) {
    WatchIndex(indexer, options, stop, [&](const std::string& line) { watching = watching || line.rfind("watching ", 0) == 0; });
  });
  auto holds = [&](const std::set<std::string>& paths) { return WaitFor([&] { return Paths(*admin) == paths; }); };
  // Changes made before the folders are watched would wait for the next rescan.
  ASSERT_TRUE(WaitFor([&] { return watching.load(); }));
  ASSERT_TRUE(holds({root + "/a", root + "/a/one.txt"}));

  tree.File("root/a/two.txt", "harbour lights");
  ASSERT_TRUE(holds({root + "/a", root + "/a/one.txt", root + "/a/two.txt"}));
  // Its text is read too.
  EXPECT_TRUE(WaitFor([&] {
    PgResult r = admin->Query("SELECT count(*) FROM texts WHERE body LIKE '%harbour lights%'", {}, &error);
    return r && std::string(PQgetvalue(r.get(), 0, 0)) == "1";
  }));

  std::filesystem::rename(tree.path("root/a/two.txt"), tree.path("root/a/three.txt"));
  tree.File("root/new/deep/inner.txt", "quiet");
  ASSERT_TRUE(holds({root + "/a", root + "/a/one.txt", root + "/a/three.txt", root + "/new", root + "/new/deep",
                     root + "/new/deep/inner.txt"}));

  // The server ends the watch's session between two changes: the next change is written on a
  // new connection.
  ASSERT_TRUE(admin->Exec("SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE datname = 'watched' AND "
                          "pid <> pg_backend_pid()",
                          &error))
      << error;
  std::filesystem::remove(tree.path("root/a/one.txt"));
  std::filesystem::remove_all(tree.path("root/new"));
  EXPECT_TRUE(holds({root + "/a", root + "/a/three.txt"}));
  watch.request_stop();
}

}  // namespace
}  // namespace trovix::engine::index
