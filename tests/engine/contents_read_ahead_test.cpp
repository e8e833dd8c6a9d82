// Documents read ahead: the small documents after the first one a thread reads come in the
// same round trip, and each then reads as it would have alone (the same text, the same
// outcome, a crash charged to its own file).
#include <gtest/gtest.h>

#include <chrono>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "engine/extraction/contents_reader.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine {
namespace {

ExtractionOptions TestHelper(int64_t timeout_ms = 5000) {
  ExtractionOptions options;
  options.program = TROVIX_EXTRACT_TEST_PATH;  // crashes on "poison-crash", hangs on "poison-hang"
  options.timeout_ms = timeout_ms;
  options.helpers = 1;
  options.memory_limit = 0;
  return options;
}

struct Read {
  props::ContentsStatus status;
  std::string text;
};

Read ReadAll(props::ContentsSource& source, props::ShellItem& item) {
  Read read;
  read.status = source.Read(item, [&read](std::string_view piece) {
                          read.text += piece;
                          return true;
                        }).status;
  return read;
}

TEST(ContentsReadAhead, FollowersComeInTheFirstRoundTripAndReadAsTheyWouldAlone) {
  testing::TempTree tree({"a.html=<p>alpha</p>", "b.txt=plain bravo", "c.html=<p>charlie</p>",
                          "poison-crash.html=<p>boom</p>", "e.html=<p>echo</p>", "f.html=<p>foxtrot</p>"});
  CrashMemory memory("");
  ExtractionService service(TestHelper(), memory);
  ContentsReader reader(ContentsOptions{}, &service);
  std::vector<props::ShellItemPtr> items;
  for (const char* name : {"a.html", "b.txt", "c.html", "poison-crash.html", "e.html", "f.html"})
    items.push_back(props::ShellItem::FromPath(tree.path(name)));
  reader.ReadAhead(items);
  EXPECT_EQ(ReadAll(reader, *items[0]).text.find("alpha") != std::string::npos, true);
  // What the documents after it say now is not what is read: they were read with the first.
  for (const char* name : {"c.html", "e.html"}) tree.File(name, "<p>changed</p>");
  const Read b = ReadAll(reader, *items[1]);
  EXPECT_EQ(b.text, "plain bravo");  // plain text is never read ahead
  // Another reader on this thread has nothing read ahead.
  ContentsReader other(ContentsOptions{}, &service);
  EXPECT_NE(ReadAll(other, *items[2]).text.find("changed"), std::string::npos);
  EXPECT_NE(ReadAll(reader, *items[2]).text.find("charlie"), std::string::npos);
  const Read crashed = ReadAll(reader, *items[3]);
  EXPECT_EQ(crashed.status, props::ContentsStatus::kFailed);
  EXPECT_TRUE(crashed.text.empty());
  // Charged once, as a file read alone is: the next crash makes it skipped.
  EXPECT_FALSE(service.ShouldSkip(IdentityOf(*items[3])));
  const Read e = ReadAll(reader, *items[4]);
  EXPECT_EQ(e.status, props::ContentsStatus::kText);
  EXPECT_NE(e.text.find("echo"), std::string::npos);
  // The end of the list forgets what was not taken.
  reader.ReadAhead({});
  tree.File("f.html", "<p>changed</p>");
  EXPECT_NE(ReadAll(reader, *items[5]).text.find("changed"), std::string::npos);
}

// A search stopped while the helper hangs on a document must end now, not at the deadline,
// whether the document is read alone or with the ones after it; the stopped files are neither
// remembered as failing nor counted as unread.
TEST(ContentsReadAhead, AStopEndsAHangingReadAtOnceAndChargesNothing) {
  testing::TempTree tree({"poison-hang-1.html=<p>x</p>", "poison-hang-2.html=<p>x</p>"});
  CrashMemory memory("");
  ExtractionService service(TestHelper(20'000), memory);
  ContentsReader reader(ContentsOptions{}, &service);
  UnreadTally tally;
  reader.set_unread_tally(&tally);
  std::vector<props::ShellItemPtr> both;
  for (const char* name : {"poison-hang-1.html", "poison-hang-2.html"})
    both.push_back(props::ShellItem::FromPath(tree.path(name)));
  for (size_t read_together : {size_t{2}, size_t{1}}) {
    SCOPED_TRACE(read_together);
    std::vector<props::ShellItemPtr> items(both.begin(), both.begin() + static_cast<long>(read_together));
    std::stop_source stop;
    reader.ReadAhead(items, stop.get_token());
    const auto began = std::chrono::steady_clock::now();
    std::jthread stopper([&stop] {
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      stop.request_stop();
    });
    const Read hung = ReadAll(reader, *items[0]);
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(10));
    EXPECT_TRUE(hung.text.empty());
    reader.ReadAhead({});
  }
  for (const props::ShellItemPtr& item : both) EXPECT_FALSE(service.ShouldSkip(IdentityOf(*item)));
  EXPECT_TRUE(tally.Counts().empty());
}

}  // namespace
}  // namespace trovix::engine
