// Lister plugins in a real plugin host in lister mode, with the tests' lister library: its own
// detect string against a configured one, the 64-bit name, the files it refuses, a lister that
// crashes or hangs, what the lister host's sandbox admits, and the boundary between the
// content and the lister hosts. Drawing into a window needs an X server: the quick view's
// tests do that under a virtual one.
#include "props/plugins/lister_plugins.h"

#include <gtest/gtest.h>
#include <stdio.h>

#include <array>
#include <cstdio>
#include <memory>
#include <string>

#include "tests/support/temp_tree.h"

namespace trovix::props {
namespace {

#ifdef TROVIX_TEST_LISTER

PluginHostOptions ListerOptions(int64_t timeout_ms = 5000) {
  PluginHostOptions options;
  options.program = TROVIX_PLUGIN_HOST_PATH;
  options.timeout_ms = timeout_ms;
  return options;
}

ListerSet Listers(const std::string& detect = "", int64_t timeout_ms = 5000) {
  return ListerSet({MakeContentPlugin(0, TROVIX_TEST_LISTER, detect)}, ListerOptions(timeout_ms));
}

std::string Output(const std::string& command) {
  std::string out;
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return out;
  std::array<char, 4096> buffer;
  size_t n;
  while ((n = fread(buffer.data(), 1, buffer.size(), pipe)) > 0) out.append(buffer.data(), n);
  pclose(pipe);
  return out;
}

TEST(ListerSet, TheListersOwnDetectStringIsAskedOnceAndAConfiguredOneWins) {
  testing::TempTree tree({"a.dat=refuse"});
  ListerSet own = Listers();
  // Before its library was loaded, its own detect string is not known: it may take anything.
  EXPECT_TRUE(own.MayShow({"DAT", 6}));
  std::string detect;
  const PluginOutcome outcome = own.host().ListerDetect(TROVIX_TEST_LISTER, &detect);
  ASSERT_EQ(outcome.status, S_OK) << outcome.message
                                  << " (the plain name needs the wlx64 fall-back)";
  EXPECT_EQ(detect, "EXT=\"TXT\" | EXT=\"LST\"");
  // A file its detect string refuses never reaches the library.
  EXPECT_EQ(own.Show(tree.path("a.dat"), {"DAT", 6}, 1).window, 0u);
  EXPECT_FALSE(own.MayShow({"DAT", 6}));
  EXPECT_TRUE(own.MayShow({"TXT", 6}));

  ListerSet configured = Listers("EXT=\"DAT\"");
  EXPECT_TRUE(configured.MayShow({"DAT", 6}));
  EXPECT_FALSE(configured.MayShow({"TXT", 6}));
  // A configured text that does not compile filters nothing.
  EXPECT_TRUE(Listers("EXT=").MayShow({"XYZ", 1}));
}

TEST(ListerSet, ARefusedFileAndALibraryThatIsNoListerShowNothing) {
  testing::TempTree tree({"no.txt=refuse"});
  ListerSet listers = Listers();
  const ListerShown shown = listers.Show(tree.path("no.txt"), {"TXT", 6}, 1);
  EXPECT_EQ(shown.window, 0u);
  EXPECT_EQ(shown.message, "the lister refused the file");
  EXPECT_EQ(listers.host().host_starts(), 1u) << "a refusal is no failure";

  // A content plugin is no lister: refused when loaded, and the next lister is asked.
  ListerSet mixed({MakeContentPlugin(0, std::string(TROVIX_TEST_PLUGIN_DIR) + "/allfields.wdx", ""),
                   MakeContentPlugin(1, TROVIX_TEST_LISTER, "")},
                  ListerOptions());
  EXPECT_EQ(mixed.Show(tree.path("no.txt"), {"TXT", 6}, 1).message, "the lister refused the file");
  std::string detect;
  EXPECT_EQ(mixed.host()
                .ListerDetect(std::string(TROVIX_TEST_PLUGIN_DIR) + "/allfields.wdx", &detect)
                .message,
            "the library has neither ListLoad nor ListLoadW");
}

TEST(ListerSet, ACrashingOrHangingListerCostsThePreviewAndIsDisabledAfterThreeFailures) {
  testing::TempTree tree({"boom.txt=crash", "stuck.txt=hang", "fine.txt=refuse"});
  ListerSet listers = Listers("", 800);
  std::string notice;
  listers.host().SetNoticeHandler([&](const std::string& text) { notice = text; });
  EXPECT_EQ(listers.Show(tree.path("boom.txt"), {"TXT", 6}, 1).window, 0u);
  EXPECT_EQ(listers.Show(tree.path("stuck.txt"), {"TXT", 6}, 1).window, 0u);
  // The host is started again for the next file.
  EXPECT_EQ(listers.Show(tree.path("fine.txt"), {"TXT", 6}, 1).message,
            "the lister refused the file");
  EXPECT_TRUE(notice.empty());
  EXPECT_TRUE(listers.MayShow({"TXT", 6}));
  EXPECT_EQ(listers.Show(tree.path("boom.txt"), {"TXT", 6}, 1).window, 0u);
  EXPECT_TRUE(listers.host().Disabled(TROVIX_TEST_LISTER));
  EXPECT_EQ(notice, PluginDisabledMessage(TROVIX_TEST_LISTER, true));
  EXPECT_NE(notice.find("lister plugin"), std::string::npos);
  EXPECT_FALSE(listers.MayShow({"TXT", 6})) << "a disabled lister is offered nothing";
  const uint64_t starts = listers.host().host_starts();
  EXPECT_EQ(listers.Show(tree.path("fine.txt"), {"TXT", 6}, 1).window, 0u);
  EXPECT_EQ(listers.host().host_starts(), starts) << "a disabled lister starts no host";
}

TEST(ListerHost, ItsSandboxAdmitsUnixSocketsOnlyAndTheContentHostsNone) {
  const std::string lister = Output(std::string(TROVIX_PLUGIN_HOST_PATH) + " --sandbox --lister");
  EXPECT_NE(lister.find("seccomp allow-list: in force"), std::string::npos) << lister;
  EXPECT_NE(lister.find("sockets: unix stream sockets only"), std::string::npos) << lister;
  EXPECT_NE(lister.find("landlock file system (read-only): in force"), std::string::npos) << lister;
  const std::string content = Output(std::string(TROVIX_PLUGIN_HOST_PATH) + " --sandbox");
  EXPECT_NE(content.find("sockets: none"), std::string::npos) << content;

  // What the report says holds for a lister: no IP socket, no file written.
  testing::TempTree tree({"out.txt=escape"});
  ListerSet listers = Listers();
  const ListerShown shown = listers.Show(tree.path("out.txt"), {"TXT", 6}, 1);
  EXPECT_EQ(shown.window, 0u) << "the lister opened an IP socket or wrote a file";
  EXPECT_EQ(shown.message, "the lister refused the file");
}

TEST(ListerHost, ContentAndListerHostsKeepToTheirOwnPlugins) {
  testing::TempTree tree({"a.txt=x"});
  // A lister request to a content host, and a content request to a lister host, are refused
  // as requests (no failure counted, no library loaded).
  PluginHostClient content(ListerOptions());
  uint64_t window = 0;
  const PluginOutcome wrong_host =
      content.ListerShow(TROVIX_TEST_LISTER, tree.path("a.txt"), 1, &window);
  EXPECT_EQ(wrong_host.status, E_FAIL);
  EXPECT_EQ(wrong_host.message, "a content host runs content plugins only");
  EXPECT_FALSE(wrong_host.host_failed);

  PluginHostOptions options = ListerOptions();
  options.lister = true;
  PluginHostClient lister(options);
  const PluginFieldList& fields =
      lister.Fields(std::string(TROVIX_TEST_PLUGIN_DIR) + "/allfields.wdx");
  EXPECT_FALSE(fields.loaded);
  EXPECT_EQ(fields.error, "a lister host runs lister plugins only");
}

#endif  // TROVIX_TEST_LISTER

}  // namespace
}  // namespace trovix::props
