#include "extract/document_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/file_name.h"

namespace trovix::extract {

int64_t DocumentInput::Size() const {
  if (bytes) return static_cast<int64_t>(bytes->size());
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return -1;
  return static_cast<int64_t>(st.st_size);
}

std::string DocumentInput::Head(size_t count) const {
  if (bytes) return bytes->substr(0, count);
  std::string head(count, '\0');
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return {};
  const ssize_t n = read(fd, head.data(), count);
  close(fd);
  head.resize(n > 0 ? static_cast<size_t>(n) : 0);
  return head;
}

std::string ExtensionOf(std::string_view name) { return LowerExtension(name); }

}  // namespace trovix::extract
