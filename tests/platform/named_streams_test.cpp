#include "platform/named_streams.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

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
  EXPECT_EQ(DefaultStreamSystem().ClusterSize(tree.path("gone/x")), 4096u);
  // A pipe is asked by path, never opened (opening it would wait for a writer).
  EXPECT_EQ(DefaultStreamSystem().List(tree.path("fifo"), false, &streams), 0);
  if (geteuid() == 0) GTEST_SKIP() << "running as root, every file can be read";
  chmod(tree.path("secret.txt").c_str(), 0);
  EXPECT_EQ(DefaultStreamSystem().List(tree.path("secret.txt"), false, &streams), EACCES);
}

}  // namespace
}  // namespace trovix::platform
