#include "index/postgres/indexes_conf.h"

#include <cstdlib>
#include <fstream>

#include "base/ascii.h"
#include "index/postgres/pg_connection.h"

namespace trovix::engine::index {
namespace {

std::string Trim(std::string s) {
  const size_t b = s.find_first_not_of(" \t\r");
  if (b == std::string::npos) return {};
  const size_t e = s.find_last_not_of(" \t\r");
  return s.substr(b, e - b + 1);
}

bool IsAsciiAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool ValidName(const std::string& name) {
  if (name.empty() || !(IsAsciiAlpha(name[0]) || name[0] == '_')) return false;
  for (char c : name)
    if (!(IsAsciiAlpha(c) || (c >= '0' && c <= '9') || c == '_' || c == '-')) return false;
  return true;
}

std::string WithoutTrailingSlash(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

// Whether `path` is `folder` or lies below it.
bool AtOrBelow(const std::string& path, const std::string& folder) {
  if (folder == "/") return !path.empty() && path[0] == '/';
  return path.compare(0, folder.size(), folder) == 0 && (path.size() == folder.size() || path[folder.size()] == '/');
}

}  // namespace

std::string DefaultIndexesConfPath() {
  const char* config = std::getenv("XDG_CONFIG_HOME");
  if (config != nullptr && config[0] == '/') return std::string(config) + "/velmora/indexes.conf";
  const char* home = std::getenv("HOME");
  if (home != nullptr && home[0] == '/') return std::string(home) + "/.config/velmora/indexes.conf";
  return {};
}

std::vector<IndexServer> ReadIndexesConf(const std::string& path, std::vector<std::string>* problems) {
  std::vector<IndexServer> servers;
  std::ifstream in(path);
  if (!in) return servers;
  auto find = [&](const std::string& name) -> IndexServer* {
    for (IndexServer& s : servers)
      if (AsciiEqualsNoCase(s.name, name)) return &s;
    return nullptr;
  };
  struct Option {
    int line;
    std::string name, option, value;
  };
  std::vector<Option> options;
  std::string line;
  int number = 0;
  auto problem = [&](const std::string& what) {
    problems->push_back("indexes.conf:" + std::to_string(number) + ": " + what);
  };
  while (std::getline(in, line)) {
    ++number;
    line = Trim(line);
    if (line.empty() || line[0] == '#') continue;
    const size_t eq = line.find('=');
    if (eq == std::string::npos) {
      problem("expected NAME = server");
      continue;
    }
    const std::string key = Trim(line.substr(0, eq));
    const std::string value = Trim(line.substr(eq + 1));
    const size_t dot = key.find('.');
    const std::string name = key.substr(0, dot);
    if (!ValidName(name)) {
      problem("'" + name + "' is no server name (a letter first, then letters, digits, _ and -)");
      continue;
    }
    if (dot != std::string::npos) {
      options.push_back({number, name, key.substr(dot + 1), value});
      continue;
    }
    if (value.empty()) {
      problem("no server given for " + name);
    } else if (find(name) != nullptr) {
      problem(name + " is named twice");
    } else {
      servers.push_back(IndexServer{name, ConnInfoFor(value), 3000, {}});
    }
  }
  // Options may come before or after their server's line.
  for (const Option& o : options) {
    number = o.line;
    IndexServer* server = find(o.name);
    if (server == nullptr) {
      problem("no server " + o.name + " = ... for this option");
    } else if (o.option == "timeout") {
      char* end = nullptr;
      const double seconds = std::strtod(o.value.c_str(), &end);
      if (end == o.value.c_str() || *end != '\0' || !(seconds > 0 && seconds <= 600))
        problem("the time-out is a number of seconds (above 0, at most 600)");
      else
        server->timeout_ms = static_cast<int>(seconds * 1000);
    } else if (o.option == "mount") {
      const size_t arrow = o.value.find("->");
      const std::string local = arrow == std::string::npos ? "" : WithoutTrailingSlash(Trim(o.value.substr(0, arrow)));
      const std::string remote = arrow == std::string::npos ? "" : WithoutTrailingSlash(Trim(o.value.substr(arrow + 2)));
      if (local.size() < 2 || local[0] != '/' || remote.empty() || remote[0] != '/')
        problem("a mount is /local/folder -> /folder/on/the/server");
      else
        server->mounts.push_back({local, remote});
    } else {
      problem("unknown option '" + o.option + "' (timeout, mount)");
    }
  }
  return servers;
}

bool PlaceOnServer(const IndexServer& server, const std::string& root, ServerPlace* place) {
  const std::string unc = "//" + server.name;
  if (root.size() >= unc.size() && AsciiEqualsNoCase(root.substr(0, unc.size()), unc) &&
      (root.size() == unc.size() || root[unc.size()] == '/')) {
    place->local_prefix = root.substr(0, unc.size());
    place->remote_prefix.clear();
    place->server_path = root.size() == unc.size() ? "/" : WithoutTrailingSlash(root.substr(unc.size()));
    return true;
  }
  for (const IndexServerMount& m : server.mounts) {
    if (!AtOrBelow(root, m.local)) continue;
    place->local_prefix = m.local;
    place->remote_prefix = m.remote;
    const std::string below = WithoutTrailingSlash(root.substr(m.local.size()));
    place->server_path = m.remote == "/" ? (below.empty() ? "/" : below) : m.remote + below;
    return true;
  }
  return false;
}

std::string LocalPath(const ServerPlace& place, const std::string& server_path) {
  if (place.remote_prefix.empty()) return place.local_prefix + server_path;
  if (place.remote_prefix == "/") return place.local_prefix + server_path;
  return place.local_prefix + server_path.substr(place.remote_prefix.size());
}

}  // namespace trovix::engine::index
