// Drives that come and go: real ext4 and FAT images the tests make and loop-mount, indexed,
// unmounted, searched from their catalogue, mounted at another folder, searched again and
// forgotten. Mounting needs root and a loop device; without them these tests skip and say why.
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include "engine/search/search_panel.h"
#include "index/index_route.h"
#include "index/index_watch.h"
#include "index/indexer.h"
#include "index/sqlite/index_database.h"
#include "index/sqlite/index_schema.h"
#include "index/volume_catalogue.h"
#include "platform/file_status.h"
#include "platform/sqlite_statement.h"
#include "platform/volume_identity.h"
#include "props/fetcher.h"
#include "tests/support/index_fixtures.h"
#include "tests/support/loop_drive.h"
#include "tests/support/search_fixtures.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine::index {
namespace {

using platform::Statement;
using testing::CollectingSink;
using testing::CountWhere;
using testing::MakeRule;
using testing::LoopDrive;
using testing::WhyNoMounts;
using testing::TempTree;

void Write(const std::string& path, const std::string& text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path) << text;
}

// A search through the driver with the index route, as a front end runs it.
std::unique_ptr<CollectingSink> Search(SqliteIndexRoute& route, const std::vector<std::string>& roots,
                                       const char* name) {
  auto sink = std::make_unique<CollectingSink>();
  SearchPanel panel(*sink, NoVolumeScan(), route);
  SearchRequest request;
  request.rules = {MakeRule("System.ItemNameDisplay", name)};
  request.roots = roots;
  EXPECT_EQ(panel.StartOrStop(request), StartOutcome::kStarted) << panel.error();
  panel.Wait();
  return sink;
}

bool Online(props::ShellItem& item) {
  props::PropValue v;
  EXPECT_EQ(props::FetchValue(item, *props::DefaultCatalogue().FindProperty("Stock.Online"), &v), S_OK);
  return v.AsInt64() != 0;
}

class RemovableDrive : public ::testing::TestWithParam<const char*> {};

