// indexes.conf: the shared indexes this user's searches may ask, read in this one place.
//
//   # NAME = a postgresql:// URI, libpq "key=value" parameters, or a libpq service name
//   files = postgresql://fileserver.example/trovix
//   archive = archive-index            (a service of ~/.pg_service.conf or PGSERVICEFILE)
//   files.timeout = 5                  (seconds the server has to answer; 3 when not given)
//   files.mount = /mnt/files -> /srv/share
//                                      (a folder where the server's /srv/share is mounted)
//
// A root "//NAME/share/path" is the server's own "/share/path"; a root inside a mount is the
// server's path below the mount's right side. Passwords never go here: libpq reads them from
// ~/.pgpass or the service file. A line that is none of these is reported (with its number)
// and left out; the rest of the file still counts.
//
// Names: a letter or "_" first, then letters, digits, "_" and "-" (a name is also the machine
// prefix of the query text, so it must read as one word there).
#pragma once

#include <string>
#include <vector>

namespace trovix::engine::index {

struct IndexServerMount {
  std::string local;   // an absolute folder on this machine, without a trailing "/"
  std::string remote;  // the folder on the server, without a trailing "/" ("/" for the root)
};

struct IndexServer {
  std::string name;
  std::string conninfo;  // for libpq (ConnInfoFor of what the file names)
  int timeout_ms = 3000;
  std::vector<IndexServerMount> mounts;
};

// $XDG_CONFIG_HOME/velmora/indexes.conf when that variable is an absolute path, else
// $HOME/.config/velmora/indexes.conf; empty without either.
std::string DefaultIndexesConfPath();

// Reads the file; a missing file is no server and no problem. *problems gets one line per
// line left out ("indexes.conf:4: ...").
std::vector<IndexServer> ReadIndexesConf(const std::string& path, std::vector<std::string>* problems);

// Where `root` lies for `server`: the path on the server and the prefix that turns a server
// path back into one of this machine's ("//NAME" or the mount's folder, with the server folder
// it stands for). False when the root is not the server's.
struct ServerPlace {
  std::string server_path;
  std::string local_prefix;   // "//NAME", or the mount's local folder
  std::string remote_prefix;  // "" for "//NAME", or the mount's remote folder
};
bool PlaceOnServer(const IndexServer& server, const std::string& root, ServerPlace* place);

// The path on this machine of an item the server lists at `server_path`.
std::string LocalPath(const ServerPlace& place, const std::string& server_path);

}  // namespace trovix::engine::index
