// A read replica of the shared index: a primary and one hot standby streaming from it (a base
// backup taken before anything was indexed, so every row reaches the replica by replication).
// Clients whose indexes.conf names the replica, directly or through a service, answer what
// the primary answers; the indexer pointed at it by mistake is refused with the server's
// reason, and a client that lists the replica first goes on to the primary when it is gone.
#include <stdlib.h>

#include <chrono>
#include <fstream>
#include <set>

#include <gtest/gtest.h>

#include "engine/extraction/own_properties.h"
#include "index/index_route.h"
#include "index/indexer.h"
#include "index/postgres/indexes_conf.h"
#include "index/postgres/pg_connection.h"
#include "index/postgres/pg_index_route.h"
#include "index/postgres/pg_index_store.h"
#include "index/postgres/pg_index_writer.h"
#include "tests/support/pg_server.h"
#include "tests/support/search_fixtures.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine::index {
namespace {

using namespace std::chrono_literals;
using trovix::testing::CollectingSink;
using trovix::testing::MakeRule;
using trovix::testing::PgTestServer;
using trovix::testing::TempTree;

class PgReplica : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    InstallOwnPropertySource();
    primary_ = PgTestServer::Start(&why_).release();
    if (!primary_) return;
    replica_ = PgTestServer::StartReplica(*primary_, &why_).release();
    if (!replica_) return;
    tree_ = new TempTree();
    const char* words[] = {"harbour lights", "ledger", "quiet numbers", ""};
    for (int i = 0; i < 60; ++i) {
      const std::string folder = "root/team" + std::to_string(i % 3) + (i % 2 ? "/old" : "");
      const char* ext = i % 4 == 0 ? ".md" : i % 4 == 1 ? ".txt" : i % 4 == 2 ? ".csv" : "";
      tree_->File(folder + "/report " + std::to_string(i) + ext, std::string(words[i % 4]) + std::string(i * 40, '.'));
    }
    std::string error;
    auto store = PgIndexStore::Open(primary_->conninfo(), 5s, &error);
    ASSERT_TRUE(store) << error;
    Indexer indexer(*store);
    ASSERT_TRUE(indexer.AddRoot(tree_->path("root"), &error)) << error;
    UpdateStats stats;
    ASSERT_TRUE(indexer.Update({}, &stats, {})) << indexer.error();
    caught_up_ = replica_->CaughtUpWith(*primary_);
  }
  static void TearDownTestSuite() {
    delete tree_;
    delete replica_;
    delete primary_;
    tree_ = nullptr;
    replica_ = nullptr;
    primary_ = nullptr;
  }
  void SetUp() override {
    // Missing programs skip; a server that is there and does not start is a fault.
    if (!primary_ || !replica_) {
      if (why_.find("is not installed") != std::string::npos) GTEST_SKIP() << why_;
      FAIL() << why_;
    }
    ASSERT_TRUE(caught_up_) << "the replica did not replay the primary's rows in time";
  }

  // The answers of a client whose indexes.conf says "files = <target>", the share mounted
  // where it is.
  std::set<std::string> Answers(const std::string& target, const rules::RulePtr& rule, std::string* error) {
    const std::string conf = tree_->path("indexes.conf");
    std::ofstream(conf) << "files = " << target << "\nfiles.mount = " << tree_->path("root") << " -> "
                        << tree_->path("root") << "\n";
    std::vector<std::string> problems;
    std::vector<IndexServer> servers = ReadIndexesConf(conf, &problems);
    EXPECT_EQ(servers.size(), 1u);
    if (servers.empty()) return {};
    PgIndexRoute route(servers[0]);
    auto set = testing::Compile({rule});
    CollectingSink sink;
    route.RunIndexQuery(*set, tree_->path("root"), IndexQueryOptions{}, sink, {});
    *error = route.last_report().error;
    return {sink.paths.begin(), sink.paths.end()};
  }

  static std::vector<rules::RulePtr> Rules() {
    return {MakeRule("System.ItemNameDisplay", "*.md"), MakeRule("System.ItemNameDisplay", "report 1"),
            MakeRule("System.Search.Contents", "\"harbour lights\""), MakeRule("System.Size", "> 1 KB")};
  }

  static inline PgTestServer* primary_ = nullptr;
  static inline PgTestServer* replica_ = nullptr;
  static inline TempTree* tree_ = nullptr;
  static inline std::string why_;
  static inline bool caught_up_ = false;
};

