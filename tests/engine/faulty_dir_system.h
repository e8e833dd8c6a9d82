// FaultyDirSystem: the real file system with faults put in on demand, for walk tests that
// need what root cannot arrange with permissions (tests run as root, where a mode-000
// folder is still readable). It denies chosen folders, adds entries that do not exist (an
// item that vanished between listing and test), hides the listed types (a file system
// without d_type), cuts a listing short with a read error, and records every folder opened.
// Thread-safe: the walk's reading threads call it concurrently.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/dir_reader.h"

namespace trovix::testing {

class FaultyDirSystem final : public platform::DirSystem {
 public:
  void Deny(const std::string& path, int error) { denied_[path] = error; }
  void AddPhantom(const std::string& folder, const std::string& name, platform::FileType type) {
    phantoms_[folder].emplace_back(name, type);
  }
  void HideTypes() { hide_types_ = true; }
  // The listing of `folder` ends with `error` after `entries` entries.
  void FailReadAfter(const std::string& folder, int entries, int error) {
    read_faults_[folder] = {entries, error};
  }
  std::vector<std::string> opened() {
    std::lock_guard<std::mutex> lock(mutex_);
    return opened_;
  }

  int OpenDir(const std::string& path, bool follow_link, std::unique_ptr<platform::DirReader>* out) override {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      opened_.push_back(path);
    }
    if (auto it = denied_.find(path); it != denied_.end()) return it->second;
    std::unique_ptr<platform::DirReader> real;
    if (int err = platform::DefaultDirSystem().OpenDir(path, follow_link, &real)) return err;
    auto reader = std::make_unique<Reader>(std::move(real), hide_types_);
    if (auto it = phantoms_.find(path); it != phantoms_.end()) reader->extra = it->second;
    if (auto it = read_faults_.find(path); it != read_faults_.end()) reader->fault = it->second;
    *out = std::move(reader);
    return 0;
  }
  int Stat(const std::string& path, bool follow, platform::FileStatus* out) override {
    return platform::DefaultDirSystem().Stat(path, follow, out);
  }

 private:
  struct Reader final : platform::DirReader {
    Reader(std::unique_ptr<platform::DirReader> r, bool hide) : real(std::move(r)), hide_types(hide) {}
    bool Next(platform::DirEntry* out) override {
      if (fault.second != 0 && count == fault.first) {
        error_ = fault.second;
        return false;
      }
      ++count;
      if (next_extra < extra.size()) {
        out->name = extra[next_extra].first;
        out->type = extra[next_extra].second;
        ++next_extra;
      } else if (!real->Next(out)) {
        return false;
      }
      if (hide_types) out->type = platform::FileType::kUnknown;
      return true;
    }
    int error() const override { return error_ ? error_ : real->error(); }
    platform::FolderIdentity identity() const override { return real->identity(); }

    std::unique_ptr<platform::DirReader> real;
    bool hide_types;
    std::vector<std::pair<std::string, platform::FileType>> extra;
    size_t next_extra = 0;
    std::pair<int, int> fault{0, 0};
    int count = 0;
    int error_ = 0;
  };

  std::map<std::string, int> denied_;
  std::map<std::string, std::vector<std::pair<std::string, platform::FileType>>> phantoms_;
  std::map<std::string, std::pair<int, int>> read_faults_;
  bool hide_types_ = false;
  std::mutex mutex_;
  std::vector<std::string> opened_;
};

}  // namespace trovix::testing
