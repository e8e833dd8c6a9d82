// A FUSE file system for tests that must meet a mount whose server stops answering.
//
//   hang_fs MOUNTPOINT
//
// Mounts a small fixed tree and prints "ready" on stdout. Some of it hangs on purpose until
// released: a listing or a status there waits in the kernel as it would on a network mount
// whose server is gone.
//
//   /top.txt
//   /ok/a.txt, /ok/b.txt, /ok/sub/c.txt   answer
//   /stuck/inner.txt                      the listing of /stuck hangs; its status answers
//   /slow/late.txt                        opening it hangs; its status answers
//
// (A status that hangs holds up every lookup in its folder, in the kernel: that is what the
// command "all" is for, a server gone as a whole.)
//
// Commands, one a line on stdin, each answered with a line "done" once it holds:
//   all       from now on everything hangs, the mount's root included
//   release   every waiting call answers, and nothing hangs any more
// At the end of stdin (the test closed it, or died) everything is released and the file
// system unmounts itself: a test that fails half-way never leaves a hung mount behind.
#define FUSE_USE_VERSION 31
#include <fuse.h>
#include <sys/mount.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace {

struct Node {
  bool folder = false;
  std::string text;
};

const std::map<std::string, Node>& Tree() {
  static const std::map<std::string, Node> tree = {
      {"/", {true, ""}},
      {"/top.txt", {false, "top\n"}},
      {"/ok", {true, ""}},
      {"/ok/a.txt", {false, "alpha\n"}},
      {"/ok/b.txt", {false, "beta\n"}},
      {"/ok/sub", {true, ""}},
      {"/ok/sub/c.txt", {false, "gamma\n"}},
      {"/stuck", {true, ""}},
      {"/stuck/inner.txt", {false, "inner\n"}},
      {"/slow", {true, ""}},
      {"/slow/late.txt", {false, "beta late\n"}},
  };
  return tree;
}

std::mutex g_mutex;
std::condition_variable g_released;
bool g_holding = true;  // the hanging places hang
bool g_all = false;     // everything hangs
std::string g_mount;

// Waits while `path` is to hang.
enum class Call { kStatus, kListing, kData };

void MaybeHang(const std::string& path, Call call) {
  std::unique_lock<std::mutex> lock(g_mutex);
  auto hangs = [&] {
    if (!g_holding) return false;
    if (g_all) return true;
    return (call == Call::kListing && path == "/stuck") || (call == Call::kData && path == "/slow/late.txt");
  };
  g_released.wait(lock, [&] { return !hangs(); });
}

void FillStat(const Node& node, struct stat* st) {
  std::memset(st, 0, sizeof *st);
  st->st_mode = node.folder ? (S_IFDIR | 0755) : (S_IFREG | 0644);
  st->st_nlink = node.folder ? 2 : 1;
  st->st_size = static_cast<off_t>(node.text.size());
  st->st_uid = getuid();
  st->st_gid = getgid();
}

void* Init(fuse_conn_info*, fuse_config* cfg) {
  // Nothing cached: every status and lookup reaches the server, as the tests need.
  cfg->entry_timeout = 0;
  cfg->attr_timeout = 0;
  cfg->negative_timeout = 0;
  return nullptr;
}

int GetAttr(const char* path, struct stat* st, fuse_file_info*) {
  MaybeHang(path, Call::kStatus);
  auto it = Tree().find(path);
  if (it == Tree().end()) return -ENOENT;
  FillStat(it->second, st);
  return 0;
}

int ReadDir(const char* path, void* buf, fuse_fill_dir_t filler, off_t, fuse_file_info*, fuse_readdir_flags) {
  MaybeHang(path, Call::kListing);
  auto it = Tree().find(path);
  if (it == Tree().end()) return -ENOENT;
  if (!it->second.folder) return -ENOTDIR;
  const std::string prefix = std::string(path) == "/" ? "/" : std::string(path) + "/";
  for (const auto& [child, node] : Tree()) {
    if (child.size() <= prefix.size() || child.compare(0, prefix.size(), prefix) != 0) continue;
    const std::string name = child.substr(prefix.size());
    if (name.find('/') != std::string::npos) continue;
    struct stat st;
    FillStat(node, &st);
    filler(buf, name.c_str(), &st, 0, static_cast<fuse_fill_dir_flags>(0));
  }
  return 0;
}

int Open(const char* path, fuse_file_info*) {
  MaybeHang(path, Call::kData);
  auto it = Tree().find(path);
  if (it == Tree().end()) return -ENOENT;
  return it->second.folder ? -EISDIR : 0;
}

int Read(const char* path, char* buf, size_t size, off_t offset, fuse_file_info*) {
  MaybeHang(path, Call::kData);
  auto it = Tree().find(path);
  if (it == Tree().end()) return -ENOENT;
  const std::string& text = it->second.text;
  if (offset >= static_cast<off_t>(text.size())) return 0;
  const size_t n = std::min(size, text.size() - static_cast<size_t>(offset));
  std::memcpy(buf, text.data() + offset, n);
  return static_cast<int>(n);
}

void Release() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_holding = false;
  g_all = false;
  g_released.notify_all();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: hang_fs MOUNTPOINT\n");
    return 2;
  }
  g_mount = argv[1];
  fuse_operations ops{};
  ops.init = Init;
  ops.getattr = GetAttr;
  ops.readdir = ReadDir;
  ops.open = Open;
  ops.read = Read;
  char arg0[] = "hang_fs";
  char* args_v[] = {arg0, nullptr};
  fuse_args args = FUSE_ARGS_INIT(1, args_v);
  fuse* fs = fuse_new(&args, &ops, sizeof ops, nullptr);
  if (fs == nullptr) return 3;
  if (fuse_mount(fs, g_mount.c_str()) != 0) {
    fuse_destroy(fs);
    return 4;
  }
  std::thread control([fs] {
    std::string line;
    while (std::getline(std::cin, line)) {
      if (line == "all") {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_holding = true;
        g_all = true;
      } else if (line == "release") {
        Release();
      }
      std::printf("done\n");  // the test goes on once the new state holds
      std::fflush(stdout);
    }
    // The test is done or gone: nothing may stay hung, and the mount goes with us.
    Release();
    fuse_exit(fs);
    umount2(g_mount.c_str(), MNT_DETACH);
  });
  std::printf("ready\n");
  std::fflush(stdout);
  const int rc = fuse_loop_mt(fs, 0);
  control.join();
  // Already unmounted (lazily) by the control thread, or by the test.
  fuse_destroy(fs);
  return rc == 0 ? 0 : 5;
}
