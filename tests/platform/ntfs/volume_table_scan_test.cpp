#include "engine/volume/volume_table_scan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <unistd.h>

#include "engine/search/search_panel.h"
#include "engine/volume/ntfs_volume_route.h"
#include "props/catalogue.h"
#include "tests/platform/ntfs/ntfs_image.h"
#include "tests/support/run_program.h"
#include "tests/support/search_fixtures.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine {
namespace {

using trovix::testing::CollectingSink;
using trovix::testing::NtfsImage;

std::unique_ptr<rules::RuleSet> NameRule(const char* value) {
  return trovix::testing::Compile({trovix::testing::MakeRule("System.ItemNameDisplay", value)});
}

class VolumeTableScanTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(image_.ok()) << image_.error();
    ASSERT_NE(image_.Folder("/docs"), 0u);
    ASSERT_NE(image_.Folder("/docs/report archive"), 0u);
    ASSERT_NE(image_.File("/docs/report archive/report 2024.txt"), 0u);
    ASSERT_NE(image_.File("/docs/report.txt"), 0u);
    ASSERT_NE(image_.File("/docs/hidden report.txt", 0x2), 0u);
    ASSERT_NE(image_.File("/docs/.report draft.txt"), 0u);
    ASSERT_NE(image_.Folder("/docs/.cache"), 0u);
    ASSERT_NE(image_.File("/docs/.cache/report cache.txt"), 0u);
    ASSERT_NE(image_.File("/report.txt"), 0u);
    ASSERT_NE(image_.File("/notes.md"), 0u);
    ASSERT_TRUE(image_.Link("/notes.md", "/docs/report notes.md"));
    ASSERT_TRUE(image_.Close());
  }

  std::vector<std::string> Scan(const char* rule, const VolumeScanScope& scope, int hidden_mode,
                                CollectingSink* sink = nullptr, std::stop_token stop = {}) {
    CollectingSink own;
    if (sink == nullptr) sink = &own;
    auto set = NameRule(rule);
    platform::ntfs::MftReader reader;
    EXPECT_EQ(reader.Open(image_.path()), 0);
    const int64_t n = ScanOpenVolume(reader, *set, scope, hidden_mode, *sink, stop);
    EXPECT_EQ(n, std::min<int64_t>(static_cast<int64_t>(sink->paths.size()),
                                   sink->refuse_after < 0 ? INT64_MAX : sink->refuse_after));
    return sink->Sorted();
  }

  NtfsImage image_;
};

TEST_F(VolumeTableScanTest, ReportsHitsWithTheirPathsInsideTheVolume) {
  CollectingSink sink;
  EXPECT_EQ(Scan("report*", {}, 0, &sink),
            (std::vector<std::string>{"/docs/hidden report.txt", "/docs/report archive",
                                      "/docs/report archive/report 2024.txt", "/docs/report notes.md",
                                      "/docs/report.txt", "/report.txt"}));
  EXPECT_EQ(sink.statuses, (std::vector<std::string>{"searching MFT..."}));
  // The file system's own files never answer, whatever the rule.
  EXPECT_EQ(Scan("$*", {}, 2), std::vector<std::string>{});
  EXPECT_EQ(Scan("*.md", {}, 0), (std::vector<std::string>{"/docs/report notes.md", "/notes.md"}));
}

// Hidden is what the walk of the mounted volume hides: a name beginning with "." and what lies
// below such a folder, except the root's own steps. The hidden attribute is not seen there.
TEST_F(VolumeTableScanTest, HiddenAsTheWalkHidesIt) {
  EXPECT_EQ(Scan("*cache*", {}, 0), std::vector<std::string>{});
  EXPECT_EQ(Scan("=.*", {}, 0), std::vector<std::string>{});
  EXPECT_EQ(Scan("=.*", {}, 2), (std::vector<std::string>{"/docs/.cache", "/docs/.report draft.txt"}));
  EXPECT_EQ(Scan("*cache*", {}, 2), (std::vector<std::string>{"/docs/.cache", "/docs/.cache/report cache.txt"}));
  VolumeScanScope inside;
  inside.scope = "/docs/.cache";
  EXPECT_EQ(Scan("*.txt", inside, 0), std::vector<std::string>{"/docs/.cache/report cache.txt"});
}

