// The Debian package made from this build, unpacked into a temporary root as dpkg would install
// it: the files a user gets, the dependencies computed from the programs, and the installed
// console program reading a real PDF through the installed helper beside it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::package {
namespace {

namespace fs = std::filesystem;

std::string CorpusPdf() {
  const char* set = std::getenv("TROVIX_CORPUS");
  std::string pdf = std::string(set && *set ? set : TROVIX_CORPUS_DIR) + "/documents/crazyones-pdfa.pdf";
  return fs::is_regular_file(pdf) ? pdf : std::string();
}

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

TEST(DebianPackage, InstallsTheProgramsThatFindTheirHelperBesideThem) {
  const std::string pdf = CorpusPdf();
  if (pdf.empty()) GTEST_SKIP() << "the sample corpus is not there (set TROVIX_CORPUS)";
  if (std::system("command -v dpkg-deb >/dev/null 2>&1") != 0) GTEST_SKIP() << "dpkg-deb is not installed";

  testing::TempTree tree;
  const std::string out = tree.path("out");
  auto made = testing::RunProgram(TROVIX_CPACK, {"--config", TROVIX_BUILD_DIR "/CPackConfig.cmake", "-G", "DEB", "-B", out},
                                  tree.path("cpack.txt"));
  ASSERT_EQ(made.status, 0) << made.out << made.err;
  std::vector<fs::path> debs;
  for (const auto& entry : fs::directory_iterator(out)) {
    if (entry.path().extension() == ".deb") debs.push_back(entry.path());
  }
  ASSERT_EQ(debs.size(), 1u) << made.out;
  const std::string deb = debs[0].string();
  EXPECT_EQ(debs[0].filename().string().rfind("trovix_", 0), 0u) << deb;

  auto listing = testing::RunProgram("dpkg-deb", {"-c", deb});
  std::vector<std::string> expected = {
      "./usr/bin/trovix-cli", "./usr/bin/trovix-extract", "./usr/bin/trovix-plugin-host",
      "./usr/share/man/man1/trovix-cli.1",
      "./usr/share/bash-completion/completions/trovix-cli", "./usr/share/zsh/vendor-completions/_trovix-cli",
      "./usr/share/fish/vendor_completions.d/trovix-cli.fish", "./usr/lib/systemd/user/trovix-index.service"};
  if (fs::exists(TROVIX_BUILD_DIR "/trovix")) {
    for (const char* path : {"./usr/bin/trovix", "./usr/bin/trovix-render", "./usr/share/applications/trovix.desktop",
                             "./usr/share/icons/hicolor/scalable/apps/trovix.svg"}) {
      expected.push_back(path);
    }
  }
  for (const std::string& path : expected) EXPECT_TRUE(Contains(listing.out, path + "\n")) << path << "\n" << listing.out;

  // Computed from the libraries the programs link, the helper's document readers among them.
  auto depends = testing::RunProgram("dpkg-deb", {"-f", deb, "Depends"});
  EXPECT_TRUE(Contains(depends.out, "libpoppler-cpp")) << depends.out;
  EXPECT_TRUE(Contains(depends.out, "libsqlite3")) << depends.out;

  const std::string root = tree.path("root");
  ASSERT_EQ(testing::RunProgram("dpkg", {"-x", deb, root}).status, 0);
  const std::string unit = testing::ReadWholeFile(root + "/usr/lib/systemd/user/trovix-index.service");
  EXPECT_TRUE(Contains(unit, "\nExecStart=/usr/bin/trovix-cli index watch\n")) << unit;

  // No TROVIX_EXTRACT: the installed program must find the installed helper on its own.
  const std::string cli = root + "/usr/bin/trovix-cli";
  const std::string environment = "env -u TROVIX_EXTRACT XDG_CACHE_HOME=" + testing::ShellQuote(tree.path("cache")) + " ";
  auto text = testing::RunProgram(cli, {"text", pdf}, tree.path("text.txt"), environment);
  EXPECT_EQ(text.status, 0) << text.err;
  EXPECT_TRUE(Contains(text.out, "The Crazy Ones")) << text.out;
  EXPECT_TRUE(Contains(text.out, "The round pegs in the square holes.")) << text.out;

  // Without it the program says which helper it tried: the one in its own folder, and no other.
  fs::remove(root + "/usr/bin/trovix-extract");
  auto orphan = testing::RunProgram(cli, {"text", pdf}, tree.path("orphan.txt"), environment);
  EXPECT_EQ(orphan.status, 2) << orphan.out;
  EXPECT_TRUE(Contains(orphan.err, root + "/usr/bin/trovix-extract")) << orphan.err;
}

}  // namespace
}  // namespace trovix::package
