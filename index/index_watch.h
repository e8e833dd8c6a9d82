// Keeps the index live: `trovix-cli index watch`.
//
// On start the whole scope is updated (what changed while nobody watched is found by the
// same comparison `update` makes), then every indexed folder is watched with inotify. A
// change in a folder refreshes that folder's rows a short moment later (changes are gathered
// until 200 ms pass without one, so a burst of writes costs one listing, but never longer
// than a second after the first change not yet written: a folder written to all the time is
// still followed within two seconds); a new or moved-in folder is read whole and watched
// too. When the kernel's watch limit is reached the folders left unwatched are said once and
// rescanned every `rescan_seconds` instead; so are folders on file systems that send no
// events for changes made elsewhere (network and FUSE file systems). Mounts raise no inotify
// event, so the mount table is watched too: a drive mounted at another place has its catalogue
// follow it, one that went keeps its catalogue, and a file system newly mounted inside the
// scope is read whole.
//
// With a throttle the watch goes on gathering changes while it is paused (the user's switch,
// the battery) and writes them when it may again; it tells the throttle how far behind it is
// and which folders it cannot follow.
#pragma once

#include <cstdint>
#include <functional>
#include <stop_token>
#include <string>

#include "index/indexer.h"
#include "index/indexer_throttle.h"

namespace trovix::engine::index {

struct WatchOptions {
  int rescan_seconds = 600;   // unwatched folders, and the scope itself, are looked at this often
  int settle_ms = 200;        // changes are gathered until none came for this long
  int max_delay_ms = 1000;    // but no longer than this after the first change not yet written
  IndexerThrottle* throttle = nullptr;  // not owned; the indexer should hold the same one
};

// What the watcher says: lines for the log (updates done, the watch limit, errors).
using WatchLog = std::function<void(const std::string& line)>;

// Runs until `stop` is requested. False when the database failed (the reason is logged).
bool WatchIndex(Indexer& indexer, const WatchOptions& options, std::stop_token stop, const WatchLog& log);

}  // namespace trovix::engine::index