TEST_P(RemovableDrive, CatalogueOutlivesTheMountFollowsTheDriveAndIsForgotten) {
  const std::string fs_type = GetParam();
  if (std::string why = WhyNoMounts(fs_type); !why.empty())
    GTEST_SKIP() << "removable drives not tested: " << why;
  TempTree tree{{"media/home.txt=not on the drive"}};
  LoopDrive drive(fs_type, tree.path("drive.img"));
  ASSERT_EQ(drive.Make(), "");
  const std::string first = tree.path("media/stick"), second = tree.path("media/elsewhere");
  if (!drive.Mount(first)) GTEST_SKIP() << "removable drives not tested: mount -o loop refused here";
  Write(first + "/photos/beach.jpg", "not really a picture");
  Write(first + "/notes.txt", "words on the stick");

  std::string error;
  auto db = IndexDatabase::Open(tree.path("index.db"), IndexDatabase::Access::kWrite, &error);
  ASSERT_TRUE(db) << error;
  Indexer indexer(*db);
  ASSERT_TRUE(indexer.AddRoot(tree.path("media"), &error)) << error;
  UpdateStats stats;
  ASSERT_TRUE(indexer.Update({}, &stats, {})) << indexer.error();
  // A file the walk has seen but whose text is not read yet when the drive goes.
  Write(first + "/late.txt", "read after all");
  UpdateStats walk_only;
  ASSERT_TRUE(indexer.Update({}, &walk_only, {}, {}, false)) << indexer.error();
  const std::string late_pending = "SELECT count(*) FROM items WHERE name='late.txt' AND state=0";

  // The drive's items carry its catalogue: identity, mount point, file-system type.
  VolumeCatalogues mounted(db->db());
  mounted.Check(platform::ReadMountTable());
  const Catalogue* stick = nullptr;
  for (const Catalogue& c : mounted.list())
    if (c.mount_point == first) stick = &c;
  ASSERT_NE(stick, nullptr);
  const std::string identity = stick->identity;
  EXPECT_EQ(identity.rfind("uuid:", 0), 0u) << identity;
  EXPECT_EQ(stick->fs_type, fs_type);
  EXPECT_TRUE(stick->online);
  const int64_t held = CatalogueItemCount(db->db(), stick->id);
  EXPECT_GE(held, 5);  // the mount point, photos, beach.jpg, notes.txt, late.txt (and ext4's lost+found)

  SqliteIndexRoute route(tree.path("index.db"));
  auto online = Search(route, {first}, "notes*");
  ASSERT_EQ(online->paths, std::vector<std::string>{first + "/notes.txt"});
  EXPECT_TRUE(Online(*online->items[0]));
  EXPECT_TRUE(route.OfflineCatalogues().empty());

  // Unplugged: the empty mount point folder is still there, the catalogue answers.
  drive.Unmount();
  EXPECT_EQ(route.OfflineCatalogues(), std::vector<std::string>{first});
  auto offline = Search(route, {first}, "*.jpg");
  ASSERT_EQ(offline->paths, std::vector<std::string>{first + "/photos/beach.jpg"});
  props::ShellItem& beach = *offline->items[0];
  EXPECT_TRUE(beach.offline());
  EXPECT_FALSE(Online(beach));
  ASSERT_NE(beach.Status(), nullptr);  // the stored facts, not the disk
  EXPECT_EQ(beach.Status()->size, 20u);
  ASSERT_EQ(offline->notices.size(), 1u);
  EXPECT_NE(offline->notices[0].find(first + " is not mounted"), std::string::npos) << offline->notices[0];
  EXPECT_NE(offline->notices[0].find("last seen"), std::string::npos);
  EXPECT_TRUE(offline->errors.empty());

  // Rules the index has no form for are tested on the catalogue's rows, not walked.
  auto any = Search(route, {first}, "?*e?*");
  EXPECT_EQ(std::set<std::string>(any->paths.begin(), any->paths.end()),
            (std::set<std::string>{first + "/photos/beach.jpg", first + "/notes.txt", first + "/late.txt"}));

  // A search over the whole tree: the online part as it is on disk, the drive's part offline.
  auto both = Search(route, {tree.path("media")}, "*.txt");
  EXPECT_EQ(std::set<std::string>(both->paths.begin(), both->paths.end()),
            (std::set<std::string>{tree.path("media/home.txt"), first + "/notes.txt", first + "/late.txt"}));
  for (const auto& item : both->items) EXPECT_EQ(item->offline(), item->path() != tree.path("media/home.txt"));

  // An update while it is away keeps the catalogue whole.
  UpdateStats away;
  ASSERT_TRUE(indexer.Update({}, &away, {})) << indexer.error();
  EXPECT_EQ(away.removed, 0);
  EXPECT_EQ(away.read, 0);
  EXPECT_EQ(CountWhere(*db, late_pending), 1);
  EXPECT_EQ(CatalogueItemCount(db->db(), stick->id), held);

  // Its mount point folder gone too: the root is still searched in the catalogue.
  std::filesystem::remove(first);
  auto gone = Search(route, {first}, "notes*");
  EXPECT_EQ(gone->paths, std::vector<std::string>{first + "/notes.txt"});
  EXPECT_TRUE(gone->errors.empty());

  // Mounted at another folder: the same catalogue, its paths there, nothing read again.
  ASSERT_TRUE(drive.Mount(second));
  UpdateStats back;
  ASSERT_TRUE(indexer.Update({}, &back, {})) << indexer.error();
  EXPECT_EQ(back.added, 0);
  EXPECT_EQ(back.changed, 0);
  EXPECT_EQ(back.read, 2);  // late.txt and its folder (changed by it), left unread while away
  EXPECT_EQ(CountWhere(*db, late_pending), 0);
  VolumeCatalogues moved(db->db());
  moved.Check(platform::ReadMountTable());
  ASSERT_EQ(moved.list().size(), mounted.list().size());
  for (const Catalogue& c : moved.list()) {
    if (c.identity != identity) continue;
    EXPECT_EQ(c.mount_point, second);
    EXPECT_TRUE(c.online);
    EXPECT_EQ(CatalogueItemCount(db->db(), c.id), held);
  }
  auto again = Search(route, {tree.path("media")}, "*.jpg");
  ASSERT_EQ(again->paths, std::vector<std::string>{second + "/photos/beach.jpg"});
  EXPECT_FALSE(again->items[0]->offline());

  // Forgotten: nothing of the drive is left in the index; the rest stays.
  ASSERT_TRUE(indexer.ForgetCatalogue(identity.substr(5), &error)) << error;
  EXPECT_EQ(CountWhere(*db, "SELECT count(*) FROM volumes WHERE identity='" + identity + "'"), 0);
  Statement below(db->db(), "SELECT count(*) FROM folders WHERE path=? OR path LIKE ?");
  below.Bind(1, second).Bind(2, second + "/%");
  ASSERT_EQ(below.Step(), SQLITE_ROW);
  EXPECT_EQ(below.Int(0), 0);
  EXPECT_EQ(CountWhere(*db, "SELECT count(*) FROM items WHERE name='home.txt'"), 1);
  EXPECT_FALSE(indexer.ForgetCatalogue(identity, &error));
}

