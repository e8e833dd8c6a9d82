// The shared index route end to end: one tree indexed by the same indexer into the local index
// and straight into a real PostgreSQL server, and the same rules asked of both back ends; then
// servers that go away or hang, which must leave the search to the walk with a notice.
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include "engine/extraction/own_properties.h"
#include "engine/search/search_panel.h"
#include "index/index_route.h"
#include "index/indexer.h"
#include "index/postgres/indexes_conf.h"
#include "index/postgres/pg_connection.h"
#include "index/postgres/pg_index_route.h"
#include "index/postgres/pg_index_store.h"
#include "index/sqlite/index_database.h"
#include "props/catalogue.h"
#include "rules/value/value_syntax.h"
#include "tests/support/pg_server.h"
#include "tests/support/search_fixtures.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine::index {
namespace {

using namespace std::chrono_literals;
using trovix::testing::CollectingSink;
using trovix::testing::MakeRule;
using trovix::testing::TempTree;

const char* const kStems[] = {"Report", "report_2024", "Übersicht", "PHOTO", "a%b_c", "it's mine", "[draft]",
                              "back\\slash", "say \"hi\"", "Straße", "data-01", "bad\xff"};
const char* const kExtensions[] = {".txt", ".md", ".JPG", ".csv", ""};
const char* const kWords[] = {"harbour", "lantern", "quiet", "ledger", "harbour lights", "numbers"};

struct RuleChoice {
  const char* property;
  const char* value;
};
const RuleChoice kChoices[] = {
    {"System.ItemNameDisplay", "report"},       {"System.ItemNameDisplay", "übersicht"},
    {"System.ItemNameDisplay", "PHOTO"},        {"System.ItemNameDisplay", "a%b"},
    {"System.ItemNameDisplay", "it's"},         {"System.ItemNameDisplay", "*.txt"},
    {"System.ItemNameDisplay", "re*rt*"},       {"System.ItemNameDisplay", "?ata*"},
    {"System.ItemNameDisplay", "[draft]*"},     {"System.ItemNameDisplay", "back\\"},
    {"System.ItemNameDisplay", "\"hi\""},       {"System.Size", "> 1 KB"},
    {"System.Size", "< 200"},                   {"System.Size", "= 0"},
    {"System.DateModified", "> 2025-01-01"},    {"System.FileExtension", ".md"},
    {"System.Search.Contents", "harbour"},      {"System.Search.Contents", "\"harbour lights\""},
    {"System.Search.Contents", "quiet ledger"}, {"System.Search.Contents", "\"lights quiet ledger\""},
    {"System.Search.Contents", "arbou"},        {"System.ItemNameDisplay", "/^rep.*4$/"},
};

// One tree, its local index, and a server holding the same rows.
class PgRoute : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    InstallOwnPropertySource();
    server_ = testing::PgTestServer::Start(&why_).release();
    if (!server_) return;
    tree_ = new TempTree();
    std::mt19937 random(11);
    const int64_t now = time(nullptr);
    for (int i = 0; i < 150; ++i) {
      std::string folder = "root";
      for (int depth = random() % 3; depth > 0; --depth) folder += "/f" + std::to_string(random() % 4);
      const std::string name =
          std::string(kStems[random() % std::size(kStems)]) + "_" + std::to_string(i) + kExtensions[random() % std::size(kExtensions)];
      std::string text;
      const size_t bytes = random() % 3 == 0 ? 0 : random() % 3000;
      while (text.size() < bytes) text += std::string(kWords[random() % std::size(kWords)]) + (random() % 5 ? " " : "\n");
      tree_->File(folder + "/" + name, text);
      const int64_t when = now - static_cast<int64_t>(random() % (3 * 365)) * 86400;
      timespec times[2] = {{when, 0}, {when, 0}};
      utimensat(AT_FDCWD, tree_->path(folder + "/" + name).c_str(), times, 0);
    }
    std::string error;
    auto db = IndexDatabase::Open(tree_->path("index.db"), IndexDatabase::Access::kWrite, &error);
    ASSERT_TRUE(db) << error;
    Indexer indexer(*db);
    indexer.set_text_piece_bytes(500);
    ASSERT_TRUE(indexer.AddRoot(tree_->path("root"), &error)) << error;
    UpdateStats stats;
    ASSERT_TRUE(indexer.Update({}, &stats, {})) << indexer.error();
    auto store = PgIndexStore::Open(server_->conninfo(), 5s, &error);
    ASSERT_TRUE(store) << error;
    Indexer shared(*store);
    shared.set_text_piece_bytes(500);
    ASSERT_TRUE(shared.AddRoot(tree_->path("root"), &error)) << error;
    UpdateStats built;
    ASSERT_TRUE(shared.Update({}, &built, {})) << shared.error();
    EXPECT_EQ(built.added, stats.added);
    EXPECT_EQ(built.read, stats.read);
  }
  static void TearDownTestSuite() {
    delete tree_;
    tree_ = nullptr;
    delete server_;
    server_ = nullptr;
  }
  void SetUp() override {
    if (!server_) GTEST_SKIP() << why_;
  }

  // indexes.conf naming the test server "files", with the tree's root mounted as itself.
  std::string WriteConf(const std::string& extra = {}) {
    const std::string path = tree_->path("indexes.conf");
    std::ofstream out(path);
    out << "# the test server\nfiles = " << server_->conninfo() << "\nfiles.mount = " << tree_->path("root")
        << " -> " << tree_->path("root") << "\n"
        << extra;
    return path;
  }

  std::vector<rules::RulePtr> RandomRules(std::mt19937& random) {
    std::vector<rules::RulePtr> list;
    const int count = 1 + random() % 3;
    for (int i = 0; i < count; ++i) {
      const RuleChoice& choice = kChoices[random() % std::size(kChoices)];
      list.push_back(MakeRule(choice.property, choice.value, i == 0 ? rules::kContextAnd : static_cast<int32_t>(random() % 4)));
    }
    return list;
  }

  static std::set<std::string> Paths(const CollectingSink& sink) { return {sink.paths.begin(), sink.paths.end()}; }

  static inline testing::PgTestServer* server_ = nullptr;
  static inline TempTree* tree_ = nullptr;
  static inline std::string why_;
};

