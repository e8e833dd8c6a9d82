// Stock properties through the program: stream rules, folder counts and kind choices, as a
// person types them.
#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <cerrno>
#include <sstream>

#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::cli {
namespace {


TEST(TrovixCliStock, StreamCountsFolderCountsAndKindChoices) {
  testing::TempTree tree({"d/tagged.txt=1", "d/plain.txt=2", "d/pics/a.jpg", "d/pics/b.png", "d/pics/c.txt"});
  auto Cli = [&](const std::vector<std::string>& args) {
    return testing::RunProgram(TROVIX_CLI_PATH, args, tree.path("stderr.txt"));
  };
  const std::string value = "x";
  if (setxattr(tree.path("d/tagged.txt").c_str(), "user.origin", value.data(), value.size(), 0) != 0) {
    if (errno == ENOTSUP || errno == EPERM) GTEST_SKIP() << "the temporary folder's file system keeps no user attributes";
    FAIL() << "setxattr";
  }
  // A plain file counts its main stream: a named stream makes two.
  auto streams = Cli({"search", tree.path("d"), "-r", "Stock.ADS: >= 2", "--columns", "name,Stock.ADSNames"});
  EXPECT_EQ(streams.status, 0);
  EXPECT_EQ(streams.out, "Name\tStream names\ntagged.txt\torigin\n");

  auto counts = Cli({"search", tree.path("d"), "-r", "Stock.FileCount: >= 3", "--columns", "name,Stock.FileCount"});
  EXPECT_EQ(counts.out, "Name\tFolder contents\npics\t3\n");

  auto pictures = Cli({"search", tree.path("d"), "-r", "Type: Pictures", "--ordered"});
  EXPECT_EQ(pictures.out, tree.path("d/pics/a.jpg") + "\n" + tree.path("d/pics/b.png") + "\n");
  auto unknown = Cli({"search", tree.path("d"), "-r", "Type: spreadsheets"});
  EXPECT_EQ(unknown.status, 2);
  EXPECT_NE(unknown.err.find("\"pictures\""), std::string::npos) << unknown.err;
}

}  // namespace
}  // namespace trovix::cli
