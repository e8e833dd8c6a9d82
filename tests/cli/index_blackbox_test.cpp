// The index as a user keeps it: trovix-cli index add / update / status, searches answered from
// it, and an indexer killed at random moments that leaves a sound database behind.
#include <signal.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <regex>
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include "platform/sqlite_statement.h"
#include "tests/support/loop_drive.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix {
namespace {

using testing::ProgramRun;
using testing::ReadWholeFile;
using testing::RunProgram;
using testing::SpawnProgram;
using testing::SortedLines;
using testing::TempTree;

// Every path below `root`, as the index should hold them (the default exclusions aside).
std::set<std::string> PathsOnDisk(const std::string& root) {
  std::set<std::string> out;
  for (auto it = std::filesystem::recursive_directory_iterator(root); it != std::filesystem::end(it); ++it)
    out.insert(it->path().string());
  return out;
}

std::set<std::string> PathsInIndex(const std::string& db_path, std::string* integrity, int64_t* pending) {
  std::set<std::string> out;
  sqlite3* db = nullptr;
  EXPECT_EQ(sqlite3_open_v2(db_path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
  {
    platform::Statement check(db, "PRAGMA integrity_check");
    if (check.Step() == SQLITE_ROW) *integrity = check.Text(0);
    platform::Statement count(db, "SELECT count(*) FROM items WHERE state=0");
    if (count.Step() == SQLITE_ROW) *pending = count.Int(0);
    platform::Statement rows(db, "SELECT f.path, i.name FROM items i JOIN folders f ON f.id=i.parent");
    while (rows.Step() == SQLITE_ROW) out.insert(std::string(rows.Text(0)) + "/" + std::string(rows.Text(1)));
  }
  sqlite3_close(db);
  return out;
}

TEST(IndexCommand, AnIndexerKilledAtRandomMomentsLeavesASoundIndexThatTheNextUpdateCompletes) {
  TempTree tree;
  std::mt19937 random(20261125);
  auto file_text = [&](int n) { return "line " + std::to_string(n) + " of a plain text file\n"; };
  for (int d = 1; d < 20; ++d)
    for (int f = 0; f < 60; ++f)
      tree.File("data/d" + std::to_string(d) + "/sub/f" + std::to_string(f) + ".txt", file_text(f));
  const std::string db = tree.path("index.db");
  const std::string root = tree.path("data");
  ASSERT_EQ(RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "add", root}).status, 0);

  int kills = 0;
  for (int round = 0; round < 200; ++round) {
    // Something to do for every round: files made, changed and removed.
    const std::string folder = root + "/d" + std::to_string(1 + random() % 19) + "/sub";
    std::filesystem::create_directories(folder);
    tree.File(folder.substr(tree.root().size() + 1) + "/new" + std::to_string(round) + ".txt", file_text(round));
    if (round % 7 == 3) std::filesystem::remove_all(root + "/d" + std::to_string(1 + random() % 19));
    pid_t pid = SpawnProgram(TROVIX_CLI_PATH, {"--index", db, "index", "update"});
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 60000));
    if (kill(pid, SIGKILL) == 0) ++kills;
    int status = 0;
    waitpid(pid, &status, 0);
  }
  EXPECT_GE(kills, 200);
  std::string integrity;
  int64_t pending = -1;
  PathsInIndex(db, &integrity, &pending);
  EXPECT_EQ(integrity, "ok");

  ASSERT_EQ(RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "update"}).status, 0);
  const std::set<std::string> indexed = PathsInIndex(db, &integrity, &pending);
  EXPECT_EQ(integrity, "ok");
  EXPECT_EQ(pending, 0);
  EXPECT_EQ(indexed, PathsOnDisk(root));

}

