// The index's catalogues of file systems: one per volume its items were seen on (the volumes
// table of index_schema.h), and what the mount table says of each now.
//
// A catalogue is online when its file system is mounted where it was last seen; offline when
// it is not mounted there (unplugged, unmounted, or another drive in its place): then its
// rows stay, a search over its old mount point is answered from them, and the indexer neither
// walks nor forgets anything below that mount point. A catalogue whose file system is
// mounted elsewhere now has `moved_to` set; the indexer moves its paths there.
//
// Two drives may take turns at one mount point (two sticks at /media/stick): the one mounted
// there is online and indexed at that place; the other one's rows wait under a place of their
// own (ParkedPlace), which no real folder can have, until its drive comes back. A search over
// the mount point then answers from both: the mounted drive as it is, the other one from its
// catalogue, marked offline.
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
  int64_t mount_id = 0;     // and the number of that mount (UniqueMountId; 0 unknown)
  int64_t seen = 0;         // when it was last seen mounted, seconds since 1970
  bool online = true;       // set by Check
  std::string moved_to;     // set by Check: mounted now at this other place
  bool displaced = false;   // set by Check: not online, and another file system is at its place
  bool parked = false;      // its rows wait under ParkedPlace(identity)
};

// Where the rows of a catalogue wait while another drive holds its mount point: a folder path
// that begins with "//" (the folders of the index are absolute paths without doubled slashes,
// so none is ever there) and names the catalogue's identity.
std::string ParkedPlace(std::string_view identity);
// Whether `path` is a parked place or lies below one.
bool IsParkedPlace(std::string_view path);
// `path` below the parked place of a catalogue, back at `mount_point`; `path` itself when it
// is not below `place`.
std::string FromParkedPlace(const std::string& path, const std::string& place, const std::string& mount_point);

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
  // The last mount points of the offline catalogues whose place holds no other drive (a place
  // another drive holds is searched as that drive is).
  std::vector<std::string> OfflineMountPoints() const;

 private:
  std::vector<Catalogue> list_;
};

// The items a catalogue holds.
int64_t CatalogueItemCount(sqlite3* db, int64_t catalogue_id);

// "3 days", "5 hours", "12 minutes", "40 seconds": how long ago `seen` was, said roughly.
std::string CatalogueAge(int64_t seen, int64_t now);

}  // namespace trovix::engine::index
