// CrashMemory: the files that crashed or hung the extraction helper. A file that did so twice
// is left alone until it changes (its size or modification time), so that one poisonous
// document costs a search two helper restarts, not one per search for ever.
//
// Kept across runs in a small text file in the user's cache folder
// ($XDG_CACHE_HOME/trovix/extract-failures, else ~/.cache/...): one line per file,
// "failures<TAB>size<TAB>modified<TAB>key", the key being the path (and, for an archive
// member, the member path after a NUL, written escaped). The file is rewritten whole and
// atomically on each change; a damaged line is dropped, a missing file is an empty memory.
//
// Thread-safety: every call locks; one instance per process is usual (Shared()).
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace trovix::engine {

struct FileIdentity {
  std::string key;       // path, or path + "\0" + member chain
  uint64_t size = 0;
  int64_t modified = 0;  // nanoseconds since the Unix epoch
};

class CrashMemory {
 public:
  static constexpr int kFailuresToSkip = 2;

  // `file` empty: memory only, nothing kept across runs.
  explicit CrashMemory(std::string file);
  static CrashMemory& Shared();
  // The default place of the memory file.
  static std::string DefaultFile();

  // True when this file (as it is now) failed kFailuresToSkip times already.
  bool ShouldSkip(const FileIdentity& file);
  // Counts one crash or hang; a file that changed since its last failure starts again at one.
  void RecordFailure(const FileIdentity& file);
  // Forgets a file that was read fine.
  void RecordSuccess(const FileIdentity& file);

 private:
  struct Entry {
    int failures = 0;
    uint64_t size = 0;
    int64_t modified = 0;
  };
  void LoadLocked();
  void SaveLocked();

  std::mutex mutex_;
  std::string file_;
  bool loaded_ = false;
  std::map<std::string, Entry> entries_;
};

}  // namespace trovix::engine