TEST_F(PgReplica, AClientPointedAtTheReplicaAnswersAsThePrimary) {
  // The replica named by its connection parameters, and through a service as a desktop's
  // ~/.pg_service.conf would name it.
  const std::string services = tree_->path("pg_service.conf");
  std::ofstream(services) << "[trovix-files]\nhost=" << replica_->folder() << "\nport=5432\ndbname="
                          << PgTestServer::kDatabase << "\nuser=" << PgTestServer::kSuperuser << "\n";
  setenv("PGSERVICEFILE", services.c_str(), 1);
  for (const rules::RulePtr& rule : Rules()) {
    std::string error;
    const std::set<std::string> from_primary = Answers(primary_->conninfo(), rule, &error);
    ASSERT_TRUE(error.empty()) << error;
    EXPECT_FALSE(from_primary.empty());
    EXPECT_EQ(Answers(replica_->conninfo(), rule, &error), from_primary);
    EXPECT_TRUE(error.empty()) << error;
    EXPECT_EQ(Answers("trovix-files", rule, &error), from_primary);
    EXPECT_TRUE(error.empty()) << error;
  }
  unsetenv("PGSERVICEFILE");
}

TEST_F(PgReplica, TheIndexerPointedAtTheReplicaIsRefusedCleanly) {
  std::string error;
  {
    // The indexer: the layout is there (replicated), so opening reads it; the first write is
    // refused, and the update fails with the server's reason instead of trying again.
    auto store = PgIndexStore::Open(replica_->conninfo(), 5s, &error);
    if (store) {
      Indexer indexer(*store);
      UpdateStats stats;
      // A folder the primary does not index yet: its scope row is the first write.
      tree_->File("more/new.txt", "new");
      const bool added = indexer.AddRoot(tree_->path("more"), &error);
      EXPECT_FALSE(added && indexer.Update({}, &stats, {}));
      if (added) error = indexer.error();
    }
    EXPECT_NE(error.find("read-only"), std::string::npos) << error;
  }
  auto connection = PgConnection::Open(replica_->conninfo(), 5s, &error);
  ASSERT_TRUE(connection) << error;
  {
    PgIndexWriter writer(*connection);
    ASSERT_TRUE(writer.Open(&error)) << error;
    PgItemRow row;
    row.id = 1'000'000;
    row.folder = "/nowhere";
    row.name = "new.txt";
    EXPECT_FALSE(writer.WriteItem(row));
    EXPECT_NE(writer.LastError().find("read-only"), std::string::npos) << writer.LastError();
  }
  // A database the replica holds without the layout: making it is refused as well.
  auto bare = PgConnection::Open(replica_->conninfo("postgres"), 5s, &error);
  ASSERT_TRUE(bare) << error;
  PgIndexWriter writer(*bare);
  error.clear();
  EXPECT_FALSE(writer.Open(&error));
  EXPECT_NE(error.find("read-only"), std::string::npos) << error;
  // The replica still serves its clients, and the primary's rows are as they were.
  std::string count;
  ASSERT_EQ(replica_->Psql("SELECT count(*) > 60 FROM items", &count), 0) << count;
  EXPECT_EQ(count, "t\n");
  ASSERT_EQ(primary_->Psql("SELECT count(*) FROM items WHERE folder = '\\x2f6e6f7768657265'::bytea", &count), 0);
  EXPECT_EQ(count, "0\n");
}

// Last: the replica is stopped.
TEST_F(PgReplica, ZzAClientListingTheReplicaFirstGoesOnToThePrimary) {
  const std::string both = "host=" + replica_->folder() + "," + primary_->folder() + " port=5432 dbname=" +
                           PgTestServer::kDatabase + " user=" + PgTestServer::kSuperuser +
                           " target_session_attrs=prefer-standby";
  const rules::RulePtr rule = MakeRule("System.ItemNameDisplay", "*.md");
  std::string error;
  const std::set<std::string> expected = Answers(primary_->conninfo(), rule, &error);
  ASSERT_FALSE(expected.empty());
  EXPECT_EQ(Answers(both, rule, &error), expected);
  EXPECT_TRUE(error.empty()) << error;
  replica_->Stop();
  EXPECT_EQ(Answers(both, rule, &error), expected);
  EXPECT_TRUE(error.empty()) << error;
}

}  // namespace
}  // namespace trovix::engine::index