TEST(IndexCommand, SearchesInsideTheIndexAreAnsweredFromItAndRobustWalks) {
  TempTree tree({"docs/report.txt=annual numbers", "docs/notes.md=plain", "docs/.hidden/secret.txt=x",
                 "other/report.txt=elsewhere"});
  const std::string db = tree.path("index.db");
  ASSERT_EQ(RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "add", tree.path("docs")}).status, 0);
  ASSERT_EQ(RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "update"}).status, 0);
  const std::string err = tree.path("err.txt");
  auto run = RunProgram(TROVIX_CLI_PATH, {"--index", db, "search", tree.path("docs"), "-r", "name: report"}, err);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, tree.path("docs/report.txt") + "\n");
  EXPECT_NE(run.err.find("answered from the index"), std::string::npos) << run.err;

  // A file made after the update: the index does not know it, --robust finds it.
  tree.File("docs/report2.txt", "later");
  run = RunProgram(TROVIX_CLI_PATH, {"--index", db, "search", tree.path("docs"), "-r", "name: report"}, err);
  EXPECT_EQ(SortedLines(run.out), std::vector<std::string>{tree.path("docs/report.txt")});
  run = RunProgram(TROVIX_CLI_PATH, {"--index", db, "search", tree.path("docs"), "-r", "name: report", "--robust"},
                   err);
  EXPECT_EQ(SortedLines(run.out),
            (std::vector<std::string>{tree.path("docs/report.txt"), tree.path("docs/report2.txt")}));
  EXPECT_EQ(run.err.find("answered from the index"), std::string::npos);

  // Hidden items are left out, as the walk leaves them, unless asked for.
  run = RunProgram(TROVIX_CLI_PATH, {"--index", db, "search", tree.path("docs"), "-r", "name: secret"}, err);
  EXPECT_EQ(run.status, 1);
  run = RunProgram(TROVIX_CLI_PATH, {"--index", db, "search", tree.path("docs"), "-r", "name: secret", "-H"}, err);
  EXPECT_EQ(run.out, tree.path("docs/.hidden/secret.txt") + "\n");

  // Outside the index the folders are walked, with the advice to index them.
  run = RunProgram(TROVIX_CLI_PATH, {"--index", db, "search", tree.path("other"), "-r", "name: report"}, err);
  EXPECT_EQ(run.out, tree.path("other/report.txt") + "\n");
  EXPECT_EQ(run.err.find("answered from the index"), std::string::npos);
  EXPECT_NE(run.err.find("not in the index"), std::string::npos) << run.err;

  // Names and text of the user's files are for the user's eyes only.
  struct stat st {};
  ASSERT_EQ(stat(db.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0077, 0u);

  run = RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "status", "--json"});
  EXPECT_NE(run.out.find("\"items\":4,"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("\"roots\":[\"" + tree.path("docs") + "\"]"), std::string::npos) << run.out;
  // Its date as results give theirs: local time with the offset.
  EXPECT_TRUE(std::regex_search(run.out, std::regex(R"re("updated":"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d\d:\d\d")re")))
      << run.out;
}

// The files a contents search could not read are counted by type as the walk counts them:
// the index judges each kind of name once, and names that end alike must not be taken for one
// another (a compressed tar is an archive, not news; a name that is only ".gz" has no type).
TEST(IndexCommand, FilesNotReadAreCountedByTypeAsTheWalkCountsThem) {
  TempTree tree;
  const std::string binary("\x01\x02\0\0\x7f\xfe binary", 14);
  for (const char* name : {"a.gz", "b.GZ", "c.1.gz", "sub/d.1.gz", "e.tar.gz", "f.TAR.GZ", ".gz", ".g.gz", "h.png",
                           "sub/i.PNG", "j", ".k", "l.tgz", "m.x.y.gz"})
    tree.File(std::string("docs/") + name, binary);
  tree.File("docs/note.txt", "a lighthouse");
  const std::string db = tree.path("index.db");
  ASSERT_EQ(RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "add", tree.path("docs")}).status, 0);
  ASSERT_EQ(RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "update"}).status, 0);
  auto not_read = [](const std::string& err) {
    std::vector<std::string> lines;
    for (const std::string& line : SortedLines(err))
      if (line.find("not read") != std::string::npos) lines.push_back(line);
    return lines;
  };
  for (bool hidden : {false, true}) {
    SCOPED_TRACE(hidden ? "hidden items too" : "hidden items left out");
    std::vector<std::string> args = {"--index", db, "search", tree.path("docs"), "-r", "contents: lighthouse"};
    if (hidden) args.push_back("-H");
    const std::string err = tree.path("err.txt");
    const ProgramRun indexed = RunProgram(TROVIX_CLI_PATH, args, err);
    args.push_back("--robust");
    const ProgramRun walked = RunProgram(TROVIX_CLI_PATH, args, err);
    ASSERT_NE(indexed.err.find("answered from the index"), std::string::npos) << indexed.err;
    EXPECT_FALSE(not_read(walked.err).empty()) << walked.err;
    EXPECT_EQ(not_read(indexed.err), not_read(walked.err)) << indexed.err << walked.err;
  }
}

