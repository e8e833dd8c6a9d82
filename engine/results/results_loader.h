// The background loader of costly column values.
//
// Policy: a column is costly when reading its value may need more than the file system's
// answer for the item (the catalogue's costly flag, or any property that is no file-system
// fact: photo, music and document properties come from handlers that open the file). The
// list never computes such a value on the UI thread. When a row is painted and its costly
// value is not in the item's cache yet, the list asks this loader for it; the rows asked for
// last are loaded first, so the rows on screen always come before rows scrolled past. Rows
// never shown are not loaded, except when a costly column is a sort key: then the list asks
// for every row and sorts again when the loader has finished.
//
// Thread rules: a ShellItem's cache is not locked, and the UI thread owns the listed items.
// The loader therefore never touches them: each request carries the path, the loader makes
// its own ShellItem for it, fetches the values there and posts them back to the UI thread,
// which stores them in the listed item's cache. Requests carry a generation number; results
// of an older generation (the list was emptied or rows were removed since) are dropped.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "props/prop_value.h"
#include "props/property_info.h"

namespace trovix::engine {

// Whether the list loads `property` in the background rather than reading it on the UI thread.
bool IsCostlyColumn(const props::PropertyInfo& property);

struct LoadRequest {
  uint64_t generation = 0;
  uint32_t row = 0;  // the item's index in the list's result set
  std::string path;
  bool follow_links = false;
  std::vector<const props::PropertyInfo*> properties;
};

struct LoadedValues {
  uint64_t generation = 0;
  uint32_t row = 0;
  std::vector<std::pair<uint32_t, props::PropValue>> values;  // property hash, value
};

class CostlyValueLoader {
 public:
  // `deliver` runs on the loader's thread with a batch of results and whether the loader has
  // no request left; it must post them to the UI thread (a queued call), not use them there.
  using Deliver = std::function<void(std::vector<LoadedValues> batch, bool idle)>;
  explicit CostlyValueLoader(Deliver deliver);
  ~CostlyValueLoader();  // stops the thread; requests not yet loaded are dropped
  CostlyValueLoader(const CostlyValueLoader&) = delete;
  CostlyValueLoader& operator=(const CostlyValueLoader&) = delete;

  void Request(std::vector<LoadRequest> requests);
  // Drops every request not yet started (a new search, rows removed).
  void Cancel();

 private:
  void Run();

  Deliver deliver_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::vector<LoadRequest> pending_;  // a stack: the newest request is loaded first
  bool stop_ = false;
  std::thread thread_;
};

}  // namespace trovix::engine
