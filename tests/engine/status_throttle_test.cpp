#include "engine/walk/status_throttle.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace trovix::engine {
namespace {

size_t CodePoints(const std::string& s) {
  size_t n = 0;
  for (unsigned char c : s) n += (c & 0xC0) != 0x80;
  return n;
}

TEST(ShortenPathForStatus, KeepsShortPathsAndCutsTheMiddleOfLongOnes) {
  EXPECT_EQ(ShortenPathForStatus("/home/user/docs"), "/home/user/docs");
  std::string exact = "/" + std::string(127, 'a');
  EXPECT_EQ(ShortenPathForStatus(exact), exact);

  std::string long_path = "/srv/" + std::string(200, 'm') + "/reports";
  std::string shown = ShortenPathForStatus(long_path);
  EXPECT_EQ(CodePoints(shown), 128u);
  EXPECT_EQ(shown.substr(0, 5), "/srv/");
  EXPECT_EQ(shown.substr(shown.size() - 11), ".../reports");

  // A last component too long to keep whole still leaves the start of the path visible.
  std::string huge_name = "/data/" + std::string(300, 'n');
  shown = ShortenPathForStatus(huge_name);
  EXPECT_EQ(CodePoints(shown), 128u);
  EXPECT_EQ(shown.substr(0, 6), "/data/");
}

TEST(ShortenPathForStatus, CountsCharactersNotBytesAndShowsBadBytesAsReplacement) {
  std::string greek;
  for (int i = 0; i < 100; ++i) greek += "\xCE\xB1";  // alpha, two bytes each
  std::string shown = ShortenPathForStatus("/" + greek + "/" + greek);
  EXPECT_EQ(CodePoints(shown), 128u);
  EXPECT_NE(shown.find("..."), std::string::npos);
  EXPECT_EQ(ShortenPathForStatus("/x/\xff"), "/x/\xEF\xBF\xBD");
}

TEST(StatusThrottle, ShowsWhen1001MillisecondsPassedOrTheTickWrapped) {
  struct Sink : ResultSink {
    void SetStatus(const std::string& text) override { texts.push_back(text); }
    void SearchState(bool, std::shared_ptr<const rules::RuleSet>) override {}
    int AddResult(const props::ShellItemPtr&) override { return 0; }
    std::vector<std::string> texts;
  } sink;
  uint64_t now = 5000;
  StatusThrottle throttle(&sink, [&] { return now; });
  EXPECT_TRUE(throttle.FolderEntered("/a"));  // the first folder of a walk always shows
  now += 1000;
  EXPECT_FALSE(throttle.FolderEntered("/b"));
  now += 1;
  EXPECT_TRUE(throttle.FolderEntered("/c"));
  now = 100;  // the tick count wrapped
  EXPECT_TRUE(throttle.FolderEntered("/d"));
  throttle.Reset();
  now = 200;
  EXPECT_FALSE(throttle.FolderEntered("/e")) << "a tick count still under 1001 after a reset";
  EXPECT_EQ(sink.texts, (std::vector<std::string>{"searching in /a ...", "searching in /c ...",
                                                  "searching in /d ..."}));
}

}  // namespace
}  // namespace trovix::engine
