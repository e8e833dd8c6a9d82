#include "platform/mount_table.h"

#include <array>
#include <fstream>
#include <sstream>

namespace trovix::platform {
namespace {

// mountinfo writes blanks, tabs, newlines and backslashes in paths as three octal digits.
std::string Unescape(std::string_view field) {
  std::string out;
  out.reserve(field.size());
  for (size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size()) {
      const char a = field[i + 1], b = field[i + 2], c = field[i + 3];
      if (a >= '0' && a <= '3' && b >= '0' && b <= '7' && c >= '0' && c <= '7') {
        out += static_cast<char>((a - '0') * 64 + (b - '0') * 8 + (c - '0'));
        i += 3;
        continue;
      }
    }
    out += field[i];
  }
  return out;
}

std::vector<std::string_view> Fields(std::string_view line) {
  std::vector<std::string_view> fields;
  size_t start = 0;
  while (start < line.size()) {
    size_t end = line.find(' ', start);
    if (end == std::string_view::npos) end = line.size();
    if (end > start) fields.push_back(line.substr(start, end - start));
    start = end + 1;
  }
  return fields;
}

bool AtOrBelow(std::string_view path, std::string_view point) {
  if (point == "/") return !path.empty() && path[0] == '/';
  if (path.size() < point.size() || path.compare(0, point.size(), point) != 0) return false;
  return path.size() == point.size() || path[point.size()] == '/';
}

}  // namespace

bool FileSystemMayStopAnswering(std::string_view fs_type) {
  // Every FUSE file system: its server is a process that can hang or be stopped (sshfs, a
  // cloud drive, a desktop's remote folders), local ones included.
  if (fs_type == "fuse" || fs_type == "fuseblk" || fs_type.substr(0, 5) == "fuse.") return true;
  static constexpr std::array<std::string_view, 16> kNetwork = {
      "nfs",  "nfs4",   "cifs",      "smb3", "smbfs", "9p",     "ceph",  "glusterfs",
      "afs",  "ncpfs",  "coda",      "lustre", "beegfs", "gpfs", "davfs", "orangefs"};
  for (std::string_view t : kNetwork)
    if (fs_type == t) return true;
  return false;
}

MountTable MountTable::Parse(std::string_view mountinfo) {
  MountTable table;
  size_t start = 0;
  while (start < mountinfo.size()) {
    size_t end = mountinfo.find('\n', start);
    if (end == std::string_view::npos) end = mountinfo.size();
    const std::vector<std::string_view> f = Fields(mountinfo.substr(start, end - start));
    start = end + 1;
    // id parent major:minor root mount-point options [optional fields...] - type source super
    size_t dash = 6;
    while (dash < f.size() && f[dash] != "-") ++dash;
    if (f.size() < 5 || dash + 1 >= f.size()) continue;
    if (FileSystemMayStopAnswering(f[dash + 1])) table.points_.push_back(Unescape(f[4]));
  }
  return table;
}

MountTable MountTable::Read() {
  std::ifstream in("/proc/self/mountinfo");
  if (!in) return {};
  std::ostringstream text;
  text << in.rdbuf();
  return Parse(text.str());
}

bool MountTable::MayStopAnswering(std::string_view path) const { return !MountPointOf(path).empty(); }

std::string_view MountTable::MountPointOf(std::string_view path) const {
  std::string_view deepest;
  for (const std::string& point : points_)
    if (AtOrBelow(path, point) && point.size() >= deepest.size()) deepest = point;
  return deepest;
}

bool MountTable::IsMountPoint(std::string_view path) const {
  for (const std::string& point : points_)
    if (path == point) return true;
  return false;
}

}  // namespace trovix::platform
