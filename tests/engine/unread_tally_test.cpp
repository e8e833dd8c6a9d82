#include "engine/extraction/unread_tally.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace trovix::engine {
namespace {

using R = UnreadReason;

TEST(UnreadTally, CountsFromManyThreadsAndSortsByReasonThenCount) {
  UnreadTally tally;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&tally] {
      for (int i = 0; i < 500; ++i) tally.Add(i % 5 ? "gz" : "png", i % 5 ? R::kNeedsSearchZip : R::kNotText);
    });
  for (auto& t : threads) t.join();
  tally.Add("pdf", R::kEncrypted);
  tally.Add("bz2", R::kNeedsSearchZip);
  const std::vector<UnreadCount> counts = tally.Counts();
  ASSERT_EQ(counts.size(), 4u);
  EXPECT_EQ(counts[0].type, "gz");
  EXPECT_EQ(counts[0].files, 1600);
  EXPECT_EQ(counts[1].type, "bz2");
  EXPECT_EQ(counts[2].type, "pdf");
  EXPECT_EQ(counts[3].type, "png");
  EXPECT_EQ(counts[3].files, 400);
  EXPECT_TRUE(tally.Met("pdf"));
  EXPECT_FALSE(tally.Met("doc"));
  tally.Clear();
  EXPECT_TRUE(tally.Counts().empty());
}

TEST(DescribeUnread, OneSentencePerTypeAndReasonInTheFrontEndsWords) {
  UnreadWording desktop;
  desktop.search_zip = "the setting reads them";
  EXPECT_TRUE(DescribeUnread({}, desktop).empty());
  EXPECT_EQ(DescribeUnread({{"gz", R::kNeedsSearchZip, 2335}, {"xz", R::kNeedsSearchZip, 1}}, desktop),
            (std::vector<std::string>{"2,335 .gz files not read: the setting reads them",
                                      "1 .xz file not read: the setting reads them"}));
  EXPECT_EQ(DescribeUnread({{"pdf", R::kEncrypted, 2}, {"", R::kDamaged, 1}}, UnreadWording{}),
            (std::vector<std::string>{"2 .pdf files not read: encrypted",
                                      "1 file without an extension not read: they could not be opened or are damaged"}));
  // Alone, the files nothing reads are not "other" files; their commonest types are named.
  EXPECT_EQ(DescribeUnread({{"so", R::kNotText, 3}, {"png", R::kNotText, 9}, {"", R::kNotText, 4},
                            {"mo", R::kNotText, 2}, {"o", R::kNotText, 1}},
                           UnreadWording{}),
            (std::vector<std::string>{"19 files not read: not text, and nothing reads their type (.png, .so, .mo, ...)"}));
}

TEST(DescribeUnread, GroupsPastTheLastSentenceAreStillCounted) {
  std::vector<UnreadCount> counts;
  for (const char* type : {"a", "b", "c", "d"}) counts.push_back({type, R::kEncrypted, 10});
  counts.push_back({"png", R::kNotText, 5});
  const std::vector<std::string> lines = DescribeUnread(counts, UnreadWording{}, 3);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], "10 .a files not read: encrypted");
  EXPECT_EQ(lines[1], "10 .b files not read: encrypted");
  EXPECT_EQ(lines[2], "25 other files not read: for these and other reasons (.c, .d, .png)");
}

}  // namespace
}  // namespace trovix::engine
