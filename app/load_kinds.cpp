#include "app/load_kinds.h"

#include "props/file_kinds.h"

namespace trovix::app {

void LoadKinds(const Settings& settings) {
  std::vector<props::FileKind> kinds;
  kinds.reserve(settings.fileTypes.size());
  for (const FileTypeCategory& category : settings.fileTypes) {
    kinds.push_back(props::FileKind{category.name, category.extensions});
  }
  // An empty list gives the property layer's defaults.
  props::SetFileKinds(std::move(kinds));
}

}  // namespace trovix::app
