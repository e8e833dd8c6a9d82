#include "engine/walk/folder_enumerator.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "tests/engine/faulty_dir_system.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine {
namespace {

using platform::FileStatus;
using platform::FileType;
using trovix::testing::TempTree;

FolderEnumerator::Options Sorted() {
  FolderEnumerator::Options o;
  o.sort_names = true;
  return o;
}

std::vector<std::string> Names(FolderEnumerator& e) {
  std::vector<std::string> names;
  for (const FolderChild& c : e.children()) names.emplace_back(c.name);
  return names;
}

TEST(FolderEnumerator, NamesSurviveGrowthSortingAndMovingTheListing) {
  // Enough long names that the name store grows several times while the folder is read.
  TempTree tree;
  std::vector<std::string> expected;
  for (int i = 0; i < 300; ++i) {
    std::string name = "a-rather-long-file-name-number-" + std::to_string(1000 + i) + ".txt";
    tree.Add(name);
    expected.push_back(name);
  }
  tree.Add("\xff\xfe-not-utf8");
  expected.insert(expected.end(), "\xff\xfe-not-utf8");
  FolderEnumerator e(platform::DefaultDirSystem(), Sorted());
  ASSERT_EQ(e.Read(tree.root(), false), 0);
  EXPECT_EQ(Names(e), expected);

  // The walk moves children and names together into its queue; the views must follow.
  std::vector<FolderChild> children = std::move(e.children());
  std::vector<char> names = std::move(e.names());
  ASSERT_EQ(children.size(), expected.size());
  for (size_t i = 0; i < children.size(); ++i) EXPECT_EQ(children[i].name, expected[i]);
}

TEST(FolderEnumerator, AsksStatusWhileListingOnlyWhenTold) {
  TempTree tree({"file=12345", "dir/", "link->file", "dangling->nowhere"});
  FolderEnumerator lazy(platform::DefaultDirSystem(), Sorted());
  ASSERT_EQ(lazy.Read(tree.root(), false), 0);
  for (const FolderChild& c : lazy.children()) EXPECT_FALSE(c.status_asked) << c.name;

  for (bool follow : {false, true}) {
    SCOPED_TRACE(follow);
    FolderEnumerator::Options o = Sorted();
    o.stat_children = true;
    o.stat_follow_links = follow;
    FolderEnumerator e(platform::DefaultDirSystem(), o);
    ASSERT_EQ(e.Read(tree.root(), false), 0);
    ASSERT_EQ(e.children().size(), 4u);
    for (const FolderChild& c : e.children()) {
      SCOPED_TRACE(std::string(c.name));
      ASSERT_TRUE(c.status_asked);
      // What the item would have asked by path: following, and for a dangling link the link.
      FileStatus by_path;
      int err = platform::StatPath(AT_FDCWD, tree.path(c.name), follow, &by_path);
      if (err != 0 && follow) err = platform::StatPath(AT_FDCWD, tree.path(c.name), false, &by_path);
      EXPECT_EQ(c.status_error, err);
      ASSERT_EQ(c.status != nullptr, err == 0);
      EXPECT_EQ(c.status->type, by_path.type);
      EXPECT_EQ(c.status->inode, by_path.inode);
      EXPECT_EQ(c.status->size, by_path.size);
      EXPECT_EQ(c.status->modified, by_path.modified);
    }
    // By name: dangling, dir, file, link.
    EXPECT_EQ(e.children()[0].status->type, FileType::kSymlink);
    EXPECT_EQ(e.children()[2].status->size, 5u);
    EXPECT_EQ(e.children()[3].status->type, follow ? FileType::kRegular : FileType::kSymlink);
  }
}

TEST(FolderEnumerator, ReaderWithoutStatusLeavesItToTheItem) {
  // A DirSystem whose readers cannot ask relative to the folder: nothing is marked asked,
  // and an entry listed but absent is still only found out later.
  TempTree tree({"real"});
  trovix::testing::FaultyDirSystem fs;
  fs.AddPhantom(tree.root(), "ghost", FileType::kRegular);
  FolderEnumerator::Options o = Sorted();
  o.stat_children = true;
  FolderEnumerator e(fs, o);
  ASSERT_EQ(e.Read(tree.root(), false), 0);
  ASSERT_EQ(e.children().size(), 2u);
  for (const FolderChild& c : e.children()) {
    EXPECT_FALSE(c.status_asked) << c.name;
    EXPECT_EQ(c.error, 0) << c.name;
  }
}

}  // namespace
}  // namespace trovix::engine
