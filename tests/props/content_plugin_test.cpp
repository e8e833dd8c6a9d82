#include <gtest/gtest.h>

#include "props/content_plugin.h"

namespace trovix::props {
namespace {

TEST(ContentPlugin, NameAndFormatIdentifierComeFromTheLibraryName) {
  EXPECT_EQ(PluginName("/opt/plugins/FileInfo.wdx64"), "FileInfo");
  EXPECT_EQ(PluginName("/opt/p.x/audio.info.so"), "audio");  // the folder's period does not count
  EXPECT_EQ(PluginName("bare"), "bare");

  // "2WDX", the CRC-32 of the UTF-16 text (computed independently), eight zero bytes.
  EXPECT_EQ(PluginFormatId("FileInfo").ToString(), "{58445732-22C4-514D-0000-000000000000}");
  EXPECT_EQ(PluginFormatId("wdx_\xC3\xA9t\xC3\xA9").ToString(), "{58445732-2617-467F-0000-000000000000}");
  auto bytes = PluginFormatId("FileInfo").Bytes();
  EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 4), "2WDX");
}

TEST(ContentPlugin, DetectStringIsCompiledOrKeptWithItsError) {
  ContentPlugin good = MakeContentPlugin(2, "/p/pdf.wdx", "EXT=\"PDF\"");
  EXPECT_EQ(good.index, 2u);
  ASSERT_TRUE(good.detect.has_value());
  EXPECT_TRUE(good.detect->Matches({"PDF", 0}));
  EXPECT_FALSE(good.detect->Matches({"TXT", 0}));

  ContentPlugin bad = MakeContentPlugin(0, "/p/bad.wdx", "EXT=PDF");
  EXPECT_FALSE(bad.detect.has_value());
  EXPECT_NE(bad.detect_error.find("character 5"), std::string::npos) << bad.detect_error;

  EXPECT_FALSE(MakeContentPlugin(0, "/p/none.wdx", "").detect.has_value());
}

}  // namespace
}  // namespace trovix::props
