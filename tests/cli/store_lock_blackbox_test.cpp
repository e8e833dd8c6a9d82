// trovix-cli changing the settings store while other processes do the same, and meeting input
// that is not a settings file or rules file at all: pipes, devices, damaged text, line breaks
// and numbers that do not fit.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fcntl.h>
#include <string>
#include <vector>

#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::cli {
namespace {

using testing::Occurrences;
using testing::ProgramRun;
using testing::ReadWholeFile;
using testing::ShellQuote;

void WriteFile(const std::string& path, const std::string& bytes) {
  FILE* f = std::fopen(path.c_str(), "wb");
  ASSERT_NE(f, nullptr) << path;
  std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
}

class StoreLock : public ::testing::Test {
 protected:
  StoreLock() : tree_({"data/a.txt=1", "config/", "pipe.ini|fifo", "rules|fifo"}) {}

  // Every run is killed after 20 s, so a read that never ends fails the test instead of hanging.
  ProgramRun Cli(std::vector<std::string> args) {
    args.push_back("--settings");
    args.push_back(Ini());
    return Bare(args);
  }
  ProgramRun Bare(const std::vector<std::string>& args) {
    return testing::RunProgram(TROVIX_CLI_PATH, args, tree_.path("stderr.txt"),
                               "XDG_CONFIG_HOME=" + ShellQuote(tree_.path("config")) +
                                   " timeout -s KILL 20 ");
  }
  std::string Ini() const { return tree_.path("settings.ini"); }

  testing::TempTree tree_;
};

TEST_F(StoreLock, EightConcurrentSavesAllSurviveEveryTime) {
  setenv("XDG_CONFIG_HOME", tree_.path("config").c_str(), 1);
  constexpr int kRounds = 50, kWriters = 8;
  for (int round = 0; round < kRounds; ++round) {
    const std::string ini = tree_.path("round" + std::to_string(round) + ".ini");
    std::vector<pid_t> pids;
    for (int w = 0; w < kWriters; ++w) {
      const std::string n = std::to_string(w);
      pids.push_back(testing::SpawnProgram(TROVIX_CLI_PATH,
                                           {"saved", "save", "search" + n, "-r", "name: *.k" + n, "--settings", ini}));
      ASSERT_GT(pids.back(), 0);
    }
    for (pid_t pid : pids) {
      int status = 0;
      ASSERT_EQ(waitpid(pid, &status, 0), pid);
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "round " << round;
    }
    const std::string text = ReadWholeFile(ini);
    for (int w = 0; w < kWriters; ++w) {
      ASSERT_EQ(Occurrences(text, "szName=search" + std::to_string(w) + "\n"), 1u)
          << "round " << round << "\n" << text;
    }
    // The lists are written as at the program's exit: a first use gets the default map area.
    ASSERT_NE(text.find("New York"), std::string::npos) << text;
    ASSERT_EQ(Occurrences(text, ".tmp"), 0u);
  }
  unsetenv("XDG_CONFIG_HOME");
}

TEST_F(StoreLock, LockHeldElsewhereNamesItsHolderAndSavesNothing) {
  ASSERT_EQ(Cli({"saved", "save", "first", "-r", "name: *.a"}).status, 0);
  const std::string before = ReadWholeFile(Ini());
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  pid_t holder = fork();
  ASSERT_GE(holder, 0);
  if (holder == 0) {
    int fd = open((Ini() + ".lock").c_str(), O_RDWR | O_CREAT, 0666);
    if (fd < 0 || flock(fd, LOCK_EX) != 0) _exit(1);
    std::string pid = std::to_string(getpid());
    if (ftruncate(fd, 0) != 0 || write(fd, pid.data(), pid.size()) < 0) _exit(1);
    if (write(ready[1], "x", 1) != 1) _exit(1);
    sleep(60);
    _exit(0);
  }
  char byte;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  const auto start = std::chrono::steady_clock::now();
  ProgramRun blocked = Cli({"saved", "save", "second", "-r", "name: *.b"});
  const auto waited = std::chrono::steady_clock::now() - start;
  ProgramRun set = Cli({"settings", "set", "szColour", "red"});
  kill(holder, SIGKILL);
  waitpid(holder, nullptr, 0);
  close(ready[0]);
  close(ready[1]);

  EXPECT_EQ(blocked.status, 2);
  EXPECT_NE(blocked.err.find("process " + std::to_string(holder)), std::string::npos) << blocked.err;
  EXPECT_GE(waited, std::chrono::milliseconds(4500));
  EXPECT_LT(waited, std::chrono::milliseconds(9000));
  EXPECT_EQ(set.status, 2);
  EXPECT_EQ(ReadWholeFile(Ini()), before);

  // The holder is gone, and with it the lock.
  EXPECT_EQ(Cli({"saved", "save", "second", "-r", "name: *.b"}).status, 0);
}

TEST_F(StoreLock, PipesAndDevicesAreRefusedAtOnce) {
  const std::string pipe = tree_.path("pipe.ini");
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"--settings", pipe, "saved", "list"},
           {"--settings", pipe, "search", tree_.path("data")},
           {"saved", "save", "x", "-r", "name: *.a", "--settings", pipe},
           {"/C", "/G:x", "/I:" + pipe}}) {
    SCOPED_TRACE(args[2]);
    ProgramRun run = Bare(args);
    EXPECT_EQ(run.status, 2) << run.err;
    EXPECT_NE(run.err.find("not a regular file"), std::string::npos) << run.err;
  }
  struct stat st;
  ASSERT_EQ(stat(tree_.path("pipe.ini").c_str(), &st), 0);
  EXPECT_TRUE(S_ISFIFO(st.st_mode)) << "the pipe must be neither replaced nor moved aside";

  for (const std::string& rules : {tree_.path("rules"), std::string("/dev/zero")}) {
    SCOPED_TRACE(rules);
    ProgramRun run = Cli({"saved", "save", "x", "--rules-file", rules});
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find("not a regular file"), std::string::npos) << run.err;
    ProgramRun search = Cli({"search", tree_.path("data"), "--rules-file", rules});
    EXPECT_EQ(search.status, 2);
  }
  // A rules file over the size limit is refused without reading it through.
  const std::string big = tree_.path("big.rules");
  WriteFile(big, "");
  ASSERT_EQ(truncate(big.c_str(), (16 << 20) + 1), 0);
  ProgramRun large = Cli({"saved", "save", "x", "--rules-file", big});
  EXPECT_EQ(large.status, 2);
  EXPECT_NE(large.err.find("larger than 16 MiB"), std::string::npos) << large.err;
}

