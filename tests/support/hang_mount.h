// HangMount: the test file system of tests/support/fuse/hang_fs.cpp mounted for the time of a
// test, with folders that hang on purpose until released (see that file for its tree).
//
//   TempTree tree({"local.txt", "mnt/"});
//   HangMount mount(tree.path("mnt"));      // declared after the tree: unmounted before it goes
//   if (!mount.ok()) GTEST_SKIP() << mount.reason();
//
// Whatever happens, the mount goes with the object: the server's stdin is closed (it then
// answers every waiting call and unmounts itself), it is reaped or killed, and the mount point
// is lazily unmounted. If the test process dies instead, the server sees its stdin end and
// does the same. So a failing test never leaves a hung mount for the next one.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

namespace trovix::testing {

class HangMount {
 public:
  explicit HangMount(std::string mount_point) : mount_point_(std::move(mount_point)) {
#ifndef TROVIX_HANG_FS
    reason_ = "the test file system was not built (libfuse3-dev missing)";
#else
    if (access("/dev/fuse", R_OK | W_OK) != 0) {
      reason_ = "no /dev/fuse here: FUSE mounts are not available";
      return;
    }
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0) {
      reason_ = "pipe failed";
      return;
    }
    if (pipe2(out, O_CLOEXEC) != 0) {
      close(in[0]), close(in[1]);
      reason_ = "pipe failed";
      return;
    }
    pid_ = fork();
    if (pid_ == 0) {
      dup2(in[0], 0);
      dup2(out[1], 1);
      execl(TROVIX_HANG_FS, "hang_fs", mount_point_.c_str(), static_cast<char*>(nullptr));
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    to_server_ = in[1];
    if (pid_ < 0) {
      close(out[0]);
      close(to_server_);
      to_server_ = -1;
      reason_ = "fork failed";
      return;
    }
    // "ready" once mounted; the end of its output (or silence) means it could not mount.
    pollfd p{out[0], POLLIN, 0};
    char buf[16] = {};
    const bool ready = poll(&p, 1, 10'000) == 1 && read(out[0], buf, sizeof buf - 1) > 0 &&
                       std::string(buf).rfind("ready", 0) == 0;
    from_server_ = out[0];
    if (!ready) {
      reason_ = "the test file system could not be mounted here (no permission to mount?)";
      Unmount();
      return;
    }
    ok_ = true;
#endif
  }
  ~HangMount() { Unmount(); }
  HangMount(const HangMount&) = delete;
  HangMount& operator=(const HangMount&) = delete;

  bool ok() const { return ok_; }
  const std::string& reason() const { return reason_; }
  const std::string& path() const { return mount_point_; }

  // From now on every call hangs, the mount's root included.
  void HangAll() { Say("all\n"); }
  // Every waiting call answers; nothing hangs any more.
  void Release() { Say("release\n"); }

  void Unmount() {
    if (to_server_ >= 0) {
      close(to_server_);
      to_server_ = -1;
    }
    if (from_server_ >= 0) {
      close(from_server_);
      from_server_ = -1;
    }
    if (pid_ > 0) {
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
      int status = 0;
      while (waitpid(pid_, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
          kill(pid_, SIGKILL);  // the kernel then ends every call still waiting on it
          waitpid(pid_, &status, 0);
          break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
      pid_ = -1;
    }
    // The lazy unmount (umount -l) of whatever may still be there; harmless when it is gone.
    if (ok_) umount2(mount_point_.c_str(), MNT_DETACH);
    ok_ = false;
  }

 private:
  // Sends a command and waits for the server to say it took it, so that what the test does
  // next meets the new state.
  void Say(const char* line) {
    if (to_server_ < 0) return;
    (void)!write(to_server_, line, std::char_traits<char>::length(line));
    pollfd p{from_server_, POLLIN, 0};
    char c = 0;
    while (poll(&p, 1, 5'000) == 1 && read(from_server_, &c, 1) == 1 && c != '\n') {
    }
  }

  std::string mount_point_;
  std::string reason_;
  bool ok_ = false;
  pid_t pid_ = -1;
  int to_server_ = -1;
  int from_server_ = -1;
};

}  // namespace trovix::testing
