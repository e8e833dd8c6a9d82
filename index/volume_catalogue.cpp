#include "index/volume_catalogue.h"

#include "base/file_name.h"
#include "platform/sqlite_statement.h"

namespace trovix::engine::index {
using platform::Statement;

VolumeCatalogues::VolumeCatalogues(sqlite3* db) {
  // An index of the layout before catalogues has no such table: the statement does not
  // prepare and the list stays empty.
  Statement s(db,
              "SELECT id, identity, fs_type, mount_point, device, mount_id, seen FROM volumes ORDER BY mount_point, id");
  while (s.Step() == SQLITE_ROW) {
    Catalogue c;
    c.id = s.Int(0);
    c.identity = std::string(s.Text(1));
    c.fs_type = std::string(s.Text(2));
    c.mount_point = std::string(s.Text(3));
    c.device = static_cast<uint64_t>(s.Int(4));
    c.mount_id = s.Int(5);
    c.seen = s.Int(6);
    list_.push_back(std::move(c));
  }
  Statement parked(db, "SELECT 1 FROM folders WHERE path=?");
  for (Catalogue& c : list_) {
    parked.Bind(1, ParkedPlace(c.identity));
    c.parked = parked.Step() == SQLITE_ROW;
    parked.Reset();
  }
}

namespace {
constexpr std::string_view kParkedPlaces = "//offline-catalogue/";
}  // namespace

std::string ParkedPlace(std::string_view identity) { return std::string(kParkedPlaces) + std::string(identity); }
bool IsParkedPlace(std::string_view path) { return path.substr(0, kParkedPlaces.size()) == kParkedPlaces; }

std::string FromParkedPlace(const std::string& path, const std::string& place, const std::string& mount_point) {
  if (!IsAtOrBelow(path, place)) return path;
  return mount_point + path.substr(place.size());
}

void VolumeCatalogues::Check(const std::vector<platform::MountEntry>& mounts) {
  std::vector<std::pair<const platform::MountEntry*, std::string>> probed;  // identities read so far
  auto identity_of = [&probed](const platform::MountEntry& m) -> const std::string& {
    for (const auto& [mount, identity] : probed)
      if (mount == &m) return identity;
    probed.emplace_back(&m, platform::VolumeIdentity(m));
    return probed.back().second;
  };
  bool any_away = false;
  for (Catalogue& c : list_) {
    c.moved_to.clear();
    const platform::MountEntry* here = platform::FindMountAt(mounts, c.mount_point);
    // The same mount at the same place is the same file system; only another mount there (its
    // device number and table number may be the last drive's, handed out again) has its
    // identity read.
    c.online = c.mount_point == "/" ||
               (here != nullptr && ((c.mount_id != 0 && platform::UniqueMountId(*here) == c.mount_id) ||
                                    identity_of(*here) == c.identity));
    c.displaced = !c.online && here != nullptr;
    any_away |= !c.online;
  }
  if (!any_away) return;
  for (Catalogue& c : list_) {
    if (c.online) continue;
    for (const platform::MountEntry& m : mounts) {
      if (m.mount_point == c.mount_point || m.source.rfind("/dev/", 0) != 0 || identity_of(m) != c.identity) continue;
      // A file system mounted at several places (bind mounts): the first is where it lives.
      c.moved_to = m.mount_point;
      break;
    }
  }
}

const Catalogue* VolumeCatalogues::OfflineHolding(std::string_view path) const {
  for (const Catalogue& c : list_)
    if (!c.online && c.mount_point != "/" && IsAtOrBelow(path, c.mount_point)) return &c;
  return nullptr;
}

std::vector<std::string> VolumeCatalogues::OfflineMountPoints() const {
  std::vector<std::string> out;
  for (const Catalogue& c : list_)
    if (!c.online && !c.displaced && c.mount_point != "/") out.push_back(c.mount_point);
  return out;
}

int64_t CatalogueItemCount(sqlite3* db, int64_t catalogue_id) {
  Statement s(db, "SELECT count(*) FROM items WHERE volume=?");
  s.Bind(1, catalogue_id);
  return s.Step() == SQLITE_ROW ? s.Int(0) : 0;
}

std::string CatalogueAge(int64_t seen, int64_t now) {
  const int64_t s = now > seen ? now - seen : 0;
  auto say = [](int64_t n, const char* unit) { return std::to_string(n) + " " + unit + (n == 1 ? "" : "s"); };
  if (s >= 2 * 86400) return say(s / 86400, "day");
  if (s >= 2 * 3600) return say(s / 3600, "hour");
  if (s >= 2 * 60) return say(s / 60, "minute");
  return say(s, "second");
}

}  // namespace trovix::engine::index