TEST_F(VolumeTableScanTest, KeepsToTheScopeAndShowsPathsThroughTheMountPoint) {
  VolumeScanScope scope;
  scope.shown_root = "/media/usb";
  scope.scope = "/docs/report archive";
  // The scope folder itself answers when its name does (the route is asked for the folder's
  // tree, of which it is the top).
  EXPECT_EQ(Scan("report*", scope, 0),
            (std::vector<std::string>{"/media/usb/docs/report archive", "/media/usb/docs/report archive/report 2024.txt"}));
  // A bind mount of one folder: what lies outside it cannot be shown and is left out.
  VolumeScanScope bind;
  bind.mounted_folder = "/docs";
  bind.shown_root = "/home/shared";
  bind.scope = "/docs";
  EXPECT_EQ(Scan("*.txt", bind, 0),
            (std::vector<std::string>{"/home/shared/hidden report.txt", "/home/shared/report archive/report 2024.txt",
                                      "/home/shared/report.txt"}));
}

TEST_F(VolumeTableScanTest, StopEndsTheScanAndRefusedItemsAreNotCounted) {
  std::stop_source stop;
  stop.request_stop();
  EXPECT_EQ(Scan("?*", {}, 2, nullptr, stop.get_token()), std::vector<std::string>{});
  CollectingSink refusing;
  refusing.refuse_after = 1;
  Scan("report*", {}, 0, &refusing);
}

TEST_F(VolumeTableScanTest, ImagesThatCannotBeReadAreRefused) {
  CollectingSink sink;
  auto set = NameRule("?*");
  std::string error;
  EXPECT_EQ(ScanVolumeImage(image_.path() + ".missing", *set, 0, sink, {}, &error), -1);
  EXPECT_NE(error.find("No such file"), std::string::npos);
  EXPECT_EQ(ScanVolumeImage(image_.path(), *set, 0, sink, {}, &error), 8);
}

// The route with a mount table of its own: the image stands in for a block device.
TEST_F(VolumeTableScanTest, RouteScansTheVolumeUnderAMountPoint) {
  const std::string text = "/etc/hostname";  // readable, but no NTFS volume
  NtfsVolumeScan route([&] {
    return std::vector<platform::ntfs::MountEntry>{{"/", "/", "ext4", "/dev/root"},
                                                   {"/", "/media/usb", "ntfs3", image_.path()},
                                                   {"/", "/media/again", "ntfs3", image_.path()},
                                                   {"/", "/media/fuse", "fuseblk", text}};
  });
  EXPECT_TRUE(route.Allowed());
  auto set = NameRule("*.txt");
  CollectingSink sink;
  EXPECT_EQ(route.ScanVolumeTable(*set, "/media/usb/docs/report archive/", 0, sink, {}), 1);
  EXPECT_EQ(sink.paths, std::vector<std::string>{"/media/usb/docs/report archive/report 2024.txt"});
  // The computer: each volume once, through its first mount; what is not NTFS is passed over.
  CollectingSink all;
  EXPECT_EQ(route.ScanVolumeTable(*set, "", 0, all, {}), 4);
  EXPECT_EQ(all.Sorted(), (std::vector<std::string>{"/media/usb/docs/hidden report.txt",
                                                    "/media/usb/docs/report archive/report 2024.txt",
                                                    "/media/usb/docs/report.txt", "/media/usb/report.txt"}));
  // A root on the other file systems, or on a FUSE mount of something else, is refused.
  EXPECT_EQ(route.ScanVolumeTable(*set, "/home", 0, sink, {}), -1);
  EXPECT_EQ(route.ScanVolumeTable(*set, "/media/fuse/x", 0, sink, {}), -1);
}

