// The folder walk ("robust search"): visits every item below one or more root folders,
// breadth first, and hands each to a visitor (which tests it against the rule set and reports
// matches). The roots themselves are not visited, only what they hold.
//
// Order: folders are taken from a first-in, first-out queue; the root is queued, and every
// subfolder joins the tail as the walk meets it. Within a folder the items come in the file
// system's enumeration order, or sorted bytewise by name with `sort_names`. The order never
// depends on `threads`: extra threads only read queued folders ahead of the walk, and the
// walk still takes them from the queue's head. `threads` 1 with `sort_names` is the
// reproducible mode that tests use.
//
// Options, as the settings words map onto this platform (WalkOptions::FromFlags):
//   binFlags 0x0020 "Search hidden folders": hidden items (names beginning with ".") are
//     visited and entered. Off, they are skipped before they are tested, and never entered.
//     Hidden mode 0 is off; 1 and 2 (on, and on with super-hidden items) mean the same here,
//     since this platform has no super-hidden items.
//   binFlags 0x0040 "Always enumerate hidden items": folders are listed with the
//     include-hidden flags. Listings here always hold hidden names, so this changes nothing a
//     user can see: in hidden mode 0 the walk still skips them.
//   binFlags 0x1000 "Follow junctions and symbolic links": a symbolic link to a folder is
//     entered (and its items take their targets' properties). Off, it is visited as an item
//     (a folder item carrying the reparse-point attribute) and not entered.
//   binFlags 0x2000 "Enter virtual folders": items that the VirtualFolders hook calls virtual
//     folders (archives) are entered through the hook.
//   binSearchFlags 0x1000 "Search in subfolders" off: only the roots' own children.
//
// Robustness: a folder that cannot be read is skipped silently (counted in the summary and
// told to the error handler, if any); a folder is never entered twice in one root's walk
// (loop detection by device and inode, which also stops a link leading back up the tree);
// an item that vanished between the listing and its test is skipped (see ItemVanished);
// special files (FIFOs, sockets, devices) are visited as items but never opened by the walk.
//
// Folders that may stop answering: with `answer_timeout` set, folders on network and FUSE
// mounts are read on detached threads (folder_read_ahead.h). One that says nothing for the
// time-out is told to the error handler with ETIMEDOUT, counted, and left behind with its
// reader; the walk goes on. Its items' status is taken by the same guarded read, and the
// status of an item that is itself such a mount point is asked under the time-out too, so
// that a name or status rule never waits on a stuck server.
//
// Stopping: the stop token is tested before every item. On a stop the folders still queued
// are dropped unread and Run returns at once, even while a guarded folder is being waited for.
//
// Threads: the visitor, the status and the error handler are called on the thread that calls
// Run, one call at a time. Reading threads touch only the DirSystem. A FolderWalk runs one
// walk at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "engine/walk/folder_enumerator.h"
#include "engine/walk/status_throttle.h"
#include "engine/walk/walk_pruner.h"
#include "platform/dir_reader.h"
#include "props/shell_item.h"

