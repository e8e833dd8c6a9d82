// Parses arbitrary bytes as a settings file and reads every value of it the ways the settings
// store does (string, integer, binary block), then writes the model out and parses it again:
// the second reading must see the same values.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "app/settings/profile_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using trovix::app::ProfileFile;
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  ProfileFile file = ProfileFile::Parse(bytes);
  ProfileFile again = ProfileFile::Parse(file.Serialize());

  std::vector<uint8_t> block;
  for (const std::string& section : file.SectionNames()) {
    for (const std::string& name : file.ValueNames(section)) {
      std::string first, second;
      file.GetString(section, name, &first);
      if (!again.GetString(section, name, &second) || first != second) std::abort();
      if (file.GetInt(section, name, 0xDEADBEEB) != again.GetInt(section, name, 0xDEADBEEB)) {
        std::abort();
      }
      if (first.size() >= 2) {
        block.resize(first.size() / 2 - 1);
        file.GetStruct(section, name, block.data(), block.size());
      }
    }
  }
  return 0;
}
