#include "platform/named_streams.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>

#include "tests/support/temp_tree.h"

namespace trovix::platform {
namespace {

// Sets a user attribute; false when this file system keeps none, so the caller can skip.
bool SetStream(const std::string& path, const std::string& name, std::string_view value, int* error) {
  if (setxattr(path.c_str(), ("user." + name).c_str(), value.data(), value.size(), 0) == 0) return true;
  *error = errno;
  return false;
}

#define REQUIRE_STREAM(path, name, value)                                                        \
  do {                                                                                           \
    int error_ = 0;                                                                              \
    if (!SetStream(path, name, value, &error_)) {                                                \
      if (error_ == ENOTSUP || error_ == EPERM)                                                  \
        GTEST_SKIP() << "the temporary folder's file system keeps no user attributes: "          \
                     << std::strerror(error_);                                                   \
      FAIL() << "setxattr " << name << ": " << std::strerror(error_);                           \
    }                                                                                            \
  } while (0)

TEST(NamedStreams, ListsUserAttributesWithSizesInListingOrder) {
  testing::TempTree tree({"a.txt=main", "folder/"});
  const std::string file = tree.path("a.txt");
  REQUIRE_STREAM(file, "first", "12345");
  REQUIRE_STREAM(file, "second", "");
  REQUIRE_STREAM(tree.path("folder"), "note", "x");

  std::vector<NamedStream> streams;
  ASSERT_EQ(DefaultStreamSystem().List(file, false, &streams), 0);
  ASSERT_EQ(streams.size(), 2u);
  // The listing order is the file system's; both names, prefix gone, sizes known.
  std::map<std::string, int64_t> by_name;
  for (const NamedStream& s : streams) by_name[s.name] = s.size;
  EXPECT_EQ(by_name["first"], 5);
  EXPECT_EQ(by_name["second"], 0);

  ASSERT_EQ(DefaultStreamSystem().List(tree.path("folder"), false, &streams), 0);
  ASSERT_EQ(streams.size(), 1u);
  EXPECT_EQ(streams[0].name, "note");
}

TEST(NamedStreams, ReadCutsAtTheLimitAndMissingStreamsSayNoData) {
  testing::TempTree tree({"a.txt", "link->a.txt"});
  REQUIRE_STREAM(tree.path("a.txt"), "comment", "hello world");
  std::string value;
  ASSERT_EQ(DefaultStreamSystem().Read(tree.path("a.txt"), "comment", false, 5, &value), 0);
  EXPECT_EQ(value, "hello");
  EXPECT_EQ(DefaultStreamSystem().Read(tree.path("a.txt"), "none", false, 100, &value), ENODATA);
  // Through a followed link the target's streams are read; the link itself has none.
  ASSERT_EQ(DefaultStreamSystem().Read(tree.path("link"), "comment", true, 100, &value), 0);
  EXPECT_EQ(value, "hello world");
  std::vector<NamedStream> streams;
  EXPECT_EQ(DefaultStreamSystem().List(tree.path("link"), false, &streams), 0);
  EXPECT_TRUE(streams.empty());
}

TEST(NamedStreams, UnreadableAndMissingFilesListNothing) {
  testing::TempTree tree({"secret.txt", "fifo|fifo"});
  std::vector<NamedStream> streams;
  EXPECT_EQ(DefaultStreamSystem().List(tree.path("gone"), false, &streams), ENOENT);
  // A pipe is asked by path, never opened (opening it would wait for a writer).
  EXPECT_EQ(DefaultStreamSystem().List(tree.path("fifo"), false, &streams), 0);
  if (geteuid() == 0) GTEST_SKIP() << "running as root, every file can be read";
  chmod(tree.path("secret.txt").c_str(), 0);
  EXPECT_EQ(DefaultStreamSystem().List(tree.path("secret.txt"), false, &streams), EACCES);
}

TEST(NamedStreams, ClusterSizeIsAPowerOfTwoOrTheDefault) {
  testing::TempTree tree({"a"});
  uint32_t cluster = DefaultStreamSystem().ClusterSize(tree.path("a"));
  EXPECT_GE(cluster, 512u);
  EXPECT_EQ(cluster & (cluster - 1), 0u);
  EXPECT_EQ(DefaultStreamSystem().ClusterSize(tree.path("missing/x")), 4096u);
}

}  // namespace
}  // namespace trovix::platform
