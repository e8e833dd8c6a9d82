#include <gtest/gtest.h>

#include <string>

#include "base/clock.h"
#include "base/crc32.h"
#include "base/file_time.h"
#include "base/utf.h"

namespace trovix::base {
namespace {

TEST(Crc32, StandardCheckValueAndContinuation) {
  EXPECT_EQ(Crc32("123456789", 9), 0xCBF43926u);
  EXPECT_EQ(Crc32("", 0), 0u);
  uint32_t first = Crc32("1234", 4);
  EXPECT_EQ(Crc32("56789", 5, first), 0xCBF43926u);
}

TEST(FileTime, UnixEpochAndRoundTrip) {
  EXPECT_EQ(FileTimeFromUnix(0), kUnixEpoch);
  EXPECT_EQ(UnixFromFileTime(FileTimeFromUnix(1'700'000'000)), 1'700'000'000);
  // Before 1970 seconds round towards minus infinity.
  EXPECT_EQ(UnixFromFileTime(kUnixEpoch - 1), -1);
  CivilTime c = CivilFromFileTime(0);
  EXPECT_EQ(c.year, 1601);
  EXPECT_EQ(c.month, 1);
  EXPECT_EQ(c.day, 1);
  EXPECT_EQ(c.day_of_week, 1);  // 1601-01-01 was a Monday
}

TEST(FileTime, CivilRoundTripKeepsEveryTick) {
  for (FileTime t : {FileTime{0}, kUnixEpoch, FileTimeFromUnix(951'782'400) + 1234567,  // 2000-02-29
                     FileTimeFromUnix(4'102'444'799, 999'999'900)}) {
    CivilTime c = CivilFromFileTime(t);
    EXPECT_TRUE(IsValidCivil(c));
    EXPECT_EQ(FileTimeFromCivil(c), t);
  }
  CivilTime leap = CivilFromFileTime(FileTimeFromUnix(951'782'400));
  EXPECT_EQ(leap.month, 2);
  EXPECT_EQ(leap.day, 29);
  EXPECT_EQ(DaysInMonth(1900, 2), 28);
  EXPECT_EQ(DaysInMonth(2000, 2), 29);
}

TEST(FileTime, ExtremesSaturateInsteadOfWrapping) {
  EXPECT_EQ(FileTimeFromUnix(INT64_MAX), kMaxFileTime);
  EXPECT_EQ(FileTimeFromUnix(INT64_MIN), kMinFileTime);
  EXPECT_EQ(UnixFromFileTime(kMinFileTime), -922'337'203'685 - 11'644'473'600 - 1);
  EXPECT_EQ(UnixFromFileTime(kMaxFileTime), 922'337'203'685 - 11'644'473'600);
  // Both ends have a civil time, one that leads back to them.
  for (FileTime t : {kMinFileTime, kMaxFileTime}) {
    CivilTime c = CivilFromFileTime(t);
    EXPECT_TRUE(IsValidCivil(c));
    EXPECT_EQ(FileTimeFromCivil(c), t);
  }
  EXPECT_EQ(CivilFromFileTime(kMaxFileTime).year, 30828);
  // Years past the range, and fields far outside theirs, pin to the ends.
  EXPECT_EQ(FileTimeFromCivil({99999, 1, 1}), kMaxFileTime);
  EXPECT_EQ(FileTimeFromCivil({-99999, 1, 1}), kMinFileTime);
  EXPECT_EQ(FileTimeFromCivil({2000, 1, 1, 1'000'000}),
            FileTimeFromCivil({2000, 1, 1}) + 1'000'000 * kTicksPerHour);
  EXPECT_EQ(FileTimeFromCivil({2000, 1, 1, INT32_MAX}), kMaxFileTime);
  EXPECT_EQ(FileTimeFromCivil({INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX}), kMaxFileTime);
  EXPECT_EQ(FileTimeFromCivil({INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN}), kMinFileTime);
  // A month out of its range carries into the year instead of reading a wrong table row.
  EXPECT_EQ(FileTimeFromCivil({2014, 13, 1}), FileTimeFromCivil({2015, 1, 1}));
  EXPECT_EQ(FileTimeFromCivil({2014, 0, 1}), FileTimeFromCivil({2013, 12, 1}));
}

TEST(FileTime, CivilYearsAcrossTheCenturyRules) {
  // 1600 and 2000 are leap years, 1700 and 2100 are not; year 0 exists in this calendar.
  for (int year : {0, 1600, 1700, 2000, 2100, 10000, 30000}) {
    SCOPED_TRACE(year);
    const FileTime march = FileTimeFromCivil({year, 3, 1});
    const bool leap = year % 400 == 0 || (year % 4 == 0 && year % 100 != 0);
    EXPECT_EQ(march - FileTimeFromCivil({year, 2, 28}), (leap ? 2 : 1) * kTicksPerDay);
    CivilTime c = CivilFromFileTime(march - 1);
    EXPECT_EQ(c.year, year);
    EXPECT_EQ(c.day, leap ? 29 : 28);
  }
}

class LocalTimeTest : public ::testing::Test {
 protected:
  void TearDown() override { SetLocalTimeZone(""); }
};

TEST_F(LocalTimeTest, UtcZoneIsIdentityAndAnUnknownZoneIsRefused) {
  ASSERT_TRUE(SetLocalTimeZone("UTC"));
  FileTime t = FileTimeFromUnix(1'700'000'000);
  EXPECT_EQ(UtcToLocal(t), t);
  EXPECT_EQ(LocalToUtc(t), t);
  EXPECT_FALSE(SetLocalTimeZone("Nowhere/Atlantis"));
  EXPECT_EQ(LocalTimeZoneId(), "UTC");
}

TEST_F(LocalTimeTest, FollowsDaylightSavingAcrossTheChange) {
  ASSERT_TRUE(SetLocalTimeZone("Europe/Berlin"));
  // 2024-03-31 00:30 UTC is winter time (+1), 02:30 UTC summer time (+2).
  FileTime before = FileTimeFromCivil({2024, 3, 31, 0, 30});
  FileTime after = FileTimeFromCivil({2024, 3, 31, 2, 30});
  EXPECT_EQ(UtcToLocal(before) - before, kTicksPerHour);
  EXPECT_EQ(UtcToLocal(after) - after, 2 * kTicksPerHour);
  EXPECT_EQ(LocalToUtc(UtcToLocal(before)), before);
  EXPECT_EQ(LocalToUtc(UtcToLocal(after)), after);
  // 02:30 local does not exist that night: it takes the offset in force before the change.
  FileTime gap = FileTimeFromCivil({2024, 3, 31, 2, 30});
  EXPECT_EQ(gap - LocalToUtc(gap), kTicksPerHour);
}

TEST_F(LocalTimeTest, OffsetsStopAtTheEndsOfTheRange) {
  // East of UTC local time runs ahead, west of it behind: each overflows at one end.
  for (const char* zone : {"Asia/Tokyo", "America/New_York"}) {
    SCOPED_TRACE(zone);
    ASSERT_TRUE(SetLocalTimeZone(zone));
    for (FileTime t : {kMinFileTime, kMinFileTime + 1, kMaxFileTime - 1, kMaxFileTime}) {
      const FileTime local = UtcToLocal(t), utc = LocalToUtc(t);
      EXPECT_LT(local > t ? local - t : t - local, kTicksPerDay);
      EXPECT_LT(utc > t ? utc - t : t - utc, kTicksPerDay);
    }
  }
}

TEST(Clock, FixedClockNestsAndRestores) {
  FileTime real = NowUtc();
  {
    ScopedFixedClock outer(1000);
    EXPECT_EQ(NowUtc(), 1000);
    {
      ScopedFixedClock inner(2000);
      EXPECT_EQ(NowUtc(), 2000);
    }
    EXPECT_EQ(NowUtc(), 1000);
  }
  EXPECT_GE(NowUtc(), real);
}

TEST(Utf, ConvertsBothWaysAndReplacesIllFormedInput) {
  std::string text = "Stra\xC3\x9F" "e \xF0\x9F\x93\x81";  // "Straße 📁"
  std::u16string wide = Utf8ToUtf16(text);
  EXPECT_EQ(wide.size(), 9u);  // the folder sign is a surrogate pair
  EXPECT_EQ(Utf16ToUtf8(wide), text);
  EXPECT_TRUE(IsValidUtf8(text));
  std::string bad = "a\xFF" "b\xC3";
  EXPECT_FALSE(IsValidUtf8(bad));
  EXPECT_EQ(ToDisplayUtf8(bad), "a\xEF\xBF\xBD" "b\xEF\xBF\xBD");
  // A lone surrogate becomes U+FFFD rather than ill-formed UTF-8.
  EXPECT_EQ(Utf16ToUtf8(std::u16string(1, char16_t(0xD800))), "\xEF\xBF\xBD");
}

TEST(Utf, Utf16LittleEndianBytes) {
  std::string bytes;
  AppendUtf16LE(bytes, u"A\u00DF");
  EXPECT_EQ(bytes, std::string("A\0\xDF\0", 4));
  auto* raw = reinterpret_cast<const uint8_t*>(bytes.data());
  EXPECT_EQ(ReadUtf16LE(raw, 2), u"A\u00DF");
}

}  // namespace
}  // namespace trovix::base
