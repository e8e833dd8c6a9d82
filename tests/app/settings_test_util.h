// Helpers for the settings tests: a temporary folder removed at the end, and whole-file
// reading and writing.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

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

}  // namespace trovix::app::testing
