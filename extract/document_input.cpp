#include "extract/document_input.h"

#include <sys/stat.h>

#include "base/file_name.h"

namespace trovix::extract {

int64_t DocumentInput::Size() const {
  if (bytes) return static_cast<int64_t>(bytes->size());
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return -1;
  return static_cast<int64_t>(st.st_size);
}

std::string ExtensionOf(std::string_view name) { return LowerExtension(name); }

}  // namespace trovix::extract