// Nothing here is a mounted NTFS volume, so the route refuses and the search goes on.
TEST(NtfsVolumeScan, RefusesRootsThatAreNotOnNtfs) {
  NtfsVolumeScan route;
  CollectingSink sink;
  auto set = NameRule("?*");
  EXPECT_EQ(route.ScanVolumeTable(*set, "/tmp", 0, sink, {}), -1);
  EXPECT_EQ(route.ScanVolumeTable(*set, "relative/path", 0, sink, {}), -1);
  EXPECT_EQ(route.ScanVolumeTable(*set, "", 0, sink, {}), -1);  // the computer, with no NTFS volume
  EXPECT_TRUE(sink.paths.empty());
}

// The console program through the shell, its standard error with its output.
std::string RunCli(const std::string& arguments, int* status) {
  trovix::testing::ProgramRun run =
      trovix::testing::RunProgram("/bin/sh", {"-c", std::string(TROVIX_CLI_PATH) + " " + arguments + " 2>&1"});
  *status = run.status;
  return run.out;
}

TEST_F(VolumeTableScanTest, CommandLineSearchesAnImage) {
  int status = 0;
  EXPECT_EQ(RunCli("search --volume-image " + image_.path() + " -r 'System.ItemNameDisplay: *.txt' | sort", &status),
            "/docs/hidden report.txt\n/docs/report archive/report 2024.txt\n/docs/report.txt\n/report.txt\n");
  EXPECT_EQ(RunCli("search -H --volume-image " + image_.path() + " -r 'System.ItemNameDisplay: .report*'", &status),
            "/docs/.report draft.txt\n");
  EXPECT_EQ(status, 0);
  EXPECT_EQ(RunCli("search --volume-image " + image_.path() + " -r 'System.ItemNameDisplay: none*'", &status), "");
  EXPECT_EQ(status, 1);
  RunCli("search --volume-image " + image_.path() + " -r 'System.Size: >1'", &status);
  EXPECT_EQ(status, 2);
  EXPECT_NE(RunCli("search --volume-image /etc/hostname -r 'System.ItemNameDisplay: x'", &status).find("not an NTFS volume"),
            std::string::npos);
  EXPECT_EQ(status, 2);
}

}  // namespace
}  // namespace trovix::engine

