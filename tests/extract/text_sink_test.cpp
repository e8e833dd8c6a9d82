// The output limits of a request: exactly what fits, never half a character, pieces that are
// whole characters, and a cancel that stops between pieces.
#include "extract/text_sink.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "extract/archive/archive_names.h"

namespace trovix::extract {
namespace {

struct Collected {
  std::vector<std::string> pieces;
  std::string all() const {
    std::string s;
    for (const std::string& p : pieces) s += p;
    return s;
  }
};

TextSink MakeSink(Collected* out, ExtractLimits limits, std::function<bool()> cancelled = nullptr) {
  return TextSink(
      limits,
      [out](std::string_view piece) {
        out->pieces.emplace_back(piece);
        return true;
      },
      std::move(cancelled));
}

TEST(TextSink, StopsAtTheTextLimitWithoutSplittingACharacter) {
  Collected out;
  ExtractLimits limits;
  limits.max_text_bytes = 10;
  TextSink sink = MakeSink(&out, limits);
  EXPECT_TRUE(sink.Append("aaaaaaaaa"));
  EXPECT_FALSE(sink.Append("\xC3\xA9z"));  // "é" would end at byte 11
  EXPECT_FALSE(sink.Append("more"));
  sink.Finish();
  EXPECT_EQ(out.all(), "aaaaaaaaa");
  EXPECT_EQ(sink.stop_code(), kEndLimit);
}

TEST(TextSink, TextPerInputByteCountsOnlyPastTheFirstMegabyte) {
  ExtractLimits limits;
  limits.max_chars_per_byte = 100;
  std::string big(3'000'000, 'x');
  {
    Collected out;
    TextSink sink = MakeSink(&out, limits);
    sink.SetInputBytes(100);  // 100 x 100 bytes is below the free first megabyte
    sink.Append(big);
    sink.Finish();
    EXPECT_EQ(out.all().size(), kFreeTextBytes);
    EXPECT_EQ(sink.stop_code(), kEndLimit);
  }
  {
    Collected out;
    TextSink sink = MakeSink(&out, limits);
    sink.SetInputBytes(20'000);
    sink.Append(big);
    sink.Finish();
    EXPECT_EQ(out.all().size(), 2'000'000u);
  }
  {
    Collected out;
    TextSink sink = MakeSink(&out, limits);
    sink.SetInputBytes(-1);  // unknown size: only max_text_bytes
    EXPECT_TRUE(sink.Append(big));
    sink.Finish();
    EXPECT_EQ(out.all().size(), big.size());
    EXPECT_FALSE(sink.stopped());
  }
}

TEST(TextSink, PiecesAreBoundedAndHoldWholeCharacters) {
  Collected out;
  TextSink sink = MakeSink(&out, ExtractLimits{});
  std::string euros;
  for (int i = 0; i < 70'000; ++i) euros += "\xE2\x82\xAC";  // 3 bytes each, 210 KB
  sink.Append(euros);
  sink.Append("end");
  sink.Finish();
  ASSERT_GE(out.pieces.size(), 4u);
  for (const std::string& p : out.pieces) {
    EXPECT_LE(p.size(), kPieceBytes);
    EXPECT_TRUE(IsValidUtf8(p));
  }
  EXPECT_EQ(out.all(), euros + "end");
}

TEST(TextSink, CancelStopsAfterThePieceInFlight) {
  Collected out;
  int polls = 0;
  TextSink sink = MakeSink(&out, ExtractLimits{}, [&polls] { return ++polls >= 1; });
  EXPECT_FALSE(sink.Append(std::string(5 * kPieceBytes, 'a')));
  sink.Finish();
  EXPECT_EQ(out.pieces.size(), 1u);
  EXPECT_EQ(sink.stop_code(), kEndCancelled);
}

TEST(TextSink, NewLineIsNeverDoubledNorLeading) {
  Collected out;
  TextSink sink = MakeSink(&out, ExtractLimits{});
  sink.NewLine();
  sink.Append("a");
  sink.NewLine();
  sink.NewLine();
  sink.Append("b");
  sink.Finish();
  EXPECT_EQ(out.all(), "a\nb");
  EXPECT_TRUE(sink.has_visible_text());
}

}  // namespace
}  // namespace trovix::extract
