// Helpers for the settings tests: a temporary folder removed at the end, whole-file reading
// and writing, and a fixture that asks the same questions of both backends.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "app/settings/settings_store.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::app::testing {

using trovix::testing::ReadWholeFile;

// The shared temporary tree, its paths written the way the settings code keeps folders.
class TempFolder : public trovix::testing::TempTree {
 public:
  // The folder with a trailing "/", or a file or sub-folder in it.
  std::string path(const std::string& name = "") const { return root() + "/" + name; }
};

inline void WriteWholeFile(const std::string& path, const std::string& bytes) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
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
