#include "platform/dir_reader.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <string>
#include <vector>

#include "tests/support/temp_tree.h"

namespace trovix::platform {
namespace {

using trovix::testing::TempTree;

std::map<std::string, FileType> ReadAll(const std::string& path, int* error = nullptr) {
  std::unique_ptr<DirReader> reader;
  std::map<std::string, FileType> names;
  int err = DefaultDirSystem().OpenDir(path, false, &reader);
  if (err == 0) {
    DirEntry e;
    while (reader->Next(&e)) names.emplace(std::string(e.name), e.type);
    err = reader->error();
  }
  if (error) *error = err;
  return names;
}

TEST(DirReader, ListsEveryKindWithItsTypeAndSkipsDotEntries) {
  TempTree tree({"d/file.txt", "d/sub/", "d/.hidden", "d/link->sub", "d/pipe|fifo", "d/\xff\xfe.bin"});
  int err = -1;
  auto names = ReadAll(tree.path("d"), &err);
  EXPECT_EQ(err, 0);
  std::map<std::string, FileType> expected = {
      {"file.txt", FileType::kRegular}, {"sub", FileType::kDirectory},
      {".hidden", FileType::kRegular},  {"link", FileType::kSymlink},
      {"pipe", FileType::kFifo},        {"\xff\xfe.bin", FileType::kRegular}};
  // Some file systems report no d_type; then every type is unknown but names still match.
  for (auto& [name, type] : names) {
    if (type == FileType::kUnknown) type = expected[name];
  }
  EXPECT_EQ(names, expected);
}

TEST(DirReader, ReadsFoldersLargerThanOneBuffer) {
  TempTree tree({"big/"});
  const int kCount = 3000;  // about 100 KiB of records, several getdents64 calls
  for (int i = 0; i < kCount; ++i) tree.File("big/" + std::string(60, 'n') + std::to_string(i), "");
  EXPECT_EQ(ReadAll(tree.path("big")).size(), static_cast<size_t>(kCount));
}

TEST(DirReader, IdentityMatchesTheFolderStatus) {
  TempTree tree({"d/"});
  std::unique_ptr<DirReader> reader;
  ASSERT_EQ(DefaultDirSystem().OpenDir(tree.path("d"), false, &reader), 0);
  FileStatus st;
  ASSERT_EQ(DefaultDirSystem().Stat(tree.path("d"), false, &st), 0);
  EXPECT_EQ(reader->identity(), (FolderIdentity{st.device, st.inode}));
}

TEST(DirReader, OpenFailuresAreErrnoValues) {
  TempTree tree({"file", "d/", "to_d->d", "pipe|fifo"});
  std::unique_ptr<DirReader> reader;
  DirSystem& fs = DefaultDirSystem();
  EXPECT_EQ(fs.OpenDir(tree.path("missing"), false, &reader), ENOENT);
  EXPECT_EQ(fs.OpenDir(tree.path("file"), false, &reader), ENOTDIR);
  // A FIFO is refused without being opened: opening it for reading would block.
  EXPECT_EQ(fs.OpenDir(tree.path("pipe"), true, &reader), ENOTDIR);
  // A link to a folder opens only when links are followed.
  int no_follow = fs.OpenDir(tree.path("to_d"), false, &reader);
  EXPECT_TRUE(no_follow == ELOOP || no_follow == ENOTDIR) << no_follow;
  EXPECT_EQ(fs.OpenDir(tree.path("to_d"), true, &reader), 0);
}

}  // namespace
}  // namespace trovix::platform
