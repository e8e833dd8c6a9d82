// Stock.FileCount: how many of a folder's items the file-count filter accepts. A count can be
// long (a folder of a hundred thousand files, each tested by a rule), so it looks at the
// search's stop request every ten items and, when asked to stop, the count so far is the value.
#include <mutex>

#include "platform/dir_reader.h"
#include "props/fetch_stop.h"
#include "props/file_count.h"
#include "props/stock_internal.h"

namespace trovix::props {
namespace {

std::mutex& SettingsMutex() {
  static std::mutex mutex;
  return mutex;
}

FileCountSettings& SettingsSlot() {
  static FileCountSettings settings;
  return settings;
}

thread_local std::stop_token t_stop;
// A filter may itself ask for Stock.FileCount ("$Stock.FileCount > 0"): counting inside a
// count would walk the whole tree below the folder (and round a loop of links for ever), so
// the items of a count have no count of their own.
thread_local int t_counting = 0;

constexpr int kItemsBetweenStopChecks = 10;

}  // namespace

FetchStopScope::FetchStopScope(std::stop_token stop) : previous_(std::move(t_stop)) { t_stop = std::move(stop); }
FetchStopScope::~FetchStopScope() { t_stop = std::move(previous_); }
bool FetchStopRequested() { return t_stop.stop_requested(); }

void SetFileCountSettings(FileCountSettings settings) {
  std::lock_guard lock(SettingsMutex());
  SettingsSlot() = std::move(settings);
}

FileCountSettings CurrentFileCountSettings() {
  std::lock_guard lock(SettingsMutex());
  return SettingsSlot();
}

HRESULT internal::CountFolderItems(ShellItem& folder, PropValue* out) {
  if (!folder.IsFolder()) return S_FALSE;
  // The members of an archive are listed by the engine's archive reader, out of this
  // layer's reach.
  if (!folder.IsFileSystem() || t_counting > 0) return E_FAIL;
  const FileCountSettings settings = CurrentFileCountSettings();
  if (!settings.usable) return E_FAIL;

  std::unique_ptr<platform::DirReader> reader;
  // A link to a folder is a folder item: its target's items are counted.
  if (platform::DefaultDirSystem().OpenDir(folder.path(), true, &reader) != 0) return E_FAIL;
  std::unique_ptr<ItemTest> test = settings.filter ? settings.filter->NewTest() : nullptr;
  if (settings.filter && !test) return E_FAIL;

  ++t_counting;
  std::string prefix = folder.path();
  if (prefix.empty() || prefix.back() != '/') prefix += '/';
  uint32_t count = 0;
  int seen = 0;
  platform::DirEntry entry;
  while (reader->Next(&entry)) {
    bool hidden = entry.name.starts_with('.');
    if (settings.include_hidden || !hidden) {
      if (!test) {
        ++count;
      } else {
        auto item = ShellItem::FromListing(prefix + std::string(entry.name), entry.type, folder.follow_links());
        if (test->Accepts(item)) ++count;
      }
    }
    if (++seen % kItemsBetweenStopChecks == 0 && FetchStopRequested()) break;
  }
  --t_counting;
  // A folder that fails part-way through keeps the count of what could be read.
  *out = PropValue::UInt32(count);
  return S_OK;
}

}  // namespace trovix::props
