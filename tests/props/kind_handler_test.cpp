#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "props/catalogue.h"
#include "props/fetcher.h"
#include "tests/support/temp_tree.h"

namespace trovix::props {
namespace {

std::string Value(const std::string& path, const char* property) {
  auto item = ShellItem::FromPath(path);
  const CachedValue* node = GetCachedValue(*item, *DefaultCatalogue().FindProperty(property));
  return node ? node->value.ToDisplayText() : std::string();
}

// Kinds and media types come from names and status alone: the files here hold nothing that
// says what they are, and need not.
TEST(KindHandler, KindsAndMediaTypesFollowTheNameAndTheExecutableBit) {
  testing::TempTree tree({"Photo.JPG=", "song.flac=", "report.pdf=", "tool=", "notes.unknownext=", "folder/",
                          "link->Photo.JPG"});
  chmod(tree.path("tool").c_str(), 0755);
  EXPECT_EQ(Value(tree.path("Photo.JPG"), "System.Kind"), "picture");
  EXPECT_EQ(Value(tree.path("song.flac"), "System.Kind"), "music");
  EXPECT_EQ(Value(tree.path("report.pdf"), "System.Kind"), "document");
  EXPECT_EQ(Value(tree.path("tool"), "System.Kind"), "program");
  EXPECT_EQ(Value(tree.path("folder"), "System.Kind"), "folder");
  EXPECT_EQ(Value(tree.path("link"), "System.Kind"), "link");
  EXPECT_EQ(Value(tree.path("notes.unknownext"), "System.Kind"), "");
  EXPECT_EQ(Value(tree.path("folder"), "System.MIMEType"), "inode/directory");
  if (!std::filesystem::exists("/usr/share/mime/globs2")) GTEST_SKIP() << "no shared MIME database here";
  EXPECT_EQ(Value(tree.path("Photo.JPG"), "System.MIMEType"), "image/jpeg");
  EXPECT_EQ(Value(tree.path("report.pdf"), "System.MIMEType"), "application/pdf");
  EXPECT_EQ(Value(tree.path("notes.unknownext"), "System.MIMEType"), "");
}

}  // namespace
}  // namespace trovix::props