INSTANTIATE_TEST_SUITE_P(FileSystems, RemovableDrive, ::testing::Values("ext4", "vfat"),
                         [](const auto& info) { return std::string(info.param); });

// The same rules over a drive before and after it is pulled out: the catalogue answers what
// the mounted drive answered (the index's rows re-tested on stored facts and kept text).
TEST(RemovableDriveOffline, AnswersEqualTheMountedDrivesForTheSameRules) {
  if (std::string why = WhyNoMounts("ext4"); !why.empty()) GTEST_SKIP() << "removable drives not tested: " << why;
  TempTree tree{{"media/", "index/", "other/"}};
  LoopDrive drive("ext4", tree.path("drive.img"));
  ASSERT_EQ(drive.Make(), "");
  const std::string place = tree.path("media/stick");
  if (!drive.Mount(place)) GTEST_SKIP() << "removable drives not tested: mount -o loop refused here";
  Write(place + "/report 2024.txt", "harbour lights in the quiet ledger");
  Write(place + "/Data/notes.md", std::string(3000, 'x') + " harbour");
  Write(place + "/Data/deep/Empty.bak", "");
  Write(place + "/.hidden/secret.txt", "harbour");
  std::string error;
  auto db = IndexDatabase::Open(tree.path("index/index.db"), IndexDatabase::Access::kWrite, &error);
  ASSERT_TRUE(db) << error;
  Indexer indexer(*db);
  ASSERT_TRUE(indexer.AddRoot(tree.path("media"), &error)) << error;
  UpdateStats stats;
  ASSERT_TRUE(indexer.Update({}, &stats, {})) << indexer.error();
  const std::vector<std::pair<const char*, const char*>> rules = {
      {"System.ItemNameDisplay", "*.txt"},        {"System.ItemNameDisplay", "?ata"},
      {"System.Size", "> 1 KB"},
      {"System.Size", "= 0"},                     {"System.DateModified", "> 2020-01-01"},
      {"System.FileExtension", ".md"},            {"System.Search.Contents", "harbour"},
      {"System.Search.Contents", "\"quiet ledger\""}, {"Stock.IsFolder", "yes"},
  };
  SqliteIndexRoute route(tree.path("index/index.db"));
  auto answers = [&](const std::pair<const char*, const char*>& rule) {
    CollectingSink sink;
    SearchPanel panel(sink, NoVolumeScan(), route);
    SearchRequest request;
    request.rules = {MakeRule(rule.first, rule.second)};
    request.roots = {place};
    EXPECT_EQ(panel.StartOrStop(request), StartOutcome::kStarted);
    panel.Wait();
    return std::set<std::string>(sink.paths.begin(), sink.paths.end());
  };
  std::vector<std::set<std::string>> mounted;
  for (const auto& rule : rules) {
    mounted.push_back(answers(rule));
    // What the crawl's exclusions leave out is found by walking it, which a drive that is not
    // there cannot have: the catalogue has nothing of ext4's lost+found.
    mounted.back().erase(place + "/lost+found");
  }
  drive.Unmount();
  ASSERT_EQ(route.OfflineCatalogues(), std::vector<std::string>{place});
  for (size_t i = 0; i < rules.size(); ++i) {
    SCOPED_TRACE(std::string(rules[i].first) + ": " + rules[i].second);
    EXPECT_FALSE(mounted[i].empty());
    EXPECT_EQ(answers(rules[i]), mounted[i]);
  }
}

