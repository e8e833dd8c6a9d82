// The volume table scan over one NTFS volume: every name in the master file table is tested
// against a rule set that needs nothing but the name, and only the hits have their paths
// rebuilt, from a table of folders (record number -> parent and name) that the same pass
// fills. The rebuild therefore costs no reads: a hit whose folders come later in the table
// waits until the pass has seen them.
//
// What is left out, silently and on purpose: the file system's own files (names beginning
// with "$") and the volume's root folder; with hidden mode 0 what the walk hides (names
// beginning with ".", and everything below such a folder); names whose folder chain is broken (a folder deleted under them, a loop in a
// corrupt table): they have no path to show.
//
// Runs on the search's worker thread; the reader and the rule set are used by it alone.
#pragma once

#include <cstdint>
#include <stop_token>
#include <string>

#include "engine/results/result_sink.h"
#include "platform/ntfs/mft_reader.h"
#include "rules/rule_set.h"

namespace trovix::engine {

struct VolumeScanScope {
  // The folder of the volume that `shown_root` stands for ("/" for the whole volume; a bind
  // mount shows one of its folders). Hits outside it are not reported.
  std::string mounted_folder = "/";
  // What the mounted folder is shown as in the reported paths: the mount point, or empty for
  // an image, whose paths are then shown from its root ("/folder/file.txt").
  std::string shown_root;
  // The folder searched, as a path inside the volume ("/" for all of it).
  std::string scope = "/";
};

// Scans an opened volume. Returns the number of hits the sink took; `*stopped` (when given)
// tells whether Stop ended the scan early.
int64_t ScanOpenVolume(platform::ntfs::MftReader& reader, rules::RuleSet& rule_set, const VolumeScanScope& scope,
                       int hidden_mode, ResultSink& sink, std::stop_token stop, bool* stopped = nullptr);

// Opens an image file (or a device) and scans all of it, reporting paths inside the volume.
// -1, with `*error` set, when it cannot be read or is not NTFS. The rule set must allow the
// name-only test.
int64_t ScanVolumeImage(const std::string& image, rules::RuleSet& rule_set, int hidden_mode, ResultSink& sink,
                        std::stop_token stop, std::string* error);

}  // namespace trovix::engine