TEST_F(StoreLock, DamagedSettingsAreKeptAsideNeverOverwritten) {
  const std::string first = "[general]\nszTextViewerPath=caf\xE9\n";
  const std::string second = "[SavedSearch\\0]\nszName=\xFF\xFE\n";
  WriteFile(Ini(), first);
  ProgramRun run = Cli({"saved", "save", "a", "-r", "name: *.a"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(Occurrences(run.err, "not valid UTF-8"), 1u) << run.err;
  EXPECT_EQ(ReadWholeFile(Ini() + ".bad.1"), first);
  EXPECT_NE(ReadWholeFile(Ini()).find("szName=a\n"), std::string::npos);

  WriteFile(Ini(), second);
  run = Cli({"settings", "set", "nThumbSize", "64"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(ReadWholeFile(Ini() + ".bad.1"), first);
  EXPECT_EQ(ReadWholeFile(Ini() + ".bad.2"), second);
  EXPECT_EQ(ReadWholeFile(Ini()).find("\xFF"), std::string::npos);

  // A read-only command reports the damage but moves nothing.
  WriteFile(Ini(), first);
  run = Cli({"saved", "list"});
  EXPECT_EQ(Occurrences(run.err, "not valid UTF-8"), 1u) << run.err;
  EXPECT_EQ(access((Ini() + ".bad.3").c_str(), F_OK), -1);
}

TEST_F(StoreLock, LineBreaksInNamesAndValuesAreRefused) {
  ASSERT_EQ(Cli({"settings", "set", "szColour", "red"}).status, 0);
  const std::string before = ReadWholeFile(Ini());
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"settings", "set", "szColour", "blue\nnUsecount=9"},
           {"settings", "set", "szCol\rour", "blue"},
           {"saved", "save", "two\nlines", "-r", "name: *.a"},
           {"saved", "save", "x", "--root", "/tmp\r", "-r", "name: *.a"}}) {
    SCOPED_TRACE(args[3]);
    ProgramRun run = Cli(args);
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find("line break"), std::string::npos) << run.err;
  }
  EXPECT_EQ(ReadWholeFile(Ini()), before);
}

TEST_F(StoreLock, MalformedNumbersNameTheirOption) {
  const std::string root = tree_.path("data");
  for (const auto& [option, text] : std::vector<std::pair<std::string, std::string>>{
           {"--threads", "1x"}, {"--threads", "0"}, {"--limit", "-3"},
           {"--limit", "9999999999999999999999"}, {"--max-extract-size", "4294967296"}}) {
    SCOPED_TRACE(option + " " + text);
    ProgramRun run = Bare({"search", root, "-r", "name: *.txt", option, text});
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find(option), std::string::npos) << run.err;
    EXPECT_TRUE(run.out.empty());
  }
  ProgramRun excerpt = Bare({"text", tree_.path("data/a.txt"), "--excerpt", "12abc"});
  EXPECT_EQ(excerpt.status, 2);
  EXPECT_NE(excerpt.err.find("--excerpt"), std::string::npos) << excerpt.err;
}

TEST_F(StoreLock, TemporariesOfKilledWritersAreCleanedUp) {
  pid_t gone = fork();
  if (gone == 0) _exit(0);
  ASSERT_GT(gone, 0);
  waitpid(gone, nullptr, 0);
  const std::string dead = Ini() + ".tmp" + std::to_string(gone) + "_0";
  const std::string old = Ini() + ".tmp" + std::to_string(getpid()) + "_3";
  const std::string fresh = Ini() + ".tmp" + std::to_string(getpid()) + "_4";
  const std::string other = Ini() + ".tmpnotes";
  for (const std::string& path : {dead, old, fresh, other}) WriteFile(path, "[half");
  struct timeval two_minutes_ago[2];
  gettimeofday(&two_minutes_ago[0], nullptr);
  two_minutes_ago[0].tv_sec -= 120;
  two_minutes_ago[1] = two_minutes_ago[0];
  ASSERT_EQ(utimes(old.c_str(), two_minutes_ago), 0);

  ASSERT_EQ(Cli({"saved", "save", "a", "-r", "name: *.a"}).status, 0);
  EXPECT_EQ(access(dead.c_str(), F_OK), -1) << "its writer has died";
  EXPECT_EQ(access(old.c_str(), F_OK), -1) << "older than a minute";
  EXPECT_EQ(access(fresh.c_str(), F_OK), 0) << "its writer may still be at work";
  EXPECT_EQ(access(other.c_str(), F_OK), 0) << "not a name this program makes";
}

}  // namespace
}  // namespace trovix::cli
