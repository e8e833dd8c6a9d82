#include "extract/properties/document_properties.h"

#include <gtest/gtest.h>

#include "base/file_time.h"

namespace trovix::extract {
namespace {

int64_t Ticks(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  base::CivilTime c{y, mo, d, h, mi, s};
  return base::FileTimeFromCivil(c);
}

TEST(ParseIsoDate, ReadsTheFormsDocumentsWriteAndNothingElse) {
  int64_t t = 0;
  ASSERT_TRUE(ParseIsoDate("2013-12-20T11:07:00Z", &t));
  EXPECT_EQ(t, Ticks(2013, 12, 20, 11, 7));
  ASSERT_TRUE(ParseIsoDate("2013-12-20T11:07:00.52", &t));
  EXPECT_EQ(t, Ticks(2013, 12, 20, 11, 7));
  ASSERT_TRUE(ParseIsoDate("2013-12-20T11:07:00-05:30", &t));
  EXPECT_EQ(t, Ticks(2013, 12, 20, 16, 37));
  ASSERT_TRUE(ParseIsoDate("2013-12-20", &t));
  EXPECT_EQ(t, Ticks(2013, 12, 20));
  ASSERT_TRUE(ParseIsoDate("2016-12-31T23:59:60Z", &t));  // a leap second
  for (const char* bad : {"", "2013", "2013-13-01", "2013-02-30", "2013-12-20T25:00:00Z", "2013-12-20T11:07:00Q",
                          "2013-12-20 garbage", "1500-01-01", "2013-12-20T11:07:00+0100", "20131220"})
    EXPECT_FALSE(ParseIsoDate(bad, &t)) << bad;
}

TEST(DecodeOoxmlEscapes, DecodesCodesAndLeavesOtherUnderscores) {
  EXPECT_EQ(DecodeOoxmlEscapes("a_x000d_\nb"), "a\nb");
  EXPECT_EQ(DecodeOoxmlEscapes("tab_x0009_end"), "tab\tend");
  EXPECT_EQ(DecodeOoxmlEscapes("_x00E9_t_x00e9_"), "\xC3\xA9t\xC3\xA9");
  EXPECT_EQ(DecodeOoxmlEscapes("_x20AC_"), "\xE2\x82\xAC");
  EXPECT_EQ(DecodeOoxmlEscapes("snake_case_x_"), "snake_case_x_");
  EXPECT_EQ(DecodeOoxmlEscapes("_xD800_"), "_xD800_");  // no lone surrogates
  EXPECT_EQ(DecodeOoxmlEscapes("_x00"), "_x00");
}

TEST(ExtractedProperty, RoundTripsAndRefusesDamagedPayloads) {
  const ExtractedProperty samples[] = {
      ExtractedProperty::Text("System.Title", "T\xC3\xADtulo"),
      ExtractedProperty::Texts("System.Author", {"a", "", "c"}),
      ExtractedProperty::Number("System.Document.DateSaved", -5, ExtractedProperty::kTime),
      ExtractedProperty::Reals("System.GPS.Latitude", {48.0, 51.5, 12.25}),
  };
  for (const ExtractedProperty& p : samples) {
    const std::string wire = p.Encode();
    ExtractedProperty back;
    ASSERT_TRUE(back.Decode(wire)) << p.name;
    EXPECT_EQ(back.name, p.name);
    EXPECT_EQ(back.type, p.type);
    EXPECT_EQ(back.texts, p.texts);
    EXPECT_EQ(back.reals, p.reals);
    EXPECT_EQ(back.integer, p.integer);
    for (size_t cut = 0; cut < wire.size(); ++cut) EXPECT_FALSE(back.Decode(wire.substr(0, cut))) << cut;
    EXPECT_FALSE(back.Decode(wire + "x"));
  }
  std::string bad_type = samples[0].Encode();
  bad_type[4 + 12] = 99;  // after the name's length and bytes: the type
  ExtractedProperty back;
  EXPECT_FALSE(back.Decode(bad_type));
}

}  // namespace
}  // namespace trovix::extract
