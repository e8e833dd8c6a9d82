#include "engine/extraction/crash_memory.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "platform/atomic_file.h"

namespace trovix::engine {
namespace {

// Keys are bytes (paths need not be UTF-8; members are joined by NUL): tabs, line breaks,
// NULs and backslashes are escaped so that every entry stays one line.
std::string Escape(const std::string& key) {
  std::string out;
  for (char c : key) {
    switch (c) {
      case '\\': out += "\\\\"; break;
      case '\t': out += "\\t"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\0': out += "\\0"; break;
      default: out += c;
    }
  }
  return out;
}

bool Unescape(const std::string& text, std::string* out) {
  out->clear();
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      out->push_back(text[i]);
      continue;
    }
    if (++i >= text.size()) return false;
    switch (text[i]) {
      case '\\': out->push_back('\\'); break;
      case 't': out->push_back('\t'); break;
      case 'n': out->push_back('\n'); break;
      case 'r': out->push_back('\r'); break;
      case '0': out->push_back('\0'); break;
      default: return false;
    }
  }
  return true;
}

void MakeFolders(const std::string& file) {
  for (size_t slash = file.find('/', 1); slash != std::string::npos; slash = file.find('/', slash + 1))
    ::mkdir(file.substr(0, slash).c_str(), 0700);
}

}  // namespace

CrashMemory::CrashMemory(std::string file) : file_(std::move(file)) {}

CrashMemory& CrashMemory::Shared() {
  static CrashMemory* memory = new CrashMemory(DefaultFile());
  return *memory;
}

std::string CrashMemory::DefaultFile() {
  const char* cache = getenv("XDG_CACHE_HOME");
  std::string folder;
  if (cache && cache[0] == '/') {
    folder = cache;
  } else {
    const char* home = getenv("HOME");
    if (!home || home[0] != '/') return {};
    folder = std::string(home) + "/.cache";
  }
  return folder + "/trovix/extract-failures";
}

bool CrashMemory::ShouldSkip(const FileIdentity& file) {
  std::lock_guard lock(mutex_);
  LoadLocked();
  auto it = entries_.find(file.key);
  return it != entries_.end() && it->second.failures >= kFailuresToSkip && it->second.size == file.size &&
         it->second.modified == file.modified;
}

void CrashMemory::RecordFailure(const FileIdentity& file) {
  std::lock_guard lock(mutex_);
  LoadLocked();
  Entry& e = entries_[file.key];
  if (e.size != file.size || e.modified != file.modified) e.failures = 0;
  e.size = file.size;
  e.modified = file.modified;
  ++e.failures;
  SaveLocked();
}

void CrashMemory::RecordSuccess(const FileIdentity& file) {
  std::lock_guard lock(mutex_);
  LoadLocked();
  if (entries_.erase(file.key) > 0) SaveLocked();
}

void CrashMemory::LoadLocked() {
  if (loaded_) return;
  loaded_ = true;
  if (file_.empty()) return;
  std::ifstream in(file_, std::ios::binary);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string failures, size, modified, key_text, key;
    if (!std::getline(fields, failures, '\t') || !std::getline(fields, size, '\t') ||
        !std::getline(fields, modified, '\t') || !std::getline(fields, key_text))
      continue;
    if (!Unescape(key_text, &key)) continue;
    char* end = nullptr;
    Entry e;
    e.failures = static_cast<int>(strtol(failures.c_str(), &end, 10));
    if (*end != '\0') continue;
    e.size = strtoull(size.c_str(), &end, 10);
    if (*end != '\0') continue;
    e.modified = strtoll(modified.c_str(), &end, 10);
    if (*end != '\0') continue;
    entries_[key] = e;
  }
}

void CrashMemory::SaveLocked() {
  if (file_.empty()) return;
  MakeFolders(file_);
  std::string text;
  for (const auto& [key, e] : entries_)
    text += std::to_string(e.failures) + '\t' + std::to_string(e.size) + '\t' + std::to_string(e.modified) + '\t' +
            Escape(key) + '\n';
  // A memory that cannot be written is a memory for this run only.
  platform::WriteFileAtomically(file_, text);
}

}  // namespace trovix::engine
