#include "app/request_settings.h"

namespace trovix::app {

void ApplySettingsToContents(const Settings& settings, engine::ContentsOptions* contents) {
  contents->grep_exclude_types = settings.szGrepExcludeTypes;
  contents->max_stream_extract_size = settings.nMaxStreamExtractSize;
  contents->bin_search_flags = settings.binSearchFlags;
}

void ApplySettingsToRequest(const Settings& settings, uint32_t bin_flags_taken, engine::SearchRequest* request) {
  ApplySettingsToContents(settings, &request->contents);
  request->bin_flags = (request->bin_flags & ~bin_flags_taken) | (settings.binFlags & bin_flags_taken);
  request->bin_search_flags = settings.binSearchFlags;
  request->contents_advice_suppressed = (settings.bin1OffNotify & engine::kNotifyNoReaderAdvice) != 0;
  request->index_advice_suppressed = (settings.bin1OffNotify & engine::kNotifyIndexAdvice) != 0;
  request->simple_property_list = settings.szSimplePropertyList;
  request->answer_timeout = std::chrono::milliseconds(settings.nAnswerTimeout);
}

}  // namespace trovix::app