// Two drives taking turns at one mount point (the kernel hands the second the first one's
// mount number and loop device): the one mounted there is indexed as it is and answers online;
// the other one's catalogue waits aside, and a search over the place answers from both, the
// drive not mounted marked offline and said once. Each comes back whole with its drive.
TEST(RemovableDriveTurns, TwoDrivesAtOneMountPointAnswerTogether) {
  if (std::string why = WhyNoMounts("ext4"); !why.empty()) GTEST_SKIP() << "removable drives not tested: " << why;
  TempTree tree({"media/home.txt=here", "index/"});
  LoopDrive a("ext4", tree.path("a.img")), b("ext4", tree.path("b.img"));
  ASSERT_EQ(a.Make(), "");
  ASSERT_EQ(b.Make(), "");
  const std::string place = tree.path("media/stick");
  if (!a.Mount(place)) GTEST_SKIP() << "removable drives not tested: mount -o loop refused here";
  Write(place + "/alpha.txt", "on a");
  Write(place + "/shared/common.txt", "the same name on a");
  std::string error;
  auto db = IndexDatabase::Open(tree.path("index/index.db"), IndexDatabase::Access::kWrite, &error);
  ASSERT_TRUE(db) << error;
  Indexer indexer(*db);
  ASSERT_TRUE(indexer.AddRoot(tree.path("media"), &error)) << error;
  UpdateStats first;
  ASSERT_TRUE(indexer.Update({}, &first, {})) << indexer.error();

  a.Unmount();
  ASSERT_TRUE(b.Mount(place));
  Write(place + "/beta.txt", "on b");
  Write(place + "/shared/common.txt", "the same name on drive b");
  UpdateStats swapped;
  ASSERT_TRUE(indexer.Update({}, &swapped, {})) << indexer.error();
  EXPECT_EQ(swapped.removed, 0);  // a's rows wait aside

  // What each path answers, and whether it came offline.
  auto answer = [](const CollectingSink& sink) {
    std::multiset<std::pair<std::string, bool>> out;
    for (const auto& item : sink.items) out.emplace(item->path(), item->offline());
    return out;
  };
  const std::multiset<std::pair<std::string, bool>> b_mounted = {
      {place + "/alpha.txt", true}, {place + "/beta.txt", false},
      {place + "/shared/common.txt", true}, {place + "/shared/common.txt", false}};
  SqliteIndexRoute route(tree.path("index/index.db"));
  // The place holds a drive, walked as any folder: --offline asks a's catalogue where it waits,
  // and gets a's rows alone, shown at the place, its age said once.
  const std::vector<std::string> offline_roots = route.OfflineCatalogues();
  ASSERT_EQ(offline_roots.size(), 1u);
  EXPECT_TRUE(IsParkedPlace(offline_roots[0])) << offline_roots[0];
  auto parked = Search(route, offline_roots, "*.txt");
  EXPECT_EQ(answer(*parked), (std::multiset<std::pair<std::string, bool>>{{place + "/alpha.txt", true},
                                                                          {place + "/shared/common.txt", true}}));
  ASSERT_EQ(parked->notices.size(), 1u);
  EXPECT_EQ(parked->notices[0].find(place + " holds another drive now"), 0u) << parked->notices[0];
  EXPECT_NE(parked->notices[0].find("last seen"), std::string::npos);
  EXPECT_EQ(Search(route, {offline_roots[0] + "/shared"}, "*.txt")->paths,
            std::vector<std::string>{place + "/shared/common.txt"});
  for (const std::string& root : {place, tree.path("media")}) {
    SCOPED_TRACE(root);
    auto both = Search(route, {root}, "*.txt");
    auto seen = answer(*both);
    if (root != place) seen.erase({tree.path("media/home.txt"), false});
    EXPECT_EQ(seen, b_mounted);
    // Said once (beside what the walk of ext4's lost+found says).
    EXPECT_EQ(std::count_if(both->notices.begin(), both->notices.end(),
                            [&](const std::string& n) { return n.find(place + " holds another drive now") == 0; }),
              1);
  }
  // An online item is the drive's own file; the offline one is the catalogue's facts.
  auto common = Search(route, {place}, "common*");
  ASSERT_EQ(common->items.size(), 2u);
  for (const auto& item : common->items) {
    ASSERT_NE(item->Status(), nullptr);
    EXPECT_EQ(item->Status()->size, item->offline() ? 18u : 24u);
    EXPECT_EQ(Online(*item), !item->offline());
  }

  // Drive a back in its place: its catalogue returns whole, nothing read again; b's waits.
  b.Unmount();
  ASSERT_TRUE(a.Mount(place));
  UpdateStats back;
  ASSERT_TRUE(indexer.Update({}, &back, {})) << indexer.error();
  EXPECT_EQ(back.added, 0);
  EXPECT_EQ(back.read, 0);
  auto a_back = Search(route, {place}, "*.txt");
  EXPECT_EQ(answer(*a_back), (std::multiset<std::pair<std::string, bool>>{
                                 {place + "/alpha.txt", false}, {place + "/beta.txt", true},
                                 {place + "/shared/common.txt", false}, {place + "/shared/common.txt", true}}));

  // Neither there: both catalogues answer, each said once.
  a.Unmount();
  UpdateStats away;
  ASSERT_TRUE(indexer.Update({}, &away, {})) << indexer.error();
  EXPECT_EQ(away.removed, 0);
  auto none = Search(route, {place}, "*.txt");
  EXPECT_EQ(none->items.size(), 4u);
  for (const auto& item : none->items) EXPECT_TRUE(item->offline()) << item->path();
  EXPECT_EQ(std::count_if(none->notices.begin(), none->notices.end(),
                          [&](const std::string& n) { return n.find(place + " is not mounted") == 0; }),
            2);

  // Forgetting the one aside leaves the other whole.
  std::string b_identity;
  VolumeCatalogues now(db->db());
  for (const Catalogue& c : now.list())
    if (c.parked) b_identity = c.identity;
  ASSERT_FALSE(b_identity.empty());
  ASSERT_TRUE(indexer.ForgetCatalogue(b_identity, &error)) << error;
  auto left = Search(route, {place}, "*.txt");
  std::set<std::string> paths(left->paths.begin(), left->paths.end());
  EXPECT_EQ(paths, (std::set<std::string>{place + "/alpha.txt", place + "/shared/common.txt"}));
  EXPECT_EQ(left->paths.size(), 2u);
}