TEST(IndexCommand, NamesThatAreNotUtf8AreFoundByteForByteAndLeaveCleanly) {
  TempTree tree({"d/good.txt"});
  const std::string bad = std::string("bad\xff") + "name.txt";
  const std::string folder = std::string("fold\xfe") + "er";
  tree.File("d/" + bad, "");
  tree.File("d/" + folder + "/inner.txt", "");
  const std::string db = tree.path("index.db");
  ASSERT_EQ(RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "add", tree.path("d")}).status, 0);
  ASSERT_EQ(RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "update"}).status, 0);
  auto run = RunProgram(TROVIX_CLI_PATH, {"--index", db, "search", tree.path("d"), "-r", "name: *.txt"});
  EXPECT_EQ(SortedLines(run.out), (std::vector<std::string>{tree.path("d/" + bad), tree.path("d/" + folder + "/inner.txt"),
                                                            tree.path("d/good.txt")}));
  // Their rows (and their entries in the names table) go as cleanly as any other.
  tree.Remove("d/" + bad);
  tree.Remove("d/" + folder);
  ASSERT_EQ(RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "update"}).status, 0);
  std::string integrity;
  int64_t pending = -1;
  EXPECT_EQ(PathsInIndex(db, &integrity, &pending), PathsOnDisk(tree.path("d")));
  EXPECT_EQ(integrity, "ok");
}

TEST(IndexCommand, AFullDiskStopsAnUpdateWithAMessageAndTheNextUpdateFinishesIt) {
  TempTree tree;
  for (int i = 0; i < 3000; ++i) tree.File("data/f" + std::to_string(i) + ".txt", "a text file with words " + std::to_string(i));
  const std::string db = tree.path("index.db");
  ASSERT_EQ(RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "add", tree.path("data")}).status, 0);
  // A file-size limit stands in for a full disk: the writes fail as they would.
  const std::string err = tree.path("err.txt");
  auto run = RunProgram("bash", {"-c", "ulimit -f 100; exec \"$0\" --index \"$1\" index update", TROVIX_CLI_PATH, db},
                        err);
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(run.err.find("could not be brought up to date"), std::string::npos) << run.err;
  std::string integrity;
  int64_t pending = -1;
  PathsInIndex(db, &integrity, &pending);
  EXPECT_EQ(integrity, "ok");
  ASSERT_EQ(RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "update"}).status, 0);
  EXPECT_EQ(PathsInIndex(db, &integrity, &pending), PathsOnDisk(tree.path("data")));
  EXPECT_EQ(pending, 0);
}

