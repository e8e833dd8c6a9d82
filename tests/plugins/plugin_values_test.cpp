// The rules that turn a plugin's fields and answers into properties, on their edges.
#include "props/plugins/plugin_values.h"

#include <gtest/gtest.h>

namespace trovix::props {
namespace {

TEST(PluginCanonicalName, AppendsThePluginNameAndCutsTheWholeTo80) {
  EXPECT_EQ(PluginCanonicalName("Title", "mp3info"), "Title.mp3info");
  EXPECT_EQ(PluginCanonicalName("", "mp3info"), "") << "an empty name gets no plugin name";
  const std::string long_name(78, 'n');
  EXPECT_EQ(PluginCanonicalName(long_name, "plugin"), long_name + ".p");
  const std::string full(80, 'n');
  EXPECT_EQ(PluginCanonicalName(full, "plugin"), full);
  // The cut counts UTF-16 units and never leaves half of a pair.
  std::string emoji_name(79, 'n');
  emoji_name += "\xf0\x9f\x98\x80";
  EXPECT_EQ(PluginCanonicalName(emoji_name, "p"), std::string(79, 'n'));
}

TEST(PluginFieldTag, FullTextDatesAndTimesAreNoProperties) {
  EXPECT_EQ(PluginFieldTag(plugin::kFtNumeric32), VT_I4);
  EXPECT_EQ(PluginFieldTag(plugin::kFtNumeric64), VT_I8);
  EXPECT_EQ(PluginFieldTag(plugin::kFtDateTime), VT_FILETIME);
  EXPECT_EQ(PluginFieldTag(plugin::kFtStringW), VT_BSTR);
  for (int32_t type : {int32_t{plugin::kFtDate}, int32_t{plugin::kFtTime}, int32_t{plugin::kFtFullText}, 42}) EXPECT_EQ(PluginFieldTag(type), VT_EMPTY);
}

TEST(ConvertPluginValue, TheSixtyFourBitFloatRuleHoldsOnlyWhereItShould) {
  struct Case {
    double number;
    int32_t declared;
    uint16_t tag;
  } cases[] = {
      {41.0, plugin::kFtNumeric64, VT_I8},
      {41.00000009, plugin::kFtNumeric64, VT_I8},
      {41.0000002, plugin::kFtNumeric64, VT_R8},
      {40.99999999, plugin::kFtNumeric64, VT_R8},   // below a whole number: not "within above"
      {0.00000001, plugin::kFtNumeric64, VT_R8},    // under 1.0
      {41.0, plugin::kFtNumericFloating, VT_R8},    // declared floating
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.number);
    plugin::PluginValue answer;
    answer.type = plugin::kFtNumericFloating;
    answer.number = c.number;
    PropValue value;
    EXPECT_EQ(ConvertPluginValue(answer, c.declared, &value), S_OK);
    EXPECT_EQ(value.tag(), c.tag);
  }
}

TEST(ConvertPluginValue, BooleansAreTrueAboveZeroAndOtherTypesFail) {
  plugin::PluginValue answer;
  answer.type = plugin::kFtBoolean;
  PropValue value;
  for (int64_t v : {1, 7}) {
    answer.integer = v;
    ASSERT_EQ(ConvertPluginValue(answer, plugin::kFtBoolean, &value), S_OK);
    EXPECT_EQ(value.AsInt64(), -1);
  }
  for (int64_t v : {0, -1}) {
    answer.integer = v;
    ASSERT_EQ(ConvertPluginValue(answer, plugin::kFtBoolean, &value), S_OK);
    EXPECT_EQ(value.AsInt64(), 0);
  }
  answer.type = plugin::kFtDate;
  EXPECT_EQ(ConvertPluginValue(answer, plugin::kFtDate, &value), E_FAIL);
  answer.type = plugin::kFtFieldEmpty;
  EXPECT_EQ(ConvertPluginValue(answer, plugin::kFtString, &value), E_FAIL);
}

}  // namespace
}  // namespace trovix::props
