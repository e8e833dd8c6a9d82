#include "engine/extract/document_input.h"

#include <sys/stat.h>

namespace trovix::extract {

int64_t DocumentInput::Size() const {
  if (bytes) return static_cast<int64_t>(bytes->size());
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return -1;
  return static_cast<int64_t>(st.st_size);
}

std::string ExtensionOf(std::string_view name) {
  size_t slash = name.find_last_of('/');
  if (slash != std::string_view::npos) name = name.substr(slash + 1);
  size_t dot = name.find_last_of('.');
  if (dot == std::string_view::npos || dot == 0) return {};
  std::string ext(name.substr(dot + 1));
  for (char& c : ext)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return ext;
}

}  // namespace trovix::extract
