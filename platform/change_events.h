// Whether a file system tells a watcher about changes. inotify reports what this machine's
// own processes do; on a network file system (NFS, SMB, 9p, Ceph, AFS) changes made by other
// machines, and on a FUSE file system changes its server makes by itself, never produce an
// event. A watcher must fall back to rescanning such folders, and say that it does.
// A Windows port would ask GetVolumeInformation whether the volume is remote.
#pragma once

#include <string>

namespace trovix::platform {

// False when the file system holding `path` is one whose changes go unreported; *kind (when
// given) is then its short name ("nfs", "smb", "fuse" ...). True as well when it cannot be
// asked (a vanished path): the watch's own refresh says what happened to it.
bool HasChangeEvents(const std::string& path, std::string* kind = nullptr);

}  // namespace trovix::platform
