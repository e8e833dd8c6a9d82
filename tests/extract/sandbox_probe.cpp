#include "tests/extract/sandbox_probe.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/io_uring.h>
#include <linux/sched.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstring>
#include <sstream>
#include <vector>

namespace trovix::testing {
namespace {

std::string Result(long r) { return r >= 0 ? "DONE" : std::string("refused: ") + std::strerror(errno); }

std::string Connect(int family, const sockaddr* address, socklen_t size, int type) {
  int fd = ::socket(family, type | SOCK_CLOEXEC, 0);
  if (fd < 0) return Result(fd);
  long r = type == SOCK_DGRAM ? ::sendto(fd, "x", 1, 0, address, size) : ::connect(fd, address, size);
  ::close(fd);
  return Result(r);
}

// A child that must never exist: if one is made, it ends at once (or, for the session
// attack, hides in a session of its own to outlive the pool).
std::string Forked(long pid, bool hide) {
  if (pid == 0) {
    if (hide) {
      ::setsid();
      for (;;) ::pause();
    }
    _exit(0);
  }
  return Result(pid);
}

}  // namespace

std::string RunProbe(const std::string& command) {
  std::istringstream in(command);
  std::string attack, path, other;
  in >> attack;
  std::getline(in >> std::ws, path);
  const pid_t pid = static_cast<pid_t>(std::atol(path.c_str()));

  if (attack == "tiocsti") {
    // Every descriptor the helper holds; any of them a terminal would type into the shell.
    std::string seen;
    for (int fd = 0; fd < 16; ++fd) {
      if (::fcntl(fd, F_GETFD) < 0) continue;
      char c = 'x';
      seen += std::to_string(fd) + " " + Result(::ioctl(fd, TIOCSTI, &c)) + "; ";
    }
    return seen;
  }
  if (attack == "tty") {
    int fd = ::open("/dev/tty", O_RDONLY | O_CLOEXEC);
    if (fd >= 0) ::close(fd);
    return Result(fd);
  }
  if (attack == "unix") {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    return Connect(AF_UNIX, reinterpret_cast<sockaddr*>(&address), sizeof address, SOCK_STREAM);
  }
  if (attack == "socketpair") {
    int fds[2];
    long r = ::socketpair(AF_UNIX, SOCK_STREAM, 0, fds);
    if (r == 0) ::close(fds[0]), ::close(fds[1]);
    return Result(r);
  }
  if (attack == "udp" || attack == "tcp") {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(pid));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return Connect(AF_INET, reinterpret_cast<sockaddr*>(&address), sizeof address,
                   attack == "udp" ? SOCK_DGRAM : SOCK_STREAM);
  }
  if (attack == "io_uring") {
    io_uring_params params{};
    return Result(::syscall(SYS_io_uring_setup, 8, &params));
  }
  if (attack == "kill") return Result(::kill(pid, SIGTERM));
  if (attack == "tgkill") return Result(::syscall(SYS_tgkill, pid, pid, SIGTERM));
  if (attack == "tkill") return Result(::syscall(SYS_tkill, pid, SIGTERM));
  if (attack == "setown") return Result(::fcntl(0, F_SETOWN, pid));
  if (attack == "pidfd") {
    long pidfd = ::syscall(SYS_pidfd_open, pid, 0);
    if (pidfd < 0) return Result(pidfd);
    return Result(::syscall(SYS_pidfd_getfd, pidfd, 0, 0));
  }
  if (attack == "chmod") return Result(::chmod(path.c_str(), 0777));
  if (attack == "fchmod") {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return Result(fd);
    long r = ::fchmod(fd, 0777);
    ::close(fd);
    return Result(r);
  }
  if (attack == "chown") return Result(::chown(path.c_str(), ::getuid(), ::getgid()));
  if (attack == "setxattr") return Result(::setxattr(path.c_str(), "user.probe", "x", 1, 0));
  if (attack == "removexattr") return Result(::removexattr(path.c_str(), "user.kept"));
  if (attack == "utimensat") {
    timespec times[2] = {{0, 0}, {0, 0}};
    return Result(::utimensat(AT_FDCWD, path.c_str(), times, 0));
  }
  if (attack == "write") {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (fd >= 0) ::close(fd);
    return Result(fd);
  }
  if (attack == "append") {
    int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd >= 0) ::close(fd);
    return Result(fd);
  }
  if (attack == "rename") return Result(::rename(path.c_str(), (path + ".moved").c_str()));
  if (attack == "unlink") return Result(::unlink(path.c_str()));
  if (attack == "truncate") return Result(::truncate(path.c_str(), 0));
  if (attack == "execve") {
    char* argv[] = {const_cast<char*>("/bin/true"), nullptr};
    return Result(::execve(argv[0], argv, environ));
  }
  if (attack == "unshare") return Result(::unshare(CLONE_NEWUSER));
  if (attack == "setns") return Result(::setns(0, CLONE_NEWNET));
  if (attack == "fork") return Forked(::fork(), false);
  if (attack == "rawfork") return Forked(::syscall(SYS_fork), false);
  if (attack == "vfork") return Forked(::syscall(SYS_vfork), false);
  if (attack == "clone-newuser") return Forked(::syscall(SYS_clone, CLONE_NEWUSER | SIGCHLD, 0, 0, 0, 0), false);
  if (attack == "clone3") {
    clone_args args{};
    args.exit_signal = SIGCHLD;
    return Forked(::syscall(SYS_clone3, &args, sizeof args), false);
  }
  if (attack == "setsid-child") return Forked(::fork(), true);
  if (attack == "ptrace") return Result(::ptrace(PTRACE_ATTACH, pid, nullptr, nullptr));
  if (attack == "process_vm_writev") {
    char byte = 0;
    // No address of the other process is needed: a refusal must come before the kernel looks.
    iovec local{&byte, 1}, remote{nullptr, 1};
    return Result(::syscall(SYS_process_vm_writev, pid, &local, 1, &remote, 1, 0));
  }
  return "unknown attack " + attack;
}

}  // namespace trovix::testing