namespace trovix::engine {

// Bits of the settings words that the walk reads.
inline constexpr uint32_t kFlagSearchHidden = 0x0020;          // binFlags
inline constexpr uint32_t kFlagEnumerateHidden = 0x0040;       // binFlags
inline constexpr uint32_t kFlagFollowLinks = 0x1000;           // binFlags
inline constexpr uint32_t kFlagEnterVirtualFolders = 0x2000;   // binFlags
inline constexpr uint32_t kFlagNeverUseIndex = 0x08000000;     // binFlags
inline constexpr uint32_t kSearchFlagNoSubfolders = 0x1000;    // binSearchFlags

// How long a folder on a network or FUSE mount may say nothing before a search goes on
// without it (the setting nAnswerTimeout, in milliseconds).
inline constexpr std::chrono::milliseconds kDefaultAnswerTimeout{10'000};

enum class HiddenMode : uint8_t { kSkip = 0, kVisit = 1, kVisitAll = 2 };

struct WalkOptions {
  HiddenMode hidden = HiddenMode::kSkip;
  bool enumerate_hidden = false;
  bool search_subfolders = true;
  bool follow_links = false;
  bool enter_virtual_folders = false;
  int threads = 1;          // folders read at the same time (1: all on the walk's thread)
  bool sort_names = false;  // bytewise order within each folder
  // Items' status is asked while their folder is read (on the reading threads, relative to
  // the open folder) instead of when first needed. For rules that need more than names;
  // what an item reports is the same either way. Hidden items the walk skips are not asked.
  bool prefetch_status = false;
  // Some rule asks items' status (beside names). Where the file system may stop answering,
  // it is then asked while the folder is read, under the time-out, and never later.
  bool status_needed = false;
  // How deep to go: items deeper than `max_depth` (the roots' own items are depth 1; -1 no
  // limit) are neither visited nor entered; items shallower than `min_depth` are entered but
  // not visited.
  int max_depth = -1;
  int min_depth = 0;
  // Folders on another device than their root are visited but not entered.
  bool one_file_system = false;
  // Children it excludes are neither visited nor entered (not owned; null: none).
  const WalkPruner* pruner = nullptr;
  // How long a folder on a mount that may stop answering may say nothing before the walk
  // goes on without it (0: folders are read without a time-out).
  std::chrono::milliseconds answer_timeout{0};
  // Every folder is read under the time-out, wherever it lies (tests).
  bool guard_all_folders = false;

  static WalkOptions FromFlags(uint32_t bin_flags, uint32_t bin_search_flags);
};

enum class WalkStep : uint8_t {
  kContinue,    // go on; a folder item is entered when the options allow
  kSkipFolder,  // go on, but do not enter this item
  kStop,        // end the walk now
};

struct WalkSummary {
  uint64_t items = 0;               // items handed to the visitor
  uint64_t folders_read = 0;        // folders listed (the roots included)
  uint64_t folders_unreadable = 0;  // folders that could not be opened or read to the end
  uint64_t items_vanished = 0;      // items (and queued folders) gone before their turn
  uint64_t loops_skipped = 0;       // folders not entered because they were entered before
  uint64_t pruned = 0;              // items left out by the pruner
  uint64_t other_devices = 0;       // folders not entered: on another file system
  uint64_t not_answering = 0;       // folders and items left behind: not answering in time
  bool stopped = false;             // the stop token or the visitor ended the walk
};

// One child of a virtual folder: the item, and whether it is itself a folder to enter.
struct VirtualChild {
  props::ShellItemPtr item;
  bool is_folder = false;
};

// The hook for folders that are not directories (archives). The walk asks it only when
// "Enter virtual folders" is on and subfolders are searched; without a hook nothing is a
// virtual folder. Called on the walk's thread only.
class VirtualFolders {
 public:
  virtual ~VirtualFolders() = default;
  // Whether the walk should enter `item`, a file (not a directory). Here the excluded
  // folder classes are applied: an archive type on that list answers false.
  virtual bool IsVirtualFolder(props::ShellItem& item) = 0;
  // The children of a virtual folder in their order. 0, or an errno when it cannot be read
  // (the folder is then skipped like an unreadable directory).
  virtual int List(const props::ShellItemPtr& folder, std::vector<VirtualChild>* out) = 0;
};

// True when the item was asked about and the file system said it is gone (ENOENT, or
// ENOTDIR when a folder on its path was replaced). An item that vanished before anyone asked
// is indistinguishable from one that vanished just after its test: for a test that needed no
// stat (a name rule), the listing is the moment of truth. A visitor should not report an
// item for which this holds after testing it.
bool ItemVanished(const props::ShellItem& item);

// The status of `path` (`follow`: through a final link, falling back to the link itself when
// it dangles), asked on a detached thread. 0 or an errno; ETIMEDOUT when it said nothing
// within `timeout`, ECANCELED when `stop` came first. For what may lie on a mount that stops
// answering: the thread asking is never held longer than the time-out.
int StatWithin(platform::DirSystem& fs, const std::string& path, bool follow, std::chrono::milliseconds timeout,
               const std::stop_token& stop, platform::FileStatus* status);

// Asks a regular file on such a mount what reading its properties asks first (its data and its
// extended attributes: platform::ProbeRegularFile), on a detached thread. 0 when it answered;
// ETIMEDOUT when it said nothing within `timeout`, ECANCELED when `stop` came first.
int ProbeWithin(const std::string& path, std::chrono::milliseconds timeout, const std::stop_token& stop);

class FolderWalk {
 public:
  using Visitor = std::function<WalkStep(const props::ShellItemPtr& item)>;
  using ErrorHandler = std::function<void(const std::string& folder_path, int error)>;

  explicit FolderWalk(WalkOptions options, platform::DirSystem& fs = platform::DefaultDirSystem());

  // Optional collaborators; not owned; must outlive Run. The DirSystem must outlive any
  // guarded read left behind (the real one lives for the whole process).
  void set_status(StatusThrottle* status) { status_ = status; }
  void set_virtual_folders(VirtualFolders* hook) { virtual_ = hook; }
  void set_error_handler(ErrorHandler handler) { on_error_ = std::move(handler); }

  // Walks each root in order (each root's loop detection starts afresh, so a folder under
  // two roots is searched twice). A root is followed when it is a link.
  WalkSummary Run(const std::vector<std::string>& roots, std::stop_token stop, const Visitor& visit);

  const WalkOptions& options() const { return options_; }

 private:
  WalkOptions options_;
  platform::DirSystem& fs_;
  StatusThrottle* status_ = nullptr;
  VirtualFolders* virtual_ = nullptr;
  ErrorHandler on_error_;
};

}  // namespace trovix::engine
