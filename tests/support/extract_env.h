// For tests that run the extraction helper: the helper the build made (unless TROVIX_EXTRACT
// names another), and a cache folder of the test process's own, so the memory of files that
// crashed the reader stays out of the user's.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <string>

namespace trovix::testing {

inline void UseBuiltExtractionHelper() {
  setenv("TROVIX_EXTRACT", TROVIX_EXTRACT_PATH, 0);
  const std::string cache =
      std::filesystem::temp_directory_path() / ("trovix-test-cache-" + std::to_string(getpid()));
  setenv("XDG_CACHE_HOME", cache.c_str(), 1);
}

}  // namespace trovix::testing
