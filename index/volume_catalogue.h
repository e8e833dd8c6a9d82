// The index's catalogues of file systems: one per volume its items were seen on (the volumes
// table of index_schema.h), and what the mount table says of each now.
//
// A catalogue is online when its file system is mounted where it was last seen; offline when
// it is not mounted there (unplugged, unmounted, or another drive in its place): then its
// rows stay, a search over its old mount point is answered from them, and the indexer neither
// walks nor forgets anything below that mount point. A catalogue whose file system is
// mounted elsewhere now has `moved_to` set; the indexer moves its paths there.
//
// The mount table is read once per Check; a file system's identity is read from its device
// only when the mount at its place is not the one it was last seen in (a remount, or another
// drive), so that a search pays one read of /proc/self/mountinfo in the usual case and never
// asks a network file system that may not answer.
//
// Plain value; not shared between threads.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/volume_identity.h"

namespace trovix::engine::index {

struct Catalogue {
  int64_t id = 0;
  std::string identity;     // "uuid:..." or "fsid:..."
  std::string fs_type;
  std::string mount_point;  // where it was last seen
  uint64_t device = 0;      // its device number then
  int64_t mount_id = 0;     // and the number of that mount
  int64_t seen = 0;         // when it was last seen mounted, seconds since 1970
  bool online = true;       // set by Check
  std::string moved_to;     // set by Check: mounted now at this other place
};

class VolumeCatalogues {
 public:
  // Reads the catalogues of the database (none for an index made before it kept them).
  explicit VolumeCatalogues(sqlite3* db);

  // Sets online and moved_to of every catalogue against the mount table.
  void Check(const std::vector<platform::MountEntry>& mounts);

  const std::vector<Catalogue>& list() const { return list_; }
  // The offline catalogue whose last mount point holds `path`; null when none does. The
  // catalogue of "/" is never offline (nothing could be searched without it).
  const Catalogue* OfflineHolding(std::string_view path) const;
  // The last mount points of the offline catalogues.
  std::vector<std::string> OfflineMountPoints() const;

 private:
  std::vector<Catalogue> list_;
};

// The items a catalogue holds.
int64_t CatalogueItemCount(sqlite3* db, int64_t catalogue_id);

// "3 days", "5 hours", "12 minutes", "40 seconds": how long ago `seen` was, said roughly.
std::string CatalogueAge(int64_t seen, int64_t now);

}  // namespace trovix::engine::index
