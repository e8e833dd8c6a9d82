// A file server's shared index as users meet it: the server's `index add DIR --server NAME`,
// `index update --server NAME`, `index partition --server NAME` and a running `index watch
// --server NAME`, clients searching //NAME/path and a mounted share, and a server that went
// away, through the console program and a real PostgreSQL server.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "index/postgres/pg_connection.h"
#include "tests/support/index_fixtures.h"
#include "tests/support/pg_server.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix {
namespace {

using testing::ReadWholeFile;
using testing::RunProgram;
using testing::SpawnProgram;
using testing::TempTree;

// A share at tree/share that indexes.conf names "files" (mounted where it lies), the program's
// settings and cache kept in the tree, and the server's own local index file.
struct Share {
  std::string path, env, err, server_db;
};
Share ServerShare(TempTree& tree, testing::PgTestServer& server) {
  Share s{tree.path("share"), "", tree.path("stderr.txt"), tree.path("server.db")};
  std::ofstream(tree.path(".config/velmora/indexes.conf"))
      << "files = " << server.conninfo() << "\nfiles.mount = " << s.path << " -> " << s.path << "\n";
  s.env = "XDG_CONFIG_HOME=" + testing::ShellQuote(tree.path(".config")) +
          " XDG_CACHE_HOME=" + testing::ShellQuote(tree.path(".cache")) + " ";
  return s;
}

TEST(ServerIndexBlackbox, TheServerWritesItsIndexAndClientsSearchItUntilItGoesAway) {
  std::string why;
  auto server = testing::PgTestServer::Start(&why);
  if (!server) GTEST_SKIP() << why;
  TempTree tree({"share/docs/report 1.txt=harbour lights", "share/docs/notes.md=quiet", "share/other.txt=ledger",
                 ".config/velmora/", ".cache/"});
  const auto [share, env, err, server_db] = ServerShare(tree, *server);

  auto run = RunProgram(TROVIX_CLI_PATH, {"--index", server_db, "index", "add", share, "--server", "files"}, err, env);
  ASSERT_EQ(run.status, 0) << run.out << ReadWholeFile(err);
  EXPECT_NE(run.out.find("files: "), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("(first build)"), std::string::npos) << run.out;
  // Straight into the server: no local index is made on the way.
  EXPECT_FALSE(std::filesystem::exists(server_db));

  // A client with no index of its own asks the server by its name.
  const std::string client_db = tree.path("client.db");
  run = RunProgram(TROVIX_CLI_PATH, {"--index", client_db, "search", "//files" + share + "/docs", "-r", "name: report"},
                   err, env);
  EXPECT_EQ(run.status, 0) << ReadWholeFile(err);
  EXPECT_EQ(run.out, "//files" + share + "/docs/report 1.txt\n") << ReadWholeFile(err);

  // Changes reach the server with the next update.
  std::filesystem::remove(tree.path("share/docs/report 1.txt"));
  tree.File("share/docs/report 2.txt", "harbour");
  run = RunProgram(TROVIX_CLI_PATH, {"--index", server_db, "index", "update", "--server", "files"}, err, env);
  ASSERT_EQ(run.status, 0) << run.out << ReadWholeFile(err);
  EXPECT_NE(run.out.find("1 removed"), std::string::npos) << run.out;
  run = RunProgram(TROVIX_CLI_PATH, {"--index", client_db, "search", share, "-r", "contents: harbour"}, err, env);
  EXPECT_EQ(run.out, share + "/docs/report 2.txt\n") << ReadWholeFile(err);

  // A server that is gone: the mounted share is walked, and the user is told why.
  server->Stop();
  run = RunProgram(TROVIX_CLI_PATH, {"--index", client_db, "search", share, "-r", "contents: harbour"}, err, env);
  EXPECT_EQ(run.out, share + "/docs/report 2.txt\n");
  EXPECT_NE(ReadWholeFile(err).find("robust search"), std::string::npos) << ReadWholeFile(err);
  // An unknown name is said plainly.
  run = RunProgram(TROVIX_CLI_PATH, {"--index", server_db, "index", "update", "--server", "nowhere"}, err, env);
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(ReadWholeFile(err).find("names no server nowhere"), std::string::npos) << ReadWholeFile(err);
}

bool Eventually(const std::function<bool()>& done) { return testing::Eventually(done, std::chrono::seconds(15)); }

TEST(ServerIndexBlackbox, AWatchOnThePartitionedServerIndexFollowsTheShareUntilItIsStopped) {
  std::string why;
  auto server = testing::PgTestServer::Start(&why);
  if (!server) GTEST_SKIP() << why;
  TempTree tree({"share/docs/notes.md=quiet", "share/old name.txt=ledger", "share/gone.txt=harbour",
                 ".config/velmora/", ".cache/"});
  const auto [share, env, err, server_db] = ServerShare(tree, *server);
  auto cli = [&](std::vector<std::string> args) {
    args.insert(args.begin(), {"--index", server_db});
    return RunProgram(TROVIX_CLI_PATH, args, err, env);
  };
  auto run = cli({"index", "add", share, "--server", "files"});
  ASSERT_EQ(run.status, 0) << run.out << ReadWholeFile(err);
  run = cli({"index", "partition", "--server", "files"});
  ASSERT_EQ(run.status, 0) << ReadWholeFile(err);
  EXPECT_EQ(run.out, "files: partitioned by share (1 share(s))\n");
  EXPECT_EQ(cli({"index", "partition", "--server", "files"}).status, 2);
  EXPECT_NE(ReadWholeFile(err).find("partitioned by share already"), std::string::npos) << ReadWholeFile(err);

  const std::string watch_err = tree.path("watch.txt");
  const pid_t watch = SpawnProgram(TROVIX_CLI_PATH, {"--index", server_db, "index", "watch", "--server", "files"},
                                   watch_err, env);
  ASSERT_GT(watch, 0);
  // Changes made before the folders are watched would wait for the next rescan.
  ASSERT_TRUE(Eventually([&] { return ReadWholeFile(watch_err).find("watch: watching ") != std::string::npos; }))
      << ReadWholeFile(watch_err);
  tree.File("share/docs/fresh.txt", "lantern at the quay");
  std::filesystem::rename(tree.path("share/old name.txt"), tree.path("share/docs/new name.txt"));
  std::filesystem::remove(tree.path("share/gone.txt"));
  // Through the server's own name (every file, which only the server can tell), and through
  // the mounted share (where the walk would find the same: a notice would say it walked).
  const std::string everything = "size: >= 0";
  const std::string remote = "//files" + share;
  const std::vector<std::string> expected = {remote + "/docs/fresh.txt", remote + "/docs/new name.txt",
                                             remote + "/docs/notes.md"};
  auto listed = [&] { return testing::SortedLines(cli({"search", remote, "-r", everything}).out); };
  EXPECT_TRUE(Eventually([&] { return listed() == expected; })) << ::testing::PrintToString(listed()) << ReadWholeFile(err)
                                                                  << ReadWholeFile(watch_err);
  run = cli({"search", share, "-r", "contents: lantern"});
  EXPECT_EQ(run.out, share + "/docs/fresh.txt\n");
  EXPECT_EQ(ReadWholeFile(err).find("did not answer"), std::string::npos) << ReadWholeFile(err);

  // Ctrl+C ends the watch cleanly, and its hold on the index with it.
  kill(watch, SIGINT);
  int status = -1;
  const bool ended = Eventually([&] { return waitpid(watch, &status, WNOHANG) == watch; });
  if (!ended) kill(watch, SIGKILL), waitpid(watch, &status, 0);
  ASSERT_TRUE(ended);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status << ReadWholeFile(watch_err);
  EXPECT_EQ(cli({"index", "update", "--server", "files"}).status, 0) << ReadWholeFile(err);
}

// Ctrl+C while the update's statement waits on the server (another session holds the texts,
// half way through a batch): the update ends at once as interrupted, its statement ends on the
// server too, its batch is undone, and the next update does the work.
// Ctrl+C while a statement of the update, or of a folder's removal, waits on the server (here
// for a lock another session holds): the program is back at once with its own status, its
// statement is gone from the server and what it was doing is undone; the next run does it.
TEST(ServerIndexBlackbox, CtrlCEndsAStatementWaitingOnTheServerAndUndoesIt) {
  using namespace std::chrono_literals;
  std::string why;
  auto server = testing::PgTestServer::Start(&why);
  if (!server) GTEST_SKIP() << why;
  TempTree tree({"share/docs/a.txt=harbour", "share/docs/b.txt=quiet", ".config/velmora/", ".cache/"});
  const auto [share, env, err, server_db] = ServerShare(tree, *server);
  auto cli = [&](std::vector<std::string> args) {
    args.insert(args.begin(), {"--index", server_db});
    return RunProgram(TROVIX_CLI_PATH, args, err, env);
  };
  ASSERT_EQ(cli({"index", "add", share, "--server", "files"}).status, 0) << ReadWholeFile(err);
  auto psql = [&](const std::string& sql) {
    std::string out;
    EXPECT_EQ(server->Psql(sql, &out), 0) << out;
    return out;
  };
  const std::string rows_sql =
      "SELECT encode(folder, 'escape') || '/' || encode(name, 'escape') || ' ' || coalesce(size::text, '-') || ' ' || "
      "state FROM items ORDER BY 1";
  auto others = [&](const std::string& what) {
    return psql("SELECT count(*) FROM pg_stat_activity WHERE backend_type = 'client backend' AND "
                "pid <> pg_backend_pid() AND " + what);
  };
  // Runs the command while `table` is locked by another session, stops it once it waits for
  // the lock, and checks that nothing changed.
  auto interrupted = [&](const char* table, std::vector<std::string> args) {
    SCOPED_TRACE(args[1]);
    const std::string before = psql(rows_sql);
    std::string error;
    auto holder = engine::index::PgConnection::Open(server->conninfo(), 5s, &error);
    ASSERT_TRUE(holder && holder->Exec(std::string("BEGIN; LOCK TABLE ") + table + " IN ACCESS EXCLUSIVE MODE", &error))
        << error;
    args.insert(args.begin(), {"--index", server_db});
    const pid_t run = SpawnProgram(TROVIX_CLI_PATH, args, err, env);
    ASSERT_GT(run, 0);
    ASSERT_TRUE(Eventually([&] { return others("wait_event_type = 'Lock'") == "1\n"; })) << ReadWholeFile(err);
    const auto asked = std::chrono::steady_clock::now();
    kill(run, SIGINT);
    int status = -1;
    const bool ended = Eventually([&] { return waitpid(run, &status, WNOHANG) == run; });
    if (!ended) kill(run, SIGKILL), waitpid(run, &status, 0);
    ASSERT_TRUE(ended);
    EXPECT_LT(std::chrono::steady_clock::now() - asked, 2s);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 130) << status << ReadWholeFile(err);
    EXPECT_NE(ReadWholeFile(err).find("interrupted"), std::string::npos) << ReadWholeFile(err);
    // Its statement is gone from the server while the lock is still held, and nothing changed.
    EXPECT_TRUE(Eventually([&] { return others("state = 'active'") == "0\n"; }));
    ASSERT_TRUE(holder->Exec("ROLLBACK", &error)) << error;
    EXPECT_EQ(psql(rows_sql), before);
  };

  tree.File("share/docs/a.txt", "harbour lights, and longer now");
  tree.File("share/docs/c.txt", "lantern");
  std::filesystem::remove(tree.path("share/docs/b.txt"));
  interrupted("texts", {"index", "update", "--server", "files"});
  ASSERT_EQ(cli({"index", "update", "--server", "files"}).status, 0) << ReadWholeFile(err);
  const std::string everything = "size: >= 0";
  std::vector<std::string> walked = testing::SortedLines(cli({"search", share, "-r", everything, "--robust"}).out);
  for (std::string& line : walked) line = "//files" + line;
  EXPECT_EQ(testing::SortedLines(cli({"search", "//files" + share, "-r", everything}).out), walked);
  EXPECT_EQ(cli({"search", share, "-r", "contents: lights"}).out, share + "/docs/a.txt\n");

  interrupted("texts", {"index", "remove", share, "--server", "files"});
  ASSERT_EQ(cli({"index", "remove", share, "--server", "files"}).status, 0) << ReadWholeFile(err);
  EXPECT_EQ(psql("SELECT count(*) FROM items"), "0\n");
}

}  // namespace
}  // namespace trovix
