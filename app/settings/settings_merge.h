// Saving settings without losing another process's: the desktop program keeps its settings
// from start to exit while the console may save a search or set a value in between. A store
// opened for the program works on a copy (the "working" backend) taken when it was opened, and
// remembers that copy as it was (the base). A commit takes the settings lock, opens the store
// afresh, and applies to it only the difference between the base and the working copy: values
// this process set or deleted, sections it made or removed. What others changed meanwhile and
// this process did not touch stays as they left it. The working copy stays this process's own
// view: what others store is not read back into it (the next open sees it), and the next commit
// applies only what changed since this one.
//
// The saved lists ("SavedSearch\0", "SavedSearch\1", ...) are numbered, and every process
// renumbers them when it writes them, so they are merged entry by entry, each entry known by
// its name (szName; szItem for the frequent folders): entries this process added or changed are
// put in place of the stored entry of that name or appended, entries it deleted are removed,
// and the others' entries keep their places. The order of the stored list wins over a new
// order made by this process.
//
// Thread-safe: one mutex around the working copy and the commit.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/settings/settings_store.h"

namespace trovix::app {

// A whole store in memory: every section that exists, in store order, with its values.
struct StoreImageSection {
  std::string name;
  std::vector<StoredValue> values;
};
using StoreImage = std::vector<StoreImageSection>;

StoreImage ReadStoreImage(SettingsBackend& backend);

// What is stored now (`fresh`) with this process's changes (from `base` to `mine`) applied.
StoreImage MergeStoreImages(const StoreImage& base, const StoreImage& mine,
                            const StoreImage& fresh);

// Changes `backend`, which holds `from`, so that it holds `to`. Does not commit.
void ApplyStoreImage(SettingsBackend& backend, const StoreImage& from, const StoreImage& to);

// The merging backend. `open_store` opens the real store (at start and again at each commit);
// `open_working` makes an empty working copy of the same kind (so that reads keep the real
// store's rules); `lock_path` is the settings lock of the store.
std::unique_ptr<SettingsBackend> MakeMergingBackend(
    std::function<std::unique_ptr<SettingsBackend>()> open_store,
    std::function<std::unique_ptr<SettingsBackend>()> open_working, std::string lock_path);

}  // namespace trovix::app