TEST_F(PgRoute, TheSameRulesGiveTheSameItemsFromBothBackEnds) {
  std::vector<std::string> problems;
  std::vector<IndexServer> servers = ReadIndexesConf(WriteConf(), &problems);
  ASSERT_EQ(servers.size(), 1u);
  EXPECT_TRUE(problems.empty());
  PgIndexRoute shared(servers[0]);
  SqliteIndexRoute local(tree_->path("index.db"));
  ASSERT_TRUE(local.ServiceAvailable());
  const std::string root = tree_->path("root");
  ASSERT_TRUE(shared.IsInScope(root + "/f1"));
  std::mt19937 random(20261126);
  int compared = 0, nonempty = 0;
  for (int round = 0; round < 120; ++round) {
    const std::vector<rules::RulePtr> list = RandomRules(random);
    rules::RuleSet set;
    ASSERT_TRUE(set.Compile(list));
    CollectingSink from_local, from_server;
    local.RunIndexQuery(set, root, IndexQueryOptions{}, from_local, {});
    shared.RunIndexQuery(set, root, IndexQueryOptions{}, from_server, {});
    const IndexQueryReport l = local.last_report();
    const PgQueryReport s = shared.last_report();
    if (l.sql.empty()) continue;
    // The machine prefix is the server's name.
    EXPECT_NE(s.sql.find(" FROM files.SystemIndex "), std::string::npos) << s.sql;
    if (!l.error.empty() || !s.error.empty()) continue;  // a query one of them refuses is walked
    ++compared;
    nonempty += !from_local.paths.empty();
    EXPECT_EQ(Paths(from_local), Paths(from_server)) << s.sql;
    EXPECT_EQ(from_server.paths.size(), Paths(from_server).size()) << "an item came twice: " << s.sql;
  }
  EXPECT_GT(compared, 60);
  EXPECT_GT(nonempty, 30);
}

TEST_F(PgRoute, AServerRootIsAskedWithItsOwnPaths) {
  std::vector<std::string> problems;
  IndexServer server = ReadIndexesConf(WriteConf(), &problems).at(0);
  PgIndexRoute shared(server);
  const std::string root = "//FILES" + tree_->path("root");
  ASSERT_TRUE(shared.IsInScope(root));
  EXPECT_FALSE(shared.IsInScope("//filesx" + tree_->path("root")));
  auto set = testing::Compile({MakeRule("System.ItemNameDisplay", "*.md")});
  CollectingSink sink;
  shared.RunIndexQuery(*set, root, IndexQueryOptions{}, sink, {});
  ASSERT_TRUE(shared.last_report().error.empty()) << shared.last_report().error;
  ASSERT_FALSE(sink.paths.empty());
  for (const std::string& path : sink.paths) {
    EXPECT_EQ(path.rfind(root + "/", 0), 0u) << path;
    EXPECT_EQ(path.substr(path.size() - 3), ".md");
  }
}