TEST(IndexCommand, ASecondWriterIsTurnedAway) {
  TempTree tree({"docs/a.txt=alpha"});
  const std::string db = tree.path("index.db");
  const std::string err = tree.path("err.txt");
  ASSERT_EQ(RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "add", tree.path("docs")}).status, 0);
  ASSERT_EQ(RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "update"}).status, 0);

  pid_t watcher = SpawnProgram(TROVIX_CLI_PATH, {"--index", db, "index", "watch"});
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  auto run = RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "update"}, err);
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(run.err.find("another indexer"), std::string::npos) << run.err;
  kill(watcher, SIGTERM);
  int status = 0;
  waitpid(watcher, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST(IndexCommand, EachDamagedIndexIsKeptWithItsLogAndTheIndexedFoldersSurviveTheRebuild) {
  TempTree tree({"docs/a.txt=alpha", "more/b.txt=beta", "left out/c.txt=gamma"});
  const std::string db = tree.path("index.db");
  for (const char* folder : {"docs", "more"}) {
    ASSERT_EQ(
        RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "add", tree.path(folder)}).status, 0);
  }
  const std::string folders_before =
      RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "list"}).out;
  ASSERT_NE(folders_before.find(tree.path("more")), std::string::npos) << folders_before;
  const std::string err = tree.path("err.txt");
  for (int round = 1; round <= 2; ++round) {
    SCOPED_TRACE(round);
    // A header overwritten: nothing of the file can be read, its folder table neither.
    std::string bytes = ReadWholeFile(db);
    ASSERT_GT(bytes.size(), 100u);
    bytes.replace(0, 100, std::string(100, 'x'));
    tree.File("index.db", bytes);
    const std::string log = "log of round " + std::to_string(round);
    tree.File("index.db-wal", log);
    auto run = RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "update"}, err);
    EXPECT_EQ(run.status, 0) << run.err;
    const std::string aside = db + ".bad." + std::to_string(round);
    EXPECT_NE(run.err.find(aside), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("2 folder(s) were kept"), std::string::npos) << run.err;
    EXPECT_EQ(ReadWholeFile(aside), bytes);
    EXPECT_EQ(ReadWholeFile(aside + "-wal"), log);
    EXPECT_EQ(RunProgram(TROVIX_CLI_PATH, {"--index", db, "index", "list"}).out, folders_before);
  }
  EXPECT_TRUE(std::filesystem::exists(db + ".bad.1"));
  // The rebuilt index answers again once updated.
  auto search = RunProgram(TROVIX_CLI_PATH,
                           {"--index", db, "search", tree.path("more"), "-r", "name: b.txt"});
  EXPECT_EQ(search.out, tree.path("more/b.txt") + "\n");
}

// A drive that is unplugged: trovix-cli lists its catalogue, answers from it with every result
// marked offline and its age said once on stderr, and forgets it when asked.
TEST(IndexCommand, CatalogueOfADriveThatIsNotMounted) {
  if (std::string why = testing::WhyNoMounts("ext4"); !why.empty()) GTEST_SKIP() << "not tested: " << why;
  TempTree tree{{"media/home.txt=x", "other/", "index/"}};
  testing::LoopDrive drive("ext4", tree.path("drive.img"));
  ASSERT_EQ(drive.Make(), "");
  const std::string stick = tree.path("media/stick");
  if (!drive.Mount(stick)) GTEST_SKIP() << "not tested: mount -o loop refused here";
  std::ofstream(stick + "/notes.txt") << "on the stick";
  const std::string db = tree.path("index.db");
  auto cli = [&](std::vector<std::string> args, std::string* err = nullptr) {
    args.insert(args.begin(), {"--index", db});
    ProgramRun run = RunProgram(TROVIX_CLI_PATH, args, tree.path("stderr.txt"));
    if (err != nullptr) *err = ReadWholeFile(tree.path("stderr.txt"));
    return run;
  };
  ASSERT_EQ(cli({"index", "add", tree.path("media")}).status, 0);
  ASSERT_EQ(cli({"index", "update"}).status, 0);
  const std::string status = cli({"index", "status", "--json"}).out;
  const std::smatch found = [&] {
    std::smatch m;
    std::regex_search(status, m, std::regex("\"identity\":\"uuid:([-0-9a-f]+)\",\"fs_type\":\"ext4\",\"mount_point\":\"" +
                                               stick + "\",\"items\":([0-9]+),\"online\":true"));
    return m;
  }();
  ASSERT_EQ(found.size(), 3u) << status;
  const std::string uuid = found[1];
  EXPECT_GE(std::stoi(found[2]), 2);

  drive.Unmount();
  EXPECT_NE(cli({"index", "status"}).out.find(stick + ", " + std::string(found[2]) + " items, offline"),
            std::string::npos);
  std::string err;
  ProgramRun offline = cli({"search", "--offline", "-r", "name: *.txt", "--json"}, &err);
  EXPECT_EQ(offline.status, 0) << err;
  EXPECT_EQ(offline.out, "{\"System.ItemPathDisplay\":\"" + stick + "/notes.txt\",\"offline\":true}\n");
  EXPECT_NE(err.find(stick + " is not mounted"), std::string::npos) << err;
  // The "Online" column, over a root that holds the drive's place and a folder on disk.
  ProgramRun columns = cli({"search", tree.path("media"), "-r", "name: *.txt", "--columns", "path,Online"});
  EXPECT_EQ(SortedLines(columns.out),
            (std::vector<std::string>{tree.path("media/home.txt") + "\tYes", stick + "/notes.txt\tNo", "Path\tOnline"}));
  // --offline takes no roots, and with nothing offline says so.
  EXPECT_EQ(cli({"search", "--offline", tree.path("other"), "-r", "name: *"}).status, 2);

  ASSERT_EQ(cli({"index", "forget", uuid}).status, 0);
  EXPECT_EQ(cli({"index", "status", "--json"}).out.find(uuid), std::string::npos);
  EXPECT_EQ(cli({"search", "--offline", "-r", "name: *.txt"}, &err).status, 1);
  EXPECT_NE(err.find("no catalogue of a drive that is not mounted"), std::string::npos) << err;
  EXPECT_EQ(cli({"index", "forget", uuid}).status, 2);
}

