#include <gtest/gtest.h>

#include "app/request_settings.h"

namespace trovix::app {
namespace {

// Both front ends copy settings through this one function: what it takes decides what a
// search reads, and the console's own flags must survive it.
TEST(ApplySettingsToRequest, TakesTheContentsSettingsAndOnlyTheAskedFlagBits) {
  Settings settings;
  settings.szGrepExcludeTypes = "log, tmp";
  settings.nMaxStreamExtractSize = 123456;
  settings.binSearchFlags = 0x24;
  settings.bin1OffNotify = engine::kNotifyNoReaderAdvice;
  settings.binFlags = engine::kFlagNeverUseIndex | engine::kFlagSearchHidden;
  settings.szSimplePropertyList = "System.Size";

  engine::SearchRequest request;
  request.bin_flags = engine::kFlagFollowLinks;
  ApplySettingsToRequest(settings, engine::kFlagNeverUseIndex, &request);
  EXPECT_EQ(request.contents.grep_exclude_types, "log, tmp");
  EXPECT_EQ(request.contents.max_stream_extract_size, 123456u);
  EXPECT_EQ(request.contents.bin_search_flags, 0x24u);
  EXPECT_EQ(request.bin_search_flags, 0x24u);
  EXPECT_TRUE(request.contents_advice_suppressed);
  EXPECT_FALSE(request.index_advice_suppressed);
  EXPECT_EQ(request.simple_property_list, "System.Size");
  EXPECT_EQ(request.bin_flags, engine::kFlagFollowLinks | engine::kFlagNeverUseIndex);

  ApplySettingsToRequest(settings, ~0u, &request);
  EXPECT_EQ(request.bin_flags, settings.binFlags);
}

}  // namespace
}  // namespace trovix::app