// The watch hears no inotify event for a mount: it watches the mount table, keeps the
// catalogue of a drive pulled out, and follows the drive to the folder it is mounted on next.
TEST(RemovableDriveWatch, KeepsTheCatalogueOfAnUnmountedDriveAndFollowsItToItsNextPlace) {
  if (std::string why = WhyNoMounts("ext4"); !why.empty()) GTEST_SKIP() << "removable drives not tested: " << why;
  TempTree tree{{"media/home.txt=x", "media/other/", "index/"}};
  LoopDrive drive("ext4", tree.path("drive.img"));
  ASSERT_EQ(drive.Make(), "");
  const std::string first = tree.path("media/stick"), second = tree.path("media/other");
  if (!drive.Mount(first)) GTEST_SKIP() << "removable drives not tested: mount -o loop refused here";
  Write(first + "/notes.txt", "words");
  std::string error;
  auto db = IndexDatabase::Open(tree.path("index/index.db"), IndexDatabase::Access::kWrite, &error);
  ASSERT_TRUE(db) << error;
  Indexer indexer(*db);
  ASSERT_TRUE(indexer.AddRoot(tree.path("media"), &error)) << error;
  std::stop_source stop;
  std::thread watch([&] { WatchIndex(indexer, WatchOptions{}, stop.get_token(), [](const std::string&) {}); });
  auto reader = IndexDatabase::Open(tree.path("index/index.db"), IndexDatabase::Access::kRead, &error);
  ASSERT_TRUE(reader) << error;
  auto holds = [&](const std::string& folder) {
    Statement s(reader->db(), "SELECT count(*) FROM items i JOIN folders f ON f.id=i.parent "
                              "WHERE f.path=? AND i.name='notes.txt'");
    s.Bind(1, folder);
    return s.Step() == SQLITE_ROW && s.Int(0) == 1;
  };
  // Asked until it does, or five seconds pass.
  auto held_in = [&](const std::string& folder) {
    return testing::Eventually([&] { return holds(folder); }, std::chrono::seconds(5), std::chrono::milliseconds(50));
  };
  EXPECT_TRUE(held_in(first));
  drive.Unmount();
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));  // past the watch's gathering
  EXPECT_TRUE(holds(first));
  ASSERT_TRUE(drive.Mount(second));
  EXPECT_TRUE(held_in(second));
  EXPECT_FALSE(holds(first));
  stop.request_stop();
  watch.join();
}