// One search over a drive that is mounted, the catalogue of one that is not, and a folder the
// index does not hold: each root is answered by its own route (the index's answer for the
// first two is no reason to leave the third unsearched), and stderr says which answered what.
TEST(IndexCommand, RootsOfEveryRouteAnswerInOneSearchAndSayWhich) {
  if (std::string why = testing::WhyNoMounts("ext4"); !why.empty()) GTEST_SKIP() << "not tested: " << why;
  TempTree tree{{"media/", "other/loose.txt=x", "index/"}};
  testing::LoopDrive fixed("ext4", tree.path("fixed.img")), stick("ext4", tree.path("stick.img"));
  ASSERT_EQ(fixed.Make(), "");
  ASSERT_EQ(stick.Make(), "");
  const std::string disk = tree.path("media/disk"), away = tree.path("media/stick"), other = tree.path("other");
  if (!fixed.Mount(disk) || !stick.Mount(away)) GTEST_SKIP() << "not tested: mount -o loop refused here";
  std::ofstream(disk + "/ondisk.txt") << "on the drive that stays";
  std::filesystem::create_directory(disk + "/sub");
  std::ofstream(away + "/notes.txt") << "on the stick";
  const std::string db = tree.path("index/index.db");
  auto cli = [&](std::vector<std::string> args, std::string* err) {
    args.insert(args.begin(), {"--index", db});
    ProgramRun run = RunProgram(TROVIX_CLI_PATH, args, tree.path("stderr.txt"));
    *err = ReadWholeFile(tree.path("stderr.txt"));
    return run;
  };
  std::string err;
  ASSERT_EQ(cli({"index", "add", tree.path("media")}, &err).status, 0) << err;
  ASSERT_EQ(cli({"index", "update"}, &err).status, 0) << err;
  stick.Unmount();
  // Written after the update: the index does not know it yet, the walk of `other` would.
  std::ofstream(disk + "/late.txt") << "not indexed yet";
  std::ofstream(other + "/later.txt") << "walked";

  ProgramRun run = cli({"search", disk, away, other, "-r", "name: *.txt", "--columns", "path,Online"}, &err);
  EXPECT_EQ(run.status, 0) << err;
  EXPECT_EQ(SortedLines(run.out), (std::vector<std::string>{disk + "/ondisk.txt\tYes", away + "/notes.txt\tNo",
                                                            other + "/later.txt\tYes", other + "/loose.txt\tYes",
                                                            "Path\tOnline"}));
  for (const std::string& said : {disk + ": answered from the index\n",
                                  away + ": answered from the index's catalogue of a drive that is not mounted\n",
                                  other + ": searched by walking its folders\n", away + " is not mounted"})
    EXPECT_NE(err.find(said), std::string::npos) << said << " not in:\n" << err;

  // Roots that one route answers alike are not listed one by one.
  ASSERT_EQ(cli({"search", disk, disk + "/sub", "-r", "name: *.txt"}, &err).status, 0) << err;
  EXPECT_EQ(err.find(disk + ": answered"), std::string::npos) << err;
  EXPECT_NE(err.find("answered from the index ("), std::string::npos) << err;
}

}  // namespace
}  // namespace trovix
