// ResultSink: where a search reports. The engine's window messages became the events of this
// interface; their names and numbers are kept as event identifiers (SearchEvent::id), so a
// trace or a front end can still speak of UM_ADD_RESULT and WM_APP+10.
//
// A search runs on a worker thread and calls its sink on that thread, one call at a time.
// Front ends choose how the events reach them:
//   - the console prints straight from the worker: its sink is called directly;
//   - the Qt GUI must touch its widgets on the UI thread only: it wraps its model in a
//     BatchingSink (engine/results/batching_sink.h), which queues the events, wakes the UI thread once
//     per batch and hands the batch over in order there.
//
// Ownership: the sink never owns the search; items handed to AddResult are shared, and a
// sink that keeps an item keeps its pointer (that is its reference).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/extraction/unread_tally.h"
#include "props/shell_item.h"

namespace trovix::rules {
class RuleSet;
}

namespace trovix::engine {

inline constexpr uint32_t WM_APP = 0x8000;

// What is said once for a folder or an item that did not answer in time.
inline std::string NotAnsweringText(const std::string& path) {
  return path + " is not answering; going on without it";
}

enum EventId : uint32_t {
  // Asked of the panel before a start; a positive answer vetoes it.
  UM_BEFORE_SEARCH = WM_APP + 4,
  // A status text for the status bar ("searching in %s ...").
  UM_SET_STATUS = WM_APP + 5,
  // The running state changed: running with the rule set, or ended.
  UM_SEARCH_STATE = WM_APP + 9,
  // A matching item; the answer tells whether the list took it.
  UM_ADD_RESULT = WM_APP + 10,
  // Asked of the main frame before a start; nonzero vetoes it.
  UM_SEARCH_BUSY = WM_APP + 16,
  // An index hit handed from the index worker to the search job. It stays inside the engine
  // (the job tests and forwards the item as UM_ADD_RESULT), so no sink ever receives it; the
  // identifier is kept for traces.
  UM_INDEX_ROW = WM_APP + 19,
};

// One event, as queued by a batching sink. Which fields are set depends on `id`.
struct SearchEvent {
  EventId id = UM_SET_STATUS;
  std::string text;                              // UM_SET_STATUS
  bool running = false;                          // UM_SEARCH_STATE
  std::shared_ptr<const rules::RuleSet> rules;   // UM_SEARCH_STATE when starting
  props::ShellItemPtr item;                      // UM_ADD_RESULT
};

class ResultSink {
 public:
  virtual ~ResultSink() = default;

  // UM_BEFORE_SEARCH and UM_SEARCH_BUSY: asked on the front end's own thread before a
  // search is handed to its worker; a nonzero answer vetoes the start. No veto by default.
  virtual int BeforeSearch() { return 0; }
  virtual int SearchBusy() { return 0; }

  // UM_SET_STATUS.
  virtual void SetStatus(const std::string& text) = 0;
  // UM_SEARCH_STATE: `running` after the change; the rule set when a search starts, null
  // when it ends. After (false, null) the search sends nothing more.
  virtual void SearchState(bool running, std::shared_ptr<const rules::RuleSet> rules) = 0;
  // UM_ADD_RESULT: 0 when the list took the item (the search counts it); anything else
  // means it did not.
  virtual int AddResult(const props::ShellItemPtr& item) = 0;
  // The advice at the end of a search with a contents rule, when a common document type has
  // no reader; `notify_bit` is the bit of bin1OffNotify that suppresses it once the user says
  // so. An empty text means every common type has a reader: set the bit, never ask again.
  // Called after the last result, before the final UM_SEARCH_STATE. Ignored by default.
  virtual void ShowAdvice(uint32_t /*notify_bit*/, const std::string& /*text*/) {}
  // The files a search with a contents rule met and could not read, by type and reason, told
  // once, after the last result and before the final UM_SEARCH_STATE; not called when every
  // file was read. A front end words them with DescribeUnread. Ignored by default.
  virtual void ReportUnread(const std::vector<UnreadCount>& /*counts*/) {}
  // A root or folder that could not be read (`error` an errno), told once each, on the search's
  // worker thread. A search says what it could not see; a front end shows it. Ignored by default.
  virtual void ReportError(const std::string& /*path*/, int /*error*/) {}
  // A folder or item on a mount that said nothing within the time-out, left behind: told
  // once each. Said as a notice by default ("PATH is not answering; going on without it").
  virtual void ReportNotAnswering(const std::string& path) { Notice(NotAnsweringText(path)); }
  // Something the user should know about how the search was answered, said once (a route
  // that had to walk part of a root, say). On the status channel by default, which is where
  // the desktop program shows it; a console says it on its own line.
  virtual void Notice(const std::string& text) { SetStatus(text); }

  // Hands one queued event to the matching operation above.
  int Deliver(const SearchEvent& e) {
    switch (e.id) {
      case UM_SET_STATUS: SetStatus(e.text); return 0;
      case UM_SEARCH_STATE: SearchState(e.running, e.rules); return 0;
      case UM_ADD_RESULT: return AddResult(e.item);
      case UM_BEFORE_SEARCH: return BeforeSearch();
      case UM_SEARCH_BUSY: return SearchBusy();
      case UM_INDEX_ROW: return 0;
    }
    return 0;
  }
};

}  // namespace trovix::engine
