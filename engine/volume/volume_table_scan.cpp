#include "engine/volume/volume_table_scan.h"

#include <unordered_map>
#include <vector>

#include "platform/ntfs/mount_table.h"
#include "props/shell_item.h"

namespace trovix::engine {
namespace {

using platform::ntfs::RecordNumber;
using platform::ntfs::SequenceOf;
using platform::ntfs::VolumeRecord;

// The root folder's record is fixed by the format.
constexpr uint64_t kRootRecord = 5;
// Stop is looked at once every this many records (and after each hit).
constexpr uint64_t kStopInterval = 1000;
// Deeper than any real tree; a corrupt table may hold a loop of folders.
constexpr int kMaxDepth = 4096;

struct Folder {
  uint64_t parent = 0;
  uint16_t sequence = 0;
  std::string name;
};

struct Hit {
  uint64_t record = 0;
  uint64_t parent = 0;
  std::string name;
};

enum class Rebuild { kDone, kLater, kNoPath };

class VolumeScan {
 public:
  VolumeScan(const VolumeScanScope& scope, int hidden_mode, ResultSink& sink)
      : scope_(scope), hidden_mode_(hidden_mode), sink_(sink) {}

  void AddFolder(uint64_t record, const VolumeRecord& v) {
    folders_.try_emplace(record, Folder{v.parent, SequenceOf(v.reference), v.name});
  }

  // The path inside the volume of a name in folder `parent`, when every folder above it is
  // known; kLater when one of them has not been read yet (`seen` records have been).
  Rebuild PathOf(const Hit& hit, uint64_t seen, std::string* path) const {
    std::string out = "/" + hit.name;
    uint64_t parent = hit.parent;
    for (int depth = 0; depth < kMaxDepth; ++depth) {
      const uint64_t number = RecordNumber(parent);
      if (number == kRootRecord) {
        *path = std::move(out);
        return Rebuild::kDone;
      }
      auto it = folders_.find(number);
      if (it == folders_.end()) return number >= seen ? Rebuild::kLater : Rebuild::kNoPath;
      // A reference to an older use of the record: the folder was deleted under the name.
      if (SequenceOf(parent) != 0 && SequenceOf(parent) != it->second.sequence) return Rebuild::kNoPath;
      out.insert(0, "/" + it->second.name);
      parent = it->second.parent;
    }
    return Rebuild::kNoPath;
  }

  // Reports a hit whose path is known, when it lies in scope.
  void Report(const std::string& volume_path) {
    if (!platform::ntfs::IsUnder(volume_path, scope_.scope) ||
        !platform::ntfs::IsUnder(volume_path, scope_.mounted_folder))
      return;
    // The walk neither returns nor enters a hidden folder below the root.
    if (hidden_mode_ == 0 && volume_path.find("/.", scope_.scope == "/" ? 0 : scope_.scope.size()) != std::string::npos)
      return;
    std::string shown = scope_.shown_root == "/" ? std::string() : scope_.shown_root;
    shown += scope_.mounted_folder == "/" ? volume_path : volume_path.substr(scope_.mounted_folder.size());
    if (shown.empty()) shown = "/";
    if (sink_.AddResult(props::ShellItem::FromPath(std::move(shown))) == 0) ++count_;
  }

  void Resolve(const Hit& hit, uint64_t seen) {
    std::string path;
    switch (PathOf(hit, seen, &path)) {
      case Rebuild::kDone: Report(path); break;
      case Rebuild::kLater: waiting_.push_back(hit); break;
      case Rebuild::kNoPath: break;
    }
  }

  // After the pass every folder is known: what still has no path never will.
  void ResolveWaiting(std::stop_token stop) {
    for (const Hit& hit : waiting_) {
      if (stop.stop_requested()) return;
      std::string path;
      if (PathOf(hit, UINT64_MAX, &path) == Rebuild::kDone) Report(path);
    }
  }

  int64_t count() const { return count_; }

 private:
  const VolumeScanScope& scope_;
  const int hidden_mode_;
  ResultSink& sink_;
  std::unordered_map<uint64_t, Folder> folders_;
  std::vector<Hit> waiting_;
  int64_t count_ = 0;
};

}  // namespace

int64_t ScanOpenVolume(platform::ntfs::MftReader& reader, rules::RuleSet& rule_set, const VolumeScanScope& scope,
                       int hidden_mode, ResultSink& sink, std::stop_token stop, bool* stopped) {
  sink.SetStatus("searching MFT...");
  VolumeScan scan(scope, hidden_mode, sink);
  bool halted = false;
  reader.Scan([&](uint64_t record, const std::vector<VolumeRecord>& names) {
    if (record % kStopInterval == 0 && stop.stop_requested()) {
      halted = true;
      return false;
    }
    for (const VolumeRecord& v : names) {
      if (v.attributes & platform::ntfs::kAttributeDirectory) scan.AddFolder(record, v);
      if (record == kRootRecord || v.name.empty() || v.name[0] == '$') continue;
      // Hidden is what it is to the walk of the mounted volume: a name beginning with ".". The
      // hidden attribute is not seen through a mount, and a route that honoured it would answer
      // otherwise than the walk of the same folder.
      if (hidden_mode == 0 && v.name[0] == '.') continue;
      // The name test runs on the raw record: no path is built for a miss.
      if (!rule_set.EvaluateName(v.name)) continue;
      scan.Resolve(Hit{record, v.parent, v.name}, record + 1);
      if (stop.stop_requested()) {
        halted = true;
        return false;
      }
    }
    return true;
  });
  if (!halted) scan.ResolveWaiting(stop);
  if (stopped != nullptr) *stopped = halted || stop.stop_requested();
  return scan.count();
}

int64_t ScanVolumeImage(const std::string& image, rules::RuleSet& rule_set, int hidden_mode, ResultSink& sink,
                        std::stop_token stop, std::string* error) {
  platform::ntfs::MftReader reader;
  if (reader.Open(image) != 0) {
    *error = reader.error();
    return -1;
  }
  VolumeScanScope scope;
  return ScanOpenVolume(reader, rule_set, scope, hidden_mode, sink, stop);
}

}  // namespace trovix::engine
