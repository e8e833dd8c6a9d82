// The test server itself: it starts as a user PostgreSQL accepts, answers on its socket only,
// has the extension the shared index needs, and is gone when stopped.
#include <signal.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "tests/support/pg_server.h"

namespace trovix::testing {
namespace {

TEST(PgTestServer, AnswersOnItsSocketOnlyAndStopsForGood) {
  std::string why;
  auto server = PgTestServer::Start(&why);
  if (!server) GTEST_SKIP() << why;
  std::string out;
  ASSERT_EQ(server->Psql("SHOW listen_addresses", &out), 0) << out;
  EXPECT_EQ(out, "\n");
  ASSERT_EQ(server->Psql("CREATE EXTENSION IF NOT EXISTS pg_trgm; SELECT similarity('abc', 'abd') > 0", &out), 0)
      << out;
  EXPECT_EQ(out, "t\n");
  ASSERT_EQ(server->Psql("SHOW server_encoding", &out), 0);
  EXPECT_EQ(out, "UTF8\n");
  const std::string socket = server->folder() + "/.s.PGSQL.5432";
  struct stat st {};
  EXPECT_EQ(stat(socket.c_str(), &st), 0);
  server->Stop();
  EXPECT_FALSE(server->running());
  EXPECT_NE(server->Psql("SELECT 1"), 0);
}

}  // namespace
}  // namespace trovix::testing
