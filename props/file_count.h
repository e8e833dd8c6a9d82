// The filter of Stock.FileCount: which of a folder's items are counted. The filter comes from
// the setting szFileCountRule, a rule of the rule layer, which this layer cannot build: the
// application makes it (rules/file_count_rule.h) and hands it over after loading its settings,
// as it does the file kinds. Until then every item is counted.
//
// Thread-safety: SetFileCountSettings and CurrentFileCountSettings may be called from any
// thread. A filter is shared by every thread that counts; each count asks it for a test of
// its own, so a test needs no lock.
#pragma once

#include <memory>

#include "props/shell_item.h"

namespace trovix::props {

// A test of items for one count on one thread.
class ItemTest {
 public:
  virtual ~ItemTest() = default;
  virtual bool Accepts(const ShellItemPtr& item) = 0;
};

class FileCountFilter {
 public:
  virtual ~FileCountFilter() = default;
  virtual std::unique_ptr<ItemTest> NewTest() const = 0;
};

struct FileCountSettings {
  // Null: every item counts (the setting "*").
  std::shared_ptr<const FileCountFilter> filter;
  // False when the setting could not be made into a rule: then no folder has a count, rather
  // than a count that silently ignores what the user asked for.
  bool usable = true;
  // Hidden items (names beginning with ".") are counted only when searches show them.
  bool include_hidden = false;
};

void SetFileCountSettings(FileCountSettings settings);
FileCountSettings CurrentFileCountSettings();

}  // namespace trovix::props