// An index of the layout before catalogues is brought forward in place: every row stays, and
// the next update learns the rows' file systems without reading any item again.
TEST(IndexMigration, OlderLayoutKeepsItsRowsAndIsNotReadAgain) {
  TempTree tree{{"data/a.txt=alpha", "data/sub/b.txt=beta", "data/c.txt=gamma"}};
  std::string error;
  {
    auto db = IndexDatabase::Open(tree.path("index.db"), IndexDatabase::Access::kWrite, &error);
    ASSERT_TRUE(db) << error;
    Indexer indexer(*db);
    ASSERT_TRUE(indexer.AddRoot(tree.path("data"), &error)) << error;
    UpdateStats stats;
    ASSERT_TRUE(indexer.Update({}, &stats, {}));
    // Back to the layout of version 2.
    ASSERT_TRUE(db->Exec("DROP INDEX items_volume; ALTER TABLE items DROP COLUMN volume; DROP TABLE volumes; "
                         "ALTER TABLE texts DROP COLUMN seams;", &error))
        << error;
    ASSERT_TRUE(db->SetMeta("schema", "2"));
  }
  {
    // A reader takes it as it is.
    auto db = IndexDatabase::Open(tree.path("index.db"), IndexDatabase::Access::kRead, &error);
    ASSERT_TRUE(db) << error;
    EXPECT_TRUE(VolumeCatalogues(db->db()).list().empty());
  }
  std::string notice;
  auto db = IndexDatabase::Open(tree.path("index.db"), IndexDatabase::Access::kWrite, &error, &notice);
  ASSERT_TRUE(db) << error;
  EXPECT_EQ(notice, "");
  EXPECT_EQ(db->Meta("schema"), std::to_string(kSchemaVersion));
  EXPECT_EQ(CountWhere(*db, "SELECT count(*) FROM items WHERE parent<>0"), 4);
  EXPECT_EQ(CountWhere(*db, "SELECT count(*) FROM items WHERE volume IS NOT NULL"), 0);
  Indexer indexer(*db);
  UpdateStats stats;
  ASSERT_TRUE(indexer.Update({}, &stats, {}));
  EXPECT_EQ(stats.added + stats.changed + stats.read, 0);
  // Where the temporary folder's file system can be told apart, its rows now say which it is.
  platform::FileStatus st;
  ASSERT_EQ(platform::StatPath(AT_FDCWD, tree.path("data"), true, &st), 0);
  const std::vector<platform::MountEntry> mounts = platform::ReadMountTable();
  const platform::MountEntry* mount = platform::FindMountByDevice(mounts, st.device);
  if (mount != nullptr && !platform::VolumeIdentity(*mount).empty()) {
    EXPECT_EQ(CountWhere(*db, "SELECT count(*) FROM items WHERE parent<>0 AND volume IS NULL"), 0);
  }
}

// The mount table and the files agree on device numbers: what ties a row to its catalogue.
TEST(MountTable, TheMountOfAFolderIsFoundByItsDeviceNumber) {
  TempTree tree{{"x.txt=x"}};
  platform::FileStatus st;
  ASSERT_EQ(platform::StatPath(AT_FDCWD, tree.path("x.txt"), false, &st), 0);
  const std::vector<platform::MountEntry> mounts = platform::ReadMountTable();
  ASSERT_FALSE(mounts.empty());
  const platform::MountEntry* mount = platform::FindMountByDevice(mounts, st.device);
  ASSERT_NE(mount, nullptr);
  EXPECT_TRUE(tree.path("x.txt").rfind(mount->mount_point == "/" ? "/" : mount->mount_point + "/", 0) == 0)
      << mount->mount_point;
  EXPECT_EQ(platform::FindMountAt(mounts, mount->mount_point), mount);
  EXPECT_FALSE(platform::KeepsInodeNumbers("vfat"));
  EXPECT_FALSE(platform::KeepsInodeNumbers("fuse.fusefat"));
  EXPECT_FALSE(platform::KeepsInodeNumbers("fuse.exfat"));
  EXPECT_TRUE(platform::KeepsInodeNumbers("ext4"));
}

TEST(CatalogueAge, SaysTheLargestWholeUnit) {
  EXPECT_EQ(CatalogueAge(1000, 1001), "1 second");
  EXPECT_EQ(CatalogueAge(1000, 1000 + 3 * 60), "3 minutes");
  EXPECT_EQ(CatalogueAge(1000, 1000 + 5 * 3600 + 10), "5 hours");
  EXPECT_EQ(CatalogueAge(1000, 1000 + 9 * 86400), "9 days");
  EXPECT_EQ(CatalogueAge(2000, 1000), "0 seconds");  // a clock set back
}

}  // namespace
}  // namespace trovix::engine::index
