// Fuzzes the detect-string compiler and evaluator: any text must compile or fail with an error
// whose position lies inside the text (or just past its end), and a compiled string must
// evaluate on any extension and size without crashing.
//
// Input: the detect string, optionally followed by a NUL byte, eight bytes of size and the
// extension.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "props/detect_string.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);
  size_t split = input.find('\0');
  std::string_view text = input.substr(0, split);
  std::string_view rest = split == std::string_view::npos ? std::string_view() : input.substr(split + 1);

  trovix::props::DetectError error;
  std::optional<trovix::props::DetectString> detect = trovix::props::DetectString::Compile(text, &error);
  if (!detect) {
    if (error.message.empty()) abort();
    if (error.position > text.size()) abort();
    return 0;
  }
  trovix::props::DetectItem item;
  if (rest.size() >= 8) {
    std::memcpy(&item.size, rest.data(), 8);
    rest.remove_prefix(8);
  }
  item.extension = std::string(rest);
  bool first = detect->Matches(item);
  // A compiled string is immutable: the same item gives the same answer.
  if (detect->Matches(item) != first) abort();
  return 0;
}
