// Helpers for the settings tests: a temporary folder removed at the end, whole-file reading
// and writing, and a fixture that asks the same questions of both backends.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <memory>
#include <string>

#include "app/settings/settings_store.h"

namespace trovix::app::testing {

class TempFolder {
 public:
  TempFolder() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp != nullptr && *tmp ? tmp : "/tmp") + "/trovix-set-XXXXXX";
    char* made = mkdtemp(pattern.data());
    path_ = made != nullptr ? std::string(made) + "/" : std::string();
  }
  ~TempFolder() {
    std::error_code ec;
    if (!path_.empty()) std::filesystem::remove_all(path_, ec);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  // The folder with a trailing "/", or a file or sub-folder in it.
  std::string path(const std::string& name = "") const { return path_ + name; }

 private:
  std::string path_;
};

inline void WriteWholeFile(const std::string& path, const std::string& bytes) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}

inline std::string ReadWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

// The store at `cfg/` of its own temporary folder, once as a file and once as the registry.
class BothStores : public ::testing::TestWithParam<StoreKind> {
 protected:
  std::string Path() const {
    return dir_.path(GetParam() == StoreKind::kFile ? "cfg/trovix.ini" : "cfg/registry.db");
  }
  std::unique_ptr<SettingsStore> Open() {
    return GetParam() == StoreKind::kFile ? SettingsStore::OpenFile(Path()) : SettingsStore::OpenRegistry(Path());
  }
  TempFolder dir_;
};

inline std::string StoreKindName(const ::testing::TestParamInfo<StoreKind>& info) {
  return info.param == StoreKind::kFile ? "File" : "Registry";
}

}  // namespace trovix::app::testing

#define TROVIX_BOTH_STORES(fixture)                                                                   \
  INSTANTIATE_TEST_SUITE_P(Backends, fixture, ::testing::Values(StoreKind::kFile, StoreKind::kRegistry), \
                           testing::StoreKindName)
