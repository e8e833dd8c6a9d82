// trovix-cli text and contents searches, run as a user runs them, on files the tests make and
// on the sample documents when they are there.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::cli {
namespace {

// Every run gets a cache folder of its own: the memory of crashing files stays out of $HOME.
testing::ProgramRun Cli(const testing::TempTree& tree, const std::vector<std::string>& args) {
  return testing::RunProgram(TROVIX_CLI_PATH, args, tree.path("stderr.txt"),
                             "XDG_CACHE_HOME=" + testing::ShellQuote(tree.path(".cache")) + " ");
}

std::string CorpusDir() {
  const char* set = std::getenv("TROVIX_CORPUS");
  std::string dir = set && *set ? set : TROVIX_CORPUS_DIR;
  return std::filesystem::is_directory(dir) ? dir : std::string();
}

TEST(TrovixCliText, PrintsTheTextOrSaysWhyThereIsNone) {
  testing::TempTree tree({"note.txt=one two three four", "empty.txt=", "folder/"});
  tree.File("blob.xyz", std::string("\0\1\2\3\0\0\x7F" "ELF", 11));
  auto run = Cli(tree, {"text", tree.path("note.txt")});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "one two three four");

  auto excerpt = Cli(tree, {"text", tree.path("note.txt"), "--excerpt", "5", "--term", "TWO"});
  EXPECT_EQ(excerpt.out, "...\r\ntwo t\r\n...\n");

  EXPECT_EQ(Cli(tree, {"text", tree.path("empty.txt")}).status, 1);
  auto binary = Cli(tree, {"text", tree.path("blob.xyz")});
  EXPECT_EQ(binary.status, 2);
  EXPECT_NE(binary.err.find("no reader for .xyz"), std::string::npos) << binary.err;
  EXPECT_EQ(Cli(tree, {"text", tree.path("missing.txt")}).status, 2);
  EXPECT_EQ(Cli(tree, {"text", tree.path("folder")}).status, 2);
}

TEST(TrovixCliText, ReadsArchiveMembersByTheirPath) {
  testing::TempTree tree({"src/docs/b.txt=inside the archive", "src/inner/c.txt=two levels down"});
  std::string command = "cd '" + tree.path("src") + "' && zip -qr inner.zip inner && zip -qr '" +
                        tree.path("a.zip") + "' docs inner.zip";
  ASSERT_EQ(std::system(command.c_str()), 0);
  auto member = Cli(tree, {"text", tree.path("a.zip/docs/b.txt")});
  EXPECT_EQ(member.status, 0) << member.err;
  EXPECT_EQ(member.out, "inside the archive");
  auto nested = Cli(tree, {"text", tree.path("a.zip/inner.zip/inner/c.txt")});
  EXPECT_EQ(nested.out, "two levels down") << nested.err;
  EXPECT_EQ(Cli(tree, {"text", tree.path("a.zip/docs/none.txt")}).status, 2);
}

TEST(TrovixCliText, SearchShowsWhereTheTextWasFoundAndAdvisesOnce) {
  testing::TempTree tree({"x/a.txt=alpha\nthe hidden treasure lies here\nomega", "x/b.txt=nothing"});
  auto run = Cli(tree, {"search", tree.path("x"), "-r", "System.Search.Contents: hidden treasure", "--columns",
                        "name,excerpt"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "Name\texcerpt\na.txt\talpha the hidden treasure lies here omega\n");
  size_t first = run.err.find("no reader");
  ASSERT_NE(first, std::string::npos) << run.err;
  EXPECT_EQ(run.err.find("no reader", first + 1), std::string::npos);
  // The setting it names silences it.
  const std::string ini = tree.path("trovix.ini");
  ASSERT_EQ(Cli(tree, {"--settings", ini, "settings", "set", "bin1OffNotify", "2"}).status, 0);
  auto quiet = Cli(tree, {"--settings", ini, "search", tree.path("x"), "-r", "System.Search.Contents: treasure"});
  EXPECT_EQ(quiet.status, 0) << quiet.err;
  EXPECT_EQ(quiet.err.find("no reader"), std::string::npos) << quiet.err;
}

TEST(TrovixCliText, SampleDocumentsGiveTheirTextAndLockedOnesSaySo) {
  const std::string corpus = CorpusDir();
  if (corpus.empty()) GTEST_SKIP() << "the sample corpus is not there (set TROVIX_CORPUS)";
  testing::TempTree tree;
  auto locked = Cli(tree, {"text", corpus + "/documents/libreoffice-writer-password.pdf"});
  EXPECT_EQ(locked.status, 2);
  EXPECT_NE(locked.err.find("encrypted"), std::string::npos) << locked.err;
  auto nasty = Cli(tree, {"text", corpus + "/documents/nasty.odt"});
  EXPECT_NE(nasty.out.find("Test:"), std::string::npos) << nasty.err;
  // Every sample document is searched without a crash of the search.
  auto all = Cli(tree, {"search", corpus, "-r", "System.Search.Contents: the", "--virtual-folders"});
  EXPECT_EQ(all.status, 0) << all.err;
}

}  // namespace
}  // namespace trovix::cli
