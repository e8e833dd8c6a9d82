// The shared index route end to end: one tree indexed by the same indexer into the local index
// and straight into a real PostgreSQL server, and the same rules asked of both back ends; a
// query stopped while the server works on it; servers that go away or hang, which must leave
// the search to the walk with a notice; and an index partitioned by share, which must answer
// as a plain one and as the walk.
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <random>
#include <set>
#include <thread>

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
#include "tests/support/index_fixtures.h"
#include "tests/support/pg_server_suite.h"
#include "tests/support/search_fixtures.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine::index {
namespace {

using namespace std::chrono_literals;
using trovix::testing::BuildIndex;
using trovix::testing::CollectingSink;
using trovix::testing::Eventually;
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

std::vector<rules::RulePtr> RandomRules(std::mt19937& random) {
  std::vector<rules::RulePtr> list;
  const int count = 1 + random() % 3;
  for (int i = 0; i < count; ++i) {
    const RuleChoice& choice = kChoices[random() % std::size(kChoices)];
    list.push_back(MakeRule(choice.property, choice.value, i == 0 ? rules::kContextAnd : static_cast<int32_t>(random() % 4)));
  }
  return list;
}

// `count` files of random names, texts and times in `folder` of `tree` and folders below it.
void RandomFiles(TempTree& tree, const std::string& folder, int count, std::mt19937& random) {
  const int64_t now = time(nullptr);
  for (int i = 0; i < count; ++i) {
    std::string place = folder;
    for (int depth = random() % 3; depth > 0; --depth) place += "/f" + std::to_string(random() % 4);
    const std::string name =
        std::string(kStems[random() % std::size(kStems)]) + "_" + std::to_string(i) + kExtensions[random() % std::size(kExtensions)];
    std::string text;
    const size_t bytes = random() % 3 == 0 ? 0 : random() % 3000;
    while (text.size() < bytes) text += std::string(kWords[random() % std::size(kWords)]) + (random() % 5 ? " " : "\n");
    tree.File(place + "/" + name, text);
    const int64_t when = now - static_cast<int64_t>(random() % (3 * 365)) * 86400;
    timespec times[2] = {{when, 0}, {when, 0}};
    utimensat(AT_FDCWD, tree.path(place + "/" + name).c_str(), times, 0);
  }
}

std::set<std::string> Paths(const CollectingSink& sink) { return {sink.paths.begin(), sink.paths.end()}; }

// What one answer has that the other has not ("-" only in `a`, "+" only in `b`).
std::string Difference(const std::set<std::string>& a, const std::set<std::string>& b) {
  std::string out;
  for (const std::string& p : a)
    if (!b.count(p)) out += "- " + p + "\n";
  for (const std::string& p : b)
    if (!a.count(p)) out += "+ " + p + "\n";
  return out;
}

// One tree, its local index, and a server holding the same rows.
class PgRoute : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    InstallOwnPropertySource();
    server_ = testing::PgTestServer::Start(&why_).release();
    if (!server_) return;
    tree_ = new TempTree();
    std::mt19937 random(11);
    RandomFiles(*tree_, "root", 150, random);
    UpdateStats stats;
    ASSERT_NO_FATAL_FAILURE(BuildIndex(tree_->path("index.db"), tree_->path("root"), &stats,
                                       [](Indexer& indexer) { indexer.set_text_piece_bytes(500); }));
    std::string error;
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

TEST_F(PgRoute, AStoppedQueryEndsAtOnceOnBothSidesAndTheNextOneAnswers) {
  std::vector<std::string> problems;
  PgIndexRoute shared(ReadIndexesConf(WriteConf("files.timeout = 20\n"), &problems).at(0));
  const std::string root = tree_->path("root");
  auto set = testing::Compile({MakeRule("System.ItemNameDisplay", "*.md")});
  CollectingSink first;
  shared.RunIndexQuery(*set, root, IndexQueryOptions{}, first, {});
  ASSERT_TRUE(shared.last_report().error.empty()) << shared.last_report().error;
  // Another session holds the items: the next query waits for it as for a slow answer.
  std::string error;
  auto holder = PgConnection::Open(server_->conninfo(), 5s, &error);
  ASSERT_TRUE(holder && holder->Exec("BEGIN; LOCK TABLE items IN ACCESS EXCLUSIVE MODE", &error)) << error;
  auto waiting = [&] {
    PgResult r = holder->Query("SELECT count(*) FROM pg_stat_activity WHERE wait_event_type = 'Lock'", {}, &error);
    return r ? std::atoi(PQgetvalue(r.get(), 0, 0)) : -1;
  };
  std::stop_source stop;
  CollectingSink stopped;
  std::thread search([&] { shared.RunIndexQuery(*set, root, IndexQueryOptions{}, stopped, stop.get_token()); });
  ASSERT_TRUE(Eventually([&] { return waiting() == 1; }, 10s, 20ms));
  const auto asked = std::chrono::steady_clock::now();
  stop.request_stop();
  search.join();
  EXPECT_LT(std::chrono::steady_clock::now() - asked, 2s);  // its time-out is 20 s
  EXPECT_EQ(shared.last_report().error, PgConnection::kStopped);
  EXPECT_TRUE(stopped.notices.empty());  // a stop is no failure of the server
  EXPECT_TRUE(stopped.paths.empty());
  // The server ended the statement too, while the lock is still held.
  EXPECT_TRUE(Eventually([&] { return waiting() == 0; }, 10s, 20ms));
  ASSERT_TRUE(holder->Exec("ROLLBACK", &error)) << error;
  CollectingSink next;
  shared.RunIndexQuery(*set, root, IndexQueryOptions{}, next, {});
  EXPECT_TRUE(shared.last_report().error.empty()) << shared.last_report().error;
  EXPECT_EQ(Paths(next), Paths(first));
  EXPECT_FALSE(next.paths.empty());
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

// Two shares of one tree, indexed into a plain database and into one partitioned by share:
// the partitioned one made from rows already there and growing a share afterwards.
class PgShares : public testing::PgServerSuite {
 protected:
  static void SetUpTestSuite() {
    PgServerSuite::SetUpTestSuite();
    if (!server_) return;
    InstallOwnPropertySource();
    tree_ = new TempTree();
    std::mt19937 random(7);
    RandomFiles(*tree_, "top/alpha", 70, random);
    RandomFiles(*tree_, "top/beta", 70, random);
    std::string error;
    for (const char* name : {"plain", "parts"}) ASSERT_EQ(server_->Psql(std::string("CREATE DATABASE ") + name), 0);
    plain_ = PgIndexStore::Open(server_->conninfo("plain"), 5s, &error).release();
    parts_ = PgIndexStore::Open(server_->conninfo("parts"), 5s, &error).release();
    ASSERT_TRUE(plain_ && parts_) << error;
    Indexer plain(*plain_), parts(*parts_);
    for (Indexer* indexer : {&plain, &parts}) indexer->set_text_piece_bytes(500);
    ASSERT_TRUE(plain.AddRoot(tree_->path("top/alpha"), &error) && plain.AddRoot(tree_->path("top/beta"), &error)) << error;
    ASSERT_TRUE(parts.AddRoot(tree_->path("top/alpha"), &error)) << error;
    UpdateStats stats;
    ASSERT_TRUE(plain.Update({}, &stats, {}) && parts.Update({}, &stats, {})) << plain.error() << parts.error();
    int shares = 0;
    ASSERT_TRUE(parts_->PartitionByShare(&shares)) << parts_->LastError();
    EXPECT_EQ(shares, 1);
    ASSERT_TRUE(parts.AddRoot(tree_->path("top/beta"), &error)) << error;
    // Changed, new and vanished rows in both shares after the partitions were made.
    tree_->File("top/alpha/report_new.md", "harbour lights at night");
    tree_->File("top/beta/f1/Report_late.txt", "quiet ledger");
    std::filesystem::remove_all(tree_->path("top/alpha/f2"));
    ASSERT_TRUE(plain.Update({}, &stats, {}) && parts.Update({}, &stats, {})) << plain.error() << parts.error();
  }
  static void TearDownTestSuite() {
    delete plain_;
    delete parts_;
    delete tree_;
    plain_ = parts_ = nullptr;
    tree_ = nullptr;
    PgServerSuite::TearDownTestSuite();
  }

  static IndexServer Server(const std::string& name) {
    const std::string top = tree_->path("top");
    return IndexServer{name, server_->conninfo(name), 5000, {IndexServerMount{top, top}}};
  }
  // What the route answers; nullopt when it cannot answer (a query it refuses is walked).
  static std::optional<std::set<std::string>> Answer(PgIndexRoute& route, rules::RuleSet& set, const std::string& root) {
    CollectingSink sink;
    route.RunIndexQuery(set, root, IndexQueryOptions{}, sink, {});
    if (route.last_report().sql.empty() || !route.last_report().error.empty()) return std::nullopt;
    return Paths(sink);
  }
  static std::string Value(const std::string& sql) {
    std::string error;
    auto db = PgConnection::Open(server_->conninfo("parts"), 5s, &error);
    PgResult r = db ? db->Query(sql, {}, &error) : nullptr;
    EXPECT_TRUE(r) << sql << ": " << error;
    return r && PQntuples(r.get()) > 0 ? PQgetvalue(r.get(), 0, 0) : "";
  }

  static inline TempTree* tree_ = nullptr;
  static inline PgIndexStore* plain_ = nullptr;
  static inline PgIndexStore* parts_ = nullptr;
};

TEST_F(PgShares, APartitionedIndexAnswersAsThePlainOneAndAsTheWalk) {
  // The share added later has partitions of its own, held by the policies.
  EXPECT_EQ(Value("SELECT count(*) FROM pg_class WHERE relname IN ('items_share_2', 'texts_share_2') AND relrowsecurity"),
            "2");
  EXPECT_NE(Value("SELECT count(*) FROM items_share_2"), "0");
  PgIndexRoute plain(Server("plain")), parts(Server("parts"));
  SqliteIndexRoute none(tree_->path("missing.db"));
  const std::string top = tree_->path("top");
  std::mt19937 random(20261127);
  int compared = 0, nonempty = 0;
  for (int round = 0; round < 50; ++round) {
    // The walk gets rules of its own: a rule set takes the rules it compiles for itself.
    std::mt19937 same = random;
    const std::vector<rules::RulePtr> list = RandomRules(random);
    auto set = testing::Compile(RandomRules(same));
    ASSERT_TRUE(set);
    const auto answer = Answer(parts, *set, top);
    if (!answer) continue;
    ++compared;
    const auto from_plain = Answer(plain, *set, top);
    ASSERT_TRUE(from_plain);
    EXPECT_EQ(Difference(*answer, *from_plain), "") << parts.last_report().sql;
    CollectingSink walked;
    SearchThrough(none, top, list, &walked);
    // The shares' own folders are crawl roots, which the index keeps no row of.
    std::set<std::string> walk = Paths(walked);
    walk.erase(tree_->path("top/alpha"));
    walk.erase(tree_->path("top/beta"));
    EXPECT_EQ(Difference(*answer, walk), "") << parts.last_report().sql;
    nonempty += !answer->empty();
  }
  EXPECT_GT(compared, 30);
  EXPECT_GT(nonempty, 15);
}

TEST_F(PgShares, AShareDetachedOrRemovedLeavesTheOtherWhole) {
  PgIndexRoute plain(Server("plain")), parts(Server("parts"));
  const std::string alpha = tree_->path("top/alpha"), beta = tree_->path("top/beta");
  auto set = testing::Compile({MakeRule("System.Search.Contents", "harbour")});
  const auto in_alpha = Answer(plain, *set, alpha), in_beta = Answer(plain, *set, beta);
  ASSERT_TRUE(in_alpha && in_beta && !in_alpha->empty() && !in_beta->empty());
  // Detached by hand (texts first: they refer to the items), a share's rows are out of every
  // answer; attached again, back.
  std::string error;
  auto admin = PgConnection::Open(server_->conninfo("parts"), 5s, &error);
  ASSERT_TRUE(admin) << error;
  ASSERT_TRUE(admin->Exec("ALTER TABLE texts DETACH PARTITION texts_share_2; ALTER TABLE items DETACH PARTITION items_share_2",
                          &error))
      << error;
  EXPECT_EQ(Answer(parts, *set, tree_->path("top")), in_alpha);
  EXPECT_EQ(Answer(parts, *set, beta), std::set<std::string>());
  ASSERT_TRUE(admin->Exec("ALTER TABLE items ATTACH PARTITION items_share_2 FOR VALUES IN (2);"
                          "ALTER TABLE texts ATTACH PARTITION texts_share_2 FOR VALUES IN (2)",
                          &error))
      << error;
  EXPECT_EQ(Answer(parts, *set, beta), in_beta);
  // Removed from the index, a share takes its partitions with it.
  Indexer parts_indexer(*parts_);
  ASSERT_TRUE(parts_indexer.Remove(alpha, &error)) << error;
  EXPECT_EQ(Value("SELECT count(*) FROM pg_class WHERE relname LIKE '%_share_1'"), "0");
  EXPECT_EQ(Answer(parts, *set, tree_->path("top")), in_beta);
  auto names = testing::Compile({MakeRule("System.ItemNameDisplay", "*.*")});
  EXPECT_EQ(Answer(parts, *names, beta), Answer(plain, *names, beta));
}

}  // namespace
}  // namespace trovix::engine::index