TEST_F(PgRoute, IndexesConfReportsBadLinesAndKeepsTheRest) {
  const std::string path = tree_->path("bad.conf");
  std::ofstream(path) << "good = postgresql://host/db\n9bad = x\nnoequals\ngood.timeout = soon\ngood.mount = rel -> /x\n"
                         "other = svc\nother.timeout = 0.5\nother.mount = /mnt/o/ -> /srv/\nghost.timeout = 2\n";
  std::vector<std::string> problems;
  const std::vector<IndexServer> servers = ReadIndexesConf(path, &problems);
  ASSERT_EQ(servers.size(), 2u);
  EXPECT_EQ(servers[0].conninfo, "postgresql://host/db");
  EXPECT_EQ(servers[0].timeout_ms, 3000);
  EXPECT_EQ(servers[1].conninfo, "service=svc");
  EXPECT_EQ(servers[1].timeout_ms, 500);
  ServerPlace place;
  ASSERT_TRUE(PlaceOnServer(servers[1], "/mnt/o/a/b", &place));
  EXPECT_EQ(place.server_path, "/srv/a/b");
  EXPECT_EQ(LocalPath(place, "/srv/a/b/c.txt"), "/mnt/o/a/b/c.txt");
  EXPECT_FALSE(PlaceOnServer(servers[1], "/mnt/other", &place));
  ASSERT_EQ(problems.size(), 5u);
  EXPECT_EQ(problems[0].rfind("indexes.conf:2:", 0), 0u) << problems[0];
}

// Runs a whole search the way the console program does, through the route choice.
int64_t SearchThrough(IndexRoute& routes, const std::string& root, const std::vector<rules::RulePtr>& list,
                      CollectingSink* sink) {
  SearchPanel panel(*sink, NoVolumeScan(), routes);
  SearchRequest request;
  request.rules = list;
  request.roots = {root};
  EXPECT_EQ(panel.StartOrStop(request), StartOutcome::kStarted) << panel.error();
  panel.Wait();
  return static_cast<int64_t>(sink->paths.size());
}

TEST_F(PgRoute, AServerThatHangsGivesTheWalkAndANoticeWithinItsTimeOut) {
  const std::string conf = WriteConf("files.timeout = 1\n");
  SqliteIndexRoute local(tree_->path("missing.db"));
  SharedIndexRoutes routes(local, conf);
  const std::vector<rules::RulePtr> list = {MakeRule("System.ItemNameDisplay", "*.md")};
  CollectingSink answered;
  SearchThrough(routes, tree_->path("root"), list, &answered);
  EXPECT_EQ(routes.last_server(), "files");
  EXPECT_TRUE(answered.notices.empty());
  // A client that connects now meets a server that takes the connection and never answers.
  server_->Pause();
  SharedIndexRoutes later(local, conf);
  CollectingSink walked;
  const auto start = std::chrono::steady_clock::now();
  SearchThrough(later, tree_->path("root"), list, &walked);
  const auto took = std::chrono::steady_clock::now() - start;
  server_->Resume();
  EXPECT_LT(took, 5s);
  ASSERT_EQ(walked.notices.size(), 1u);
  EXPECT_NE(walked.notices[0].find("robust search"), std::string::npos) << walked.notices[0];
  // The walk finds what the index found.
  EXPECT_EQ(Paths(walked), Paths(answered));
  EXPECT_FALSE(walked.paths.empty());
}

// Last: the server is gone for good afterwards.
TEST_F(PgRoute, ZzAServerThatStopsGivesTheWalkAndANotice) {
  const std::string conf = WriteConf();
  SqliteIndexRoute local(tree_->path("missing.db"));
  SharedIndexRoutes routes(local, conf);
  const std::vector<rules::RulePtr> list = {MakeRule("System.Search.Contents", "harbour")};
  CollectingSink answered;
  SearchThrough(routes, tree_->path("root"), list, &answered);
  ASSERT_TRUE(answered.notices.empty());
  // The route keeps its connection; the server goes away under it.
  server_->Kill();
  CollectingSink walked;
  SearchThrough(routes, tree_->path("root"), list, &walked);
  ASSERT_EQ(walked.notices.size(), 1u);
  EXPECT_NE(walked.notices[0].find("did not answer"), std::string::npos) << walked.notices[0];
  EXPECT_EQ(Paths(walked), Paths(answered));
}

}  // namespace
}  // namespace trovix::engine::index