namespace trovix::engine {
namespace {

// The volume table must answer as the walk does: one generated volume, mounted read-only
// through ntfs-3g and walked, against its table scanned, rule by rule, with hidden items and
// without. The volume holds what trips a table reader: names of several links, names near the
// length limit, names outside ASCII, dot-names and the hidden attribute. Mounting needs root
// and /dev/fuse; elsewhere the comparison is skipped and says so.
TEST(VolumeScanDifferential, TheTableAnswersAsTheWalkOverTheMountedVolume) {
  if (geteuid() != 0 || access("/dev/fuse", R_OK | W_OK) != 0 || access("/usr/bin/ntfs-3g", X_OK) != 0)
    GTEST_SKIP() << "mounting an NTFS image through FUSE needs root, /dev/fuse and ntfs-3g";
  NtfsImage image;
  ASSERT_TRUE(image.ok()) << image.error();
  std::mt19937 random(11);
  const std::string long_stem = "report " + std::string(210, 'l');
  const std::string stems[] = {"report", "Report 2024", "notes", "\xC3\x9C" "bersicht", "a.b", "x",
                               "\xE5\xA0\xB1\xE5\x91\x8A", ".report", long_stem};
  const char* const extensions[] = {".txt", ".TXT", ".md", "", ".txt.bak"};
  std::vector<std::string> folders = {""}, files;
  for (int i = 0; i < 120; ++i) {
    const std::string parent = folders[random() % folders.size()];
    const std::string name = stems[random() % std::size(stems)] + "_" + std::to_string(i);
    const uint32_t attributes = random() % 6 == 0 ? 0x2 : 0;
    if (random() % 4 == 0) {
      ASSERT_NE(image.Folder(parent + "/" + name, attributes), 0u) << name;
      folders.push_back(parent + "/" + name);
    } else {
      files.push_back(parent + "/" + name + extensions[random() % std::size(extensions)]);
      ASSERT_NE(image.File(files.back(), attributes), 0u) << files.back();
    }
  }
  // Second names of files, in other folders and under other names.
  for (int i = 0; i < 12; ++i) {
    const std::string& file = files[random() % files.size()];
    const std::string link = folders[random() % folders.size()] + "/" + stems[random() % std::size(stems)] + "_link" +
                             std::to_string(i) + ".txt";
    ASSERT_TRUE(image.Link(file, link)) << file << " -> " << link;
  }
  // The folder a symbolic link outside the volume leads into.
  ASSERT_NE(image.Folder("/Data"), 0u);
  ASSERT_NE(image.File("/Data/report in data.txt"), 0u);
  ASSERT_NE(image.File("/Data/.report hidden.txt"), 0u);
  ASSERT_NE(image.Folder("/Data/\xC3\x9C" "bersicht"), 0u);
  ASSERT_NE(image.File("/Data/\xC3\x9C" "bersicht/" + long_stem + ".txt", 0x2), 0u);
  ASSERT_TRUE(image.Link("/Data/report in data.txt", "/Data/\xC3\x9C" "bersicht/report again.txt"));
  ASSERT_TRUE(image.Close());

  testing::TempTree place({"mnt/"});
  const std::string mount_point = place.path("mnt");
  if (testing::RunProgram("/usr/bin/ntfs-3g", {"-o", "ro", image.path(), mount_point}).status != 0)
    GTEST_SKIP() << "ntfs-3g could not mount the image here";
  struct Unmount {
    std::string at;
    ~Unmount() { testing::RunProgram("/bin/umount", {at}); }
  } unmount{mount_point};
  const std::string through_link = place.path("into");
  ASSERT_EQ(symlink((mount_point + "/Data").c_str(), through_link.c_str()), 0);

  NtfsVolumeScan route([&] {
    return std::vector<platform::ntfs::MountEntry>{{"/", "/", "ext4", "/dev/root"},
                                                   {"/", mount_point, "fuseblk", image.path()}};
  });
  auto walk = [](const char* rule, const std::string& root, uint32_t hidden) {
    CollectingSink walked;
    SearchPanel panel(walked);
    SearchRequest request;
    request.rules = {trovix::testing::MakeRule("System.ItemNameDisplay", rule)};
    request.roots = {root};
    request.bin_flags = 0x0800 | hidden;  // the walk, not the table
    EXPECT_EQ(panel.StartOrStop(request), StartOutcome::kStarted);
    panel.Wait();
    return walked.Sorted();
  };
  for (const char* rule : {"*.txt", "report", "=*.TXT", "?e*", "*2024*", "\xC3\xBC" "bersicht", "=x_*", "a.b",
                           "*link*", "\xE5\xA0\xB1*", "*llll*", ".*", "?*"}) {
    for (const int hidden_mode : {0, 2}) {
      for (const std::string& root : {mount_point, through_link}) {
        SCOPED_TRACE(std::string(rule) + " hidden mode " + std::to_string(hidden_mode) + " under " + root);
        CollectingSink scanned;
        ASSERT_GE(route.ScanVolumeTable(*NameRule(rule), root, hidden_mode, scanned, {}), 0);
        const std::vector<std::string> walked = walk(rule, root, hidden_mode == 2 ? kFlagSearchHidden : 0);
        std::vector<std::string> answer = scanned.Sorted();
        // The table answers for the root folder itself when its name matches (the volume's
        // top never does); the walk starts below it.
        std::erase(answer, root);
        if (root == mount_point && hidden_mode == 2) {
          EXPECT_FALSE(walked.empty());
        }
        EXPECT_EQ(answer, walked);
      }
    }
  }
}

}  // namespace
}  // namespace trovix::engine
