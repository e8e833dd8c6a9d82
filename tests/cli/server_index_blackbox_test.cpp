// A file server's shared index as users meet it: the server's `index add DIR --server NAME`
// and `index update --server NAME`, clients searching //NAME/path and a mounted share, and a
// server that went away, through the console program and a real PostgreSQL server.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/support/pg_server.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix {
namespace {

using testing::ReadWholeFile;
using testing::RunProgram;
using testing::TempTree;

TEST(ServerIndexBlackbox, TheServerWritesItsIndexAndClientsSearchItUntilItGoesAway) {
  std::string why;
  auto server = testing::PgTestServer::Start(&why);
  if (!server) GTEST_SKIP() << why;
  TempTree tree({"share/docs/report 1.txt=harbour lights", "share/docs/notes.md=quiet", "share/other.txt=ledger",
                 ".config/velmora/", ".cache/"});
  const std::string share = tree.path("share");
  std::ofstream(tree.path(".config/velmora/indexes.conf"))
      << "files = " << server->conninfo() << "\nfiles.mount = " << share << " -> " << share << "\n";
  const std::string env = "XDG_CONFIG_HOME=" + testing::ShellQuote(tree.path(".config")) +
                          " XDG_CACHE_HOME=" + testing::ShellQuote(tree.path(".cache")) + " ";
  const std::string err = tree.path("stderr.txt");
  const std::string server_db = tree.path("server.db");

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

}  // namespace
}  // namespace trovix
