#include "platform/no_replace_rename.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/temp_tree.h"
#include "tests/support/test_files.h"

namespace trovix::platform {
namespace {

using trovix::testing::TempTree;

// The kernel's no-replace rename and the second way (link and unlink) that file systems
// refusing it get: neither ever replaces a name in use, both leave the files as they were.
TEST(RenameNoReplace, NeverReplacesAnExistingNameByEitherWay) {
  TempTree tree({"a.txt=first", "b.txt=second", "dir/", "other/"});
  for (auto rename : {&RenameNoReplace, &LinkRenameNoReplace}) {
    RenameOutcome refused = rename(tree.path("a.txt"), tree.path("b.txt"));
    EXPECT_EQ(refused.error, EEXIST);
    EXPECT_NE(refused.message.find("already exists"), std::string::npos) << refused.message;
    EXPECT_EQ(testing::ReadWholeFile(tree.path("a.txt")), "first");
    EXPECT_EQ(testing::ReadWholeFile(tree.path("b.txt")), "second");
  }
  ASSERT_EQ(LinkRenameNoReplace(tree.path("a.txt"), tree.path("c.txt")).error, 0);
  EXPECT_FALSE(std::filesystem::exists(tree.path("a.txt")));
  EXPECT_EQ(testing::ReadWholeFile(tree.path("c.txt")), "first");
  ASSERT_EQ(RenameNoReplace(tree.path("c.txt"), tree.path("a.txt")).error, 0);
  EXPECT_EQ(testing::ReadWholeFile(tree.path("a.txt")), "first");

  // A folder has no second way: refused with a message, never renamed by a check-then-rename.
  RenameOutcome folder = LinkRenameNoReplace(tree.path("dir"), tree.path("new dir"));
  EXPECT_TRUE(folder.no_atomic_way);
  EXPECT_NE(folder.error, 0);
  EXPECT_FALSE(folder.message.empty());
  EXPECT_TRUE(std::filesystem::is_directory(tree.path("dir")));
  EXPECT_EQ(RenameNoReplace(tree.path("dir"), tree.path("other")).error, EEXIST);
  EXPECT_EQ(RenameNoReplace(tree.path("dir"), tree.path("new dir")).error, 0);
}

TEST(SetAsideNumbered, TakesTheFirstNumberFreeForTheFileAndEveryCompanion) {
  TempTree tree({"db=one", "db-wal=log one", "db.bad.1=older", "db.bad.2-wal=stray log"});
  int error = 0;
  // .bad.1 is taken by the file, .bad.2 by a companion: .bad.3 it is, for both.
  EXPECT_EQ(SetAsideNumbered(tree.path("db"), {"-wal", "-shm"}, &error), tree.path("db.bad.3"));
  EXPECT_EQ(error, 0);
  EXPECT_EQ(testing::ReadWholeFile(tree.path("db.bad.3")), "one");
  EXPECT_EQ(testing::ReadWholeFile(tree.path("db.bad.3-wal")), "log one");
  EXPECT_EQ(testing::ReadWholeFile(tree.path("db.bad.1")), "older");
  EXPECT_FALSE(std::filesystem::exists(tree.path("db")));
  EXPECT_FALSE(std::filesystem::exists(tree.path("db-wal")));
  EXPECT_EQ(SetAsideNumbered(tree.path("db"), {}, &error), "");
  EXPECT_EQ(error, ENOENT);
}

TEST(MakePrivateFolders, NewFoldersAreTheOwnersOnlyAndOldOnesKeepTheirMode) {
  TempTree tree({"open/"});
  chmod(tree.path("open").c_str(), 0755);
  ASSERT_TRUE(MakePrivateFolders(tree.path("open/a/b")));
  struct stat st;
  for (const char* folder : {"open/a", "open/a/b"}) {
    ASSERT_EQ(stat(tree.path(folder).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u) << folder;
  }
  ASSERT_EQ(stat(tree.path("open").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0755u);
}

}  // namespace
}  // namespace trovix::platform
