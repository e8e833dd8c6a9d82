// What the indexer takes of the machine, as a user sees it: idle priority unless asked
// otherwise, `index pause` and `resume` noticed by a running watch, `--budget`, and what
// `index status` says about it all.
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "tests/support/index_fixtures.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix {
namespace {

using testing::Eventually;
using testing::RunProgram;
using testing::SpawnProgram;
using testing::TempTree;

int Stop(pid_t pid) {
  kill(pid, SIGTERM);
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct Indexed {
  TempTree tree{{"docs/a.txt=alpha", "docs/sub/b.txt=beta", "docs/sub/c.md=gamma"}};
  std::string db = tree.path("index.db");

  testing::ProgramRun Cli(std::vector<std::string> args) {
    args.insert(args.begin(), {"--index", db});
    return RunProgram(TROVIX_CLI_PATH, args, tree.path("err.txt"));
  }
  std::string Status() { return Cli({"index", "status"}).out; }
  bool Found(const std::string& name) {
    return Cli({"search", tree.path("docs"), "-r", "name: " + name}).out.find(name) != std::string::npos;
  }
};

TEST(IndexCost, AWatchRunsAtIdlePriorityPausesWhenAskedAndCatchesUpOnResume) {
  Indexed ix;
  ASSERT_EQ(ix.Cli({"index", "add", ix.tree.path("docs")}).status, 0);
  ASSERT_EQ(ix.Cli({"index", "pause"}).status, 0);
  const pid_t watch = SpawnProgram(TROVIX_CLI_PATH, {"--index", ix.db, "index", "watch"});
  // Paused from before it started: the pause survives between runs.
  EXPECT_TRUE(Eventually([&] { return ix.Status().find("watching, paused: paused by the user") != std::string::npos; }))
      << ix.Status();
  EXPECT_EQ(sched_getscheduler(watch), SCHED_IDLE);
  EXPECT_EQ(getpriority(PRIO_PROCESS, static_cast<id_t>(watch)), 19);

  ASSERT_EQ(ix.Cli({"index", "resume"}).status, 0);
  EXPECT_TRUE(Eventually([&] { return ix.Status().find("watching, idle") != std::string::npos; })) << ix.Status();
  ASSERT_EQ(ix.Cli({"index", "pause"}).status, 0);
  // The watch itself says it has noticed (the switch alone is said at once).
  EXPECT_TRUE(Eventually([&] { return ix.Status().find("watching, paused: paused by the user") != std::string::npos; }));
  ix.tree.File("docs/sub/late.txt", "made during the pause");
  EXPECT_TRUE(Eventually([&] { return ix.Status().find("behind:      ") != std::string::npos &&
                                      ix.Status().find("behind:      no") == std::string::npos; }))
      << ix.Status();
  ASSERT_EQ(ix.Cli({"index", "resume"}).status, 0);
  EXPECT_TRUE(Eventually([&] { return ix.Status().find("behind:      no") != std::string::npos; })) << ix.Status();
  EXPECT_TRUE(ix.Found("late.txt"));
  EXPECT_EQ(Stop(watch), 0);
  const std::string after = ix.Status();
  EXPECT_NE(after.find("indexer:     not running"), std::string::npos) << after;
  EXPECT_NE(after.find("cpu today:   "), std::string::npos) << after;
}

TEST(IndexCost, NormalPriorityAndBudgetAreOptionsAndBadBudgetsAreRefused) {
  Indexed ix;
  ASSERT_EQ(ix.Cli({"index", "add", ix.tree.path("docs")}).status, 0);
  for (const std::string bad : {"0", "101", "ten", "-5", ""}) {
    auto run = ix.Cli({"index", "update", "--budget", bad});
    EXPECT_EQ(run.status, 2) << bad;
    EXPECT_NE(run.err.find("--budget"), std::string::npos) << run.err;
  }
  EXPECT_EQ(ix.Cli({"index", "update", "--budget"}).status, 2);
  auto run = ix.Cli({"index", "update", "--budget", "50%", "--normal-priority"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(ix.Found("b.txt")) << run.out;
  const std::string json = ix.Cli({"index", "status", "--json"}).out;
  EXPECT_NE(json.find("\"indexer\":{\"running\":false,\"paused_by_user\":false"), std::string::npos) << json;
  EXPECT_NE(json.find("\"cpu_seconds_today\":"), std::string::npos) << json;

  const pid_t watch =
      SpawnProgram(TROVIX_CLI_PATH, {"--index", ix.db, "index", "watch", "--normal-priority", "--budget=30"});
  EXPECT_TRUE(Eventually([&] { return ix.Status().find("watching, idle") != std::string::npos; })) << ix.Status();
  EXPECT_EQ(sched_getscheduler(watch), SCHED_OTHER);
  EXPECT_EQ(getpriority(PRIO_PROCESS, static_cast<id_t>(watch)), getpriority(PRIO_PROCESS, 0));
  EXPECT_EQ(Stop(watch), 0);
}

}  // namespace
}  // namespace trovix
