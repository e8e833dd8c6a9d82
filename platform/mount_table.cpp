#include "platform/mount_table.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "platform/regular_file.h"

namespace trovix::platform {
namespace {

std::string Unescape(std::string_view field) {
  std::string out;
  out.reserve(field.size());
  for (size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && field.size() - i >= 4 && field[i + 1] >= '0' &&
        field[i + 1] <= '3' && field[i + 2] >= '0' && field[i + 2] <= '7' && field[i + 3] >= '0' &&
        field[i + 3] <= '7') {
      out += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0'));
      i += 3;
    } else {
      out += field[i];
    }
  }
  return out;
}

std::vector<std::string_view> Fields(std::string_view line) {
  std::vector<std::string_view> fields;
  size_t pos = 0;
  while (pos < line.size()) {
    while (pos < line.size() && line[pos] == ' ') ++pos;
    size_t end = line.find(' ', pos);
    if (end == std::string_view::npos) end = line.size();
    if (end > pos) fields.push_back(line.substr(pos, end - pos));
    pos = end;
  }
  return fields;
}


bool AtOrBelow(std::string_view path, std::string_view point) {
  if (point == "/") return !path.empty() && path[0] == '/';
  if (path.size() < point.size() || path.compare(0, point.size(), point) != 0) return false;
  return path.size() == point.size() || path[point.size()] == '/';
}

}  // namespace

std::vector<MountEntry> ParseMountInfo(std::string_view text) {
  std::vector<MountEntry> mounts;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    std::vector<std::string_view> f = Fields(text.substr(start, end - start));
    start = end + 1;
    // id parent major:minor root mount-point options [optional fields...] - type source super-options
    size_t dash = 6;
    while (dash < f.size() && f[dash] != "-") ++dash;
    if (f.size() < 6 || dash + 2 >= f.size()) continue;
    unsigned major = 0, minor = 0;
    const std::string numbers(f[2]);
    if (std::sscanf(numbers.c_str(), "%u:%u", &major, &minor) != 2) continue;
    mounts.push_back(MountEntry{Unescape(f[3]), Unescape(f[4]), Unescape(f[dash + 1]), Unescape(f[dash + 2]),
                                (static_cast<uint64_t>(major) << 32) | minor,
                                std::strtoll(std::string(f[0]).c_str(), nullptr, 10)});
  }
  return mounts;
}

std::vector<MountEntry> ReadMountTable() {
  std::string text;
  if (ReadRegularFile("/proc/self/mountinfo", &text) != 0) return {};
  return ParseMountInfo(text);
}

MountTableWatch::MountTableWatch() { fd_ = ::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC); }

MountTableWatch::~MountTableWatch() {
  if (fd_ >= 0) ::close(fd_);
}

bool MountTableWatch::Changed() {
  if (fd_ < 0) return false;
  // The kernel answers POLLPRI (with POLLERR) once per change of the table, and clears it by
  // that answer.
  pollfd p{fd_, POLLPRI, 0};
  return ::poll(&p, 1, 0) > 0 && (p.revents & POLLPRI) != 0;
}

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
  for (MountEntry& m : ParseMountInfo(mountinfo))
    if (FileSystemMayStopAnswering(m.fs_type)) table.points_.push_back(std::move(m.mount_point));
  return table;
}

MountTable MountTable::Read() {
  std::string text;
  if (ReadRegularFile("/proc/self/mountinfo", &text) != 0) return {};
  return Parse(text);
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
