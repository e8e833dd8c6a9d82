#include "app/load_file_count.h"

#include "rules/file_count_rule.h"

namespace trovix::app {

bool LoadFileCountRule(const Settings& settings, std::string* error) {
  props::FileCountSettings count = rules::MakeFileCountSettings(
      settings.szFileCountRule, (settings.binFlags & kFlagSearchHidden) != 0, error);
  const bool usable = count.usable;
  props::SetFileCountSettings(std::move(count));
  return usable;
}

}  // namespace trovix::app
