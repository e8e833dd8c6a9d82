#include "platform/sandbox.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/landlock.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <set>

// Landlock grew after the system headers were written: the rights and structures of the
// newer ABIs are defined here, and only asked for when the running kernel reports that ABI.
#ifndef LANDLOCK_ACCESS_FS_REFER
#define LANDLOCK_ACCESS_FS_REFER (1ULL << 13)
#endif
#ifndef LANDLOCK_ACCESS_FS_TRUNCATE
#define LANDLOCK_ACCESS_FS_TRUNCATE (1ULL << 14)
#endif
#ifndef LANDLOCK_ACCESS_FS_IOCTL_DEV
#define LANDLOCK_ACCESS_FS_IOCTL_DEV (1ULL << 15)
#endif
#ifndef LANDLOCK_ACCESS_NET_BIND_TCP
#define LANDLOCK_ACCESS_NET_BIND_TCP (1ULL << 0)
#define LANDLOCK_ACCESS_NET_CONNECT_TCP (1ULL << 1)
#endif
#ifndef LANDLOCK_SCOPE_ABSTRACT_UNIX_SOCKET
#define LANDLOCK_SCOPE_ABSTRACT_UNIX_SOCKET (1ULL << 0)
#define LANDLOCK_SCOPE_SIGNAL (1ULL << 1)
#endif
#ifndef LANDLOCK_CREATE_RULESET_VERSION
#define LANDLOCK_CREATE_RULESET_VERSION (1U << 0)
#endif

namespace trovix::platform {
namespace {

// The ruleset attribute as ABI 6 knows it; the kernel is told how much of it it reads, so an
// older kernel reads only the first field.
struct RulesetAttr {
  uint64_t handled_access_fs;
  uint64_t handled_access_net;
  uint64_t scoped;
};

struct PathBeneathAttr {
  uint64_t allowed_access;
  int32_t parent_fd;
} __attribute__((packed));

constexpr int kRulePathBeneath = 1;

uint64_t FileSystemRights(int abi) {
  uint64_t rights = (1ULL << 13) - 1;  // ABI 1: execute through make-symlink
  if (abi >= 2) rights |= LANDLOCK_ACCESS_FS_REFER;
  if (abi >= 3) rights |= LANDLOCK_ACCESS_FS_TRUNCATE;
  if (abi >= 5) rights |= LANDLOCK_ACCESS_FS_IOCTL_DEV;
  return rights;
}

// Read-only for the whole tree: every right the ABI knows is handled, and "/" allows only
// reading files and listing folders. Open descriptors (the pipes) are not affected.
bool EnterLandlock(int abi, bool abstract_sockets, std::string* problems) {
  RulesetAttr attr{};
  attr.handled_access_fs = FileSystemRights(abi);
  size_t attr_size = sizeof(uint64_t);
  if (abi >= 4) {
    attr.handled_access_net = LANDLOCK_ACCESS_NET_BIND_TCP | LANDLOCK_ACCESS_NET_CONNECT_TCP;
    attr_size = 2 * sizeof(uint64_t);
  }
  if (abi >= 6) {
    // The X library reaches the server through its abstract socket and does not fall back to
    // the socket file when that is refused: a lister host keeps abstract sockets.
    attr.scoped = abstract_sockets ? LANDLOCK_SCOPE_SIGNAL
                                   : LANDLOCK_SCOPE_ABSTRACT_UNIX_SOCKET | LANDLOCK_SCOPE_SIGNAL;
    attr_size = sizeof attr;
  }
  const int ruleset = static_cast<int>(::syscall(SYS_landlock_create_ruleset, &attr, attr_size, 0));
  if (ruleset < 0) {
    *problems += std::string("landlock ruleset: ") + std::strerror(errno) + "; ";
    return false;
  }
  bool ok = false;
  const int root = ::open("/", O_PATH | O_CLOEXEC);
  if (root >= 0) {
    PathBeneathAttr beneath{LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR, root};
    if (::syscall(SYS_landlock_add_rule, ruleset, kRulePathBeneath, &beneath, 0) != 0)
      *problems += std::string("landlock rule: ") + std::strerror(errno) + "; ";
    else if (::syscall(SYS_landlock_restrict_self, ruleset, 0) != 0)
      *problems += std::string("landlock restrict: ") + std::strerror(errno) + "; ";
    else
      ok = true;
    ::close(root);
  }
  ::close(ruleset);
  return ok;
}

// The flags of clone that make a new namespace.
constexpr uint64_t kNamespaces = CLONE_NEWNS | CLONE_NEWCGROUP | CLONE_NEWUTS | CLONE_NEWIPC | CLONE_NEWUSER |
                                 CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWTIME;

// A filter under construction: every rule added goes through here, so a call this
// architecture does not have (open on arm64, say) is no problem, and a rule the library
// refuses makes the whole filter fail rather than leave a gap.
class FilterBuilder {
 public:
  explicit FilterBuilder(scmp_filter_ctx ctx) : ctx_(ctx) {}

  void Allow(int call, std::initializer_list<scmp_arg_cmp> args = {}) {
    if (Add(SCMP_ACT_ALLOW, call, args)) allowed_.insert(call);
  }
  void Refuse(int error, int call, std::initializer_list<scmp_arg_cmp> args = {}) {
    Add(SCMP_ACT_ERRNO(static_cast<uint32_t>(error)), call, args);
  }
  void Kill(int call, std::initializer_list<scmp_arg_cmp> args = {}) { Add(SCMP_ACT_KILL_PROCESS, call, args); }

  bool ok() const { return ok_; }
  int allowed() const { return static_cast<int>(allowed_.size()); }

 private:
  bool Add(uint32_t action, int call, std::initializer_list<scmp_arg_cmp> args) {
    if (call < 0) return false;
    int r = seccomp_rule_add_array(ctx_, action, call, static_cast<unsigned>(args.size()), args.begin());
    if (r == -EDOM) return false;  // not a call of this architecture
    if (r == -EACCES) return true;  // the default action already: said for the reader only
    if (r != 0) ok_ = false;
    return r == 0;
  }

  scmp_filter_ctx ctx_;
  std::set<int> allowed_;
  bool ok_ = true;
};

// The allow-list. Found by tracing the helper over the whole test corpus (PDF, Office and
// OpenDocument files, images, music, archives, executables, texts in many encodings) with
// every reader it links; anything else answers ENOSYS (the default action), so a library that
// tries a call it does not need gets an error, not a dead helper.
void AllowWhatAHelperNeeds(FilterBuilder& f) {
  // Reading documents and requests, writing answers. Writes can only reach the pipes: no file
  // can be opened for writing (below) and the helper inherits nothing else.
  for (int call : {SCMP_SYS(read), SCMP_SYS(readv), SCMP_SYS(pread64), SCMP_SYS(preadv), SCMP_SYS(preadv2),
                   SCMP_SYS(write), SCMP_SYS(writev)})
    f.Allow(call);
  // Readers seek and advise the kernel of their reading pattern; close ends a descriptor.
  for (int call : {SCMP_SYS(lseek), SCMP_SYS(fadvise64), SCMP_SYS(close)}) f.Allow(call);
  // Looking at files: the request runner checks a file is regular, glibc's stat family.
  for (int call : {SCMP_SYS(fstat), SCMP_SYS(newfstatat), SCMP_SYS(stat), SCMP_SYS(lstat), SCMP_SYS(statx),
                   SCMP_SYS(fstatfs), SCMP_SYS(statfs), SCMP_SYS(access), SCMP_SYS(faccessat),
                   SCMP_SYS(faccessat2), SCMP_SYS(readlink), SCMP_SYS(readlinkat), SCMP_SYS(getcwd),
                   SCMP_SYS(getdents64)})
    f.Allow(call);
  // Opening for reading only: documents, and the data files of the libraries (poppler's
  // character maps, glibc's locale and gconv modules, the time zone). The flags are the second
  // argument of open and the third of openat; any of these bits refuses the call.
  constexpr uint64_t kWriting = O_WRONLY | O_RDWR | O_CREAT | O_TRUNC;
  f.Allow(SCMP_SYS(open), {SCMP_A1(SCMP_CMP_MASKED_EQ, kWriting, 0)});
  f.Allow(SCMP_SYS(openat), {SCMP_A2(SCMP_CMP_MASKED_EQ, kWriting, 0)});
  for (uint64_t flag : {uint64_t{O_WRONLY}, uint64_t{O_RDWR}, uint64_t{O_CREAT}, uint64_t{O_TRUNC}}) {
    f.Refuse(EPERM, SCMP_SYS(open), {SCMP_A1(SCMP_CMP_MASKED_EQ, flag, flag)});
    f.Refuse(EPERM, SCMP_SYS(openat), {SCMP_A2(SCMP_CMP_MASKED_EQ, flag, flag)});
  }
  // Descriptor flags (close-on-exec, non-blocking) and copies of a descriptor. F_SETOWN and
  // F_SETSIG are left out: they would aim SIGIO at another process.
  for (int cmd : {F_GETFD, F_SETFD, F_GETFL, F_SETFL, F_DUPFD, F_DUPFD_CLOEXEC})
    f.Allow(SCMP_SYS(fcntl), {SCMP_A1(SCMP_CMP_EQ, static_cast<uint64_t>(cmd))});
  for (int call : {SCMP_SYS(dup), SCMP_SYS(dup3)}) f.Allow(call);
  // Waiting on the request pipe (a cancel between two pieces of an answer); pause only waits
  // for a signal, which nobody outside may send.
  for (int call : {SCMP_SYS(poll), SCMP_SYS(ppoll), SCMP_SYS(pause)}) f.Allow(call);
  // The only ioctls libraries make here: isatty() asks TCGETS (the pipes answer ENOTTY) and
  // FIONREAD asks what waits on a descriptor.
  f.Allow(SCMP_SYS(ioctl), {SCMP_A1(SCMP_CMP_EQ, TCGETS)});
  f.Allow(SCMP_SYS(ioctl), {SCMP_A1(SCMP_CMP_EQ, FIONREAD)});
  // Memory: the allocator, mapped files, guard pages, the loader's protections.
  for (int call : {SCMP_SYS(brk), SCMP_SYS(mmap), SCMP_SYS(munmap), SCMP_SYS(mremap), SCMP_SYS(mprotect),
                   SCMP_SYS(madvise)})
    f.Allow(call);
  // Threads a library may start, and the locks between them. clone must make a thread
  // (CLONE_THREAD) and no namespace: a new process is refused below.
  f.Allow(SCMP_SYS(clone), {SCMP_A0(SCMP_CMP_MASKED_EQ, CLONE_THREAD | kNamespaces, CLONE_THREAD)});
  for (int call : {SCMP_SYS(futex), SCMP_SYS(set_robust_list), SCMP_SYS(rseq), SCMP_SYS(set_tid_address),
                   SCMP_SYS(sched_yield), SCMP_SYS(sched_getaffinity)})
    f.Allow(call);
  // Ending, and the signal machinery of the C library (a handler's return, masks).
  for (int call : {SCMP_SYS(exit), SCMP_SYS(exit_group), SCMP_SYS(rt_sigreturn), SCMP_SYS(restart_syscall),
                   SCMP_SYS(rt_sigaction), SCMP_SYS(rt_sigprocmask), SCMP_SYS(sigaltstack)})
    f.Allow(call);
  // abort() and raise() signal the helper itself; any other target is refused below.
  const uint64_t self = static_cast<uint64_t>(::getpid());
  f.Allow(SCMP_SYS(kill), {SCMP_A0(SCMP_CMP_EQ, self)});
  f.Allow(SCMP_SYS(tgkill), {SCMP_A0(SCMP_CMP_EQ, self)});
  // Who and where the helper is; time; random seeds (OpenSSL, the standard library); the
  // machine's memory (glibc sizes its caches by it); its own limits (read, never raised).
  for (int call : {SCMP_SYS(getpid), SCMP_SYS(gettid), SCMP_SYS(getuid), SCMP_SYS(geteuid), SCMP_SYS(getgid),
                   SCMP_SYS(getegid), SCMP_SYS(uname), SCMP_SYS(clock_gettime), SCMP_SYS(clock_getres),
                   SCMP_SYS(gettimeofday), SCMP_SYS(time), SCMP_SYS(nanosleep), SCMP_SYS(clock_nanosleep),
                   SCMP_SYS(getrandom), SCMP_SYS(sysinfo), SCMP_SYS(getrlimit)})
    f.Allow(call);
  f.Allow(SCMP_SYS(prlimit64), {SCMP_A0(SCMP_CMP_EQ, 0), SCMP_A2(SCMP_CMP_EQ, 0)});
#if defined(TROVIX_SANITIZED)
  // The leak checker stops the world at exit: a tracer task (clone with exactly these flags,
  // so a fork still fails) attaches to every thread with ptrace and waits for it; the sanitizers ask prctl about
  // the process and list /proc with the older getdents; before reading memory they may not own, they test it by
  // writing it into a pipe of their own. Sanitized builds are for tests, never shipped.
  f.Allow(SCMP_SYS(clone), {SCMP_A0(SCMP_CMP_EQ, CLONE_VM | CLONE_FS | CLONE_FILES | CLONE_UNTRACED)});
  for (int call : {SCMP_SYS(ptrace), SCMP_SYS(prctl), SCMP_SYS(wait4), SCMP_SYS(getppid), SCMP_SYS(mincore),
                   SCMP_SYS(sched_getparam), SCMP_SYS(sched_getscheduler), SCMP_SYS(getpgid), SCMP_SYS(getdents), SCMP_SYS(pipe2),
                   SCMP_SYS(pipe)})
    f.Allow(call);
#endif
}

// What the helper must never do, with the answer each gets. EPERM where a library might try
// (and should hear "not allowed"), ENOSYS where the C library falls back to an older call that
// the filter can check, death where only an attack makes the call.
void RefuseWhatATakenOverHelperWants(FilterBuilder& f, bool x11_client) {
  // No network and no local sockets: the session bus, ssh-agent, X11 and the like all live
  // behind socket files. The helper needs none: its pipes are made by the pool. (A lister
  // host's unix sockets are admitted in AllowAnX11Client; every other family is refused.)
  if (x11_client)
    f.Refuse(EPERM, SCMP_SYS(socket), {SCMP_A0(SCMP_CMP_NE, AF_UNIX)});
  else
    f.Refuse(EPERM, SCMP_SYS(socket));
  f.Refuse(EPERM, SCMP_SYS(socketpair));
  // No programs, no new processes. glibc tries clone3 first and falls back to clone, whose
  // flags the filter can read.
  for (int call : {SCMP_SYS(execve), SCMP_SYS(execveat), SCMP_SYS(fork), SCMP_SYS(vfork)}) f.Refuse(EPERM, call);
  f.Refuse(ENOSYS, SCMP_SYS(clone3));
#if !defined(TROVIX_SANITIZED)
  // (A sanitized build admits the leak checker's tracer above; its other forks get ENOSYS.)
  f.Refuse(EPERM, SCMP_SYS(clone), {SCMP_A0(SCMP_CMP_MASKED_EQ, CLONE_THREAD, 0)});
#endif
  for (uint64_t flag : {uint64_t{CLONE_NEWNS}, uint64_t{CLONE_NEWCGROUP}, uint64_t{CLONE_NEWUTS},
                        uint64_t{CLONE_NEWIPC}, uint64_t{CLONE_NEWUSER}, uint64_t{CLONE_NEWPID},
                        uint64_t{CLONE_NEWNET}, uint64_t{CLONE_NEWTIME}})
    f.Refuse(EPERM, SCMP_SYS(clone),
             {SCMP_A0(SCMP_CMP_MASKED_EQ, CLONE_THREAD | flag, CLONE_THREAD | flag)});
  // openat2 hides its flags in a structure a filter cannot read: "not implemented" makes the
  // C library fall back to openat.
  f.Refuse(ENOSYS, SCMP_SYS(openat2));
  // Changing files: by name (for kernels without Landlock), their mode, owner, extended
  // attributes and times (which Landlock does not stop at all).
  for (int call : {SCMP_SYS(creat), SCMP_SYS(unlink), SCMP_SYS(unlinkat), SCMP_SYS(rename), SCMP_SYS(renameat),
                   SCMP_SYS(renameat2), SCMP_SYS(mkdir), SCMP_SYS(mkdirat), SCMP_SYS(rmdir), SCMP_SYS(link),
                   SCMP_SYS(linkat), SCMP_SYS(symlink), SCMP_SYS(symlinkat), SCMP_SYS(truncate),
                   SCMP_SYS(ftruncate), SCMP_SYS(mknod), SCMP_SYS(mknodat), SCMP_SYS(chmod), SCMP_SYS(fchmod),
                   SCMP_SYS(fchmodat), SCMP_SYS(chown), SCMP_SYS(fchown), SCMP_SYS(lchown), SCMP_SYS(fchownat),
                   SCMP_SYS(setxattr), SCMP_SYS(lsetxattr), SCMP_SYS(fsetxattr), SCMP_SYS(removexattr),
                   SCMP_SYS(lremovexattr), SCMP_SYS(fremovexattr), SCMP_SYS(utime), SCMP_SYS(utimes),
                   SCMP_SYS(utimensat), SCMP_SYS(futimesat)})
    f.Refuse(EPERM, call);
  // Signals to anyone but the helper itself.
  const uint64_t self = static_cast<uint64_t>(::getpid());
  f.Refuse(EPERM, SCMP_SYS(kill), {SCMP_A0(SCMP_CMP_NE, self)});
  f.Refuse(EPERM, SCMP_SYS(tgkill), {SCMP_A0(SCMP_CMP_NE, self)});
  f.Refuse(EPERM, SCMP_SYS(tkill));
  // Only an attack makes these: a ring that goes around this filter, another process's memory
  // or descriptors, new namespaces, typing into a terminal. The helper ends at once.
  for (int call : {SCMP_SYS(io_uring_setup), SCMP_SYS(io_uring_enter), SCMP_SYS(io_uring_register),
                   SCMP_SYS(process_vm_readv), SCMP_SYS(process_vm_writev), SCMP_SYS(pidfd_open),
                   SCMP_SYS(pidfd_getfd), SCMP_SYS(pidfd_send_signal), SCMP_SYS(unshare), SCMP_SYS(setns),
                   SCMP_SYS(bpf), SCMP_SYS(userfaultfd), SCMP_SYS(perf_event_open)})
    f.Kill(call);
#if !defined(TROVIX_SANITIZED)
  f.Kill(SCMP_SYS(ptrace));
#endif
  f.Kill(SCMP_SYS(ioctl), {SCMP_A1(SCMP_CMP_EQ, TIOCSTI)});
  f.Kill(SCMP_SYS(ioctl), {SCMP_A1(SCMP_CMP_EQ, TIOCLINUX)});
}

// A lister plugin's connection to the X server: a unix stream socket (the X library asks for
// it non-blocking and close-on-exec), connected to the server's socket file; the requests and
// events travel over it, with descriptors passed alongside by newer libraries; the library
// reads its peer and its own address and sets nothing but what is checked here.
void AllowAnX11Client(FilterBuilder& f) {
  constexpr uint64_t kTypeMask = 0xF;  // the socket type without SOCK_NONBLOCK and SOCK_CLOEXEC
  f.Allow(SCMP_SYS(socket),
          {SCMP_A0(SCMP_CMP_EQ, AF_UNIX), SCMP_A1(SCMP_CMP_MASKED_EQ, kTypeMask, SOCK_STREAM)});
  for (int call : {SCMP_SYS(connect), SCMP_SYS(sendmsg), SCMP_SYS(recvmsg), SCMP_SYS(sendto),
                   SCMP_SYS(recvfrom), SCMP_SYS(getpeername), SCMP_SYS(getsockname),
                   SCMP_SYS(getsockopt), SCMP_SYS(shutdown)})
    f.Allow(call);
}

bool EnterSeccomp(const SandboxOptions& options, int* allowed, std::string* problems) {
  scmp_filter_ctx ctx = seccomp_init(SCMP_ACT_ERRNO(ENOSYS));
  if (ctx == nullptr) {
    *problems += "seccomp: cannot make a filter; ";
    return false;
  }
  // Threads a library started before this point are covered too.
  seccomp_attr_set(ctx, SCMP_FLTATR_CTL_TSYNC, 1);
  FilterBuilder builder(ctx);
  AllowWhatAHelperNeeds(builder);
  if (options.event_counters) builder.Allow(SCMP_SYS(eventfd2));
  if (options.x11_client) AllowAnX11Client(builder);
  RefuseWhatATakenOverHelperWants(builder, options.x11_client);
  if (!builder.ok()) {
    *problems += "seccomp: a rule was refused; ";
    seccomp_release(ctx);
    return false;
  }
  int r = seccomp_load(ctx);
  seccomp_release(ctx);
  if (r != 0) {
    *problems += std::string("seccomp load: ") + std::strerror(-r) + "; ";
    return false;
  }
  *allowed = builder.allowed();
  return true;
}

}  // namespace

int LandlockAbi() {
  long abi = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
  return abi > 0 ? static_cast<int>(abi) : 0;
}

SandboxReport EnterSandbox(const SandboxOptions& options) {
  SandboxReport report;
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0)
    report.no_new_privs = true;
  else
    report.problems += std::string("no_new_privs: ") + std::strerror(errno) + "; ";
  report.landlock_abi = LandlockAbi();
  if (!options.landlock)
    report.problems += "landlock: turned off; ";
  else if (report.landlock_abi == 0)
    report.problems += "landlock: not offered by this kernel; ";
  else if (EnterLandlock(report.landlock_abi, options.x11_client, &report.problems)) {
    report.landlock = true;
    report.landlock_net = report.landlock_abi >= 4;
    report.landlock_scope = report.landlock_abi >= 6;
  }
  report.seccomp = EnterSeccomp(options, &report.seccomp_calls, &report.problems);
  report.unix_sockets = report.seccomp && options.x11_client;
  if (report.problems.size() >= 2) report.problems.resize(report.problems.size() - 2);
  return report;
}

std::string SandboxReport::Describe() const {
  std::string text = std::string("no_new_privs=") + (no_new_privs ? "yes" : "no");
  text += " landlock=";
  text += landlock ? "abi" + std::to_string(landlock_abi) : "no";
  text += std::string(" scope=") + (landlock_scope ? "yes" : "no");
  text += std::string(" seccomp=") + (seccomp ? "allow-list" : "no");
  if (!problems.empty()) text += " (" + problems + ")";
  return text;
}

std::string SandboxReport::Layers() const {
  auto yes_no = [](bool b) { return b ? "in force" : "MISSING"; };
  std::string text = std::string("no new privileges: ") + yes_no(no_new_privs) + "\n";
  text += std::string("landlock file system (read-only): ") + yes_no(landlock);
  if (landlock_abi > 0) text += " (kernel ABI " + std::to_string(landlock_abi) + ")";
  text += std::string("\nlandlock network (no TCP bind or connect): ") + yes_no(landlock_net);
  if (unix_sockets)
    text += std::string("\nlandlock scope (no signals outside): ") + yes_no(landlock_scope);
  else
    text += std::string("\nlandlock scope (no abstract unix sockets, no signals outside): ") +
            yes_no(landlock_scope);
  text += std::string("\nseccomp allow-list: ") + yes_no(seccomp);
  if (seccomp) text += " (" + std::to_string(seccomp_calls) + " calls admitted, others refused)";
  text += "\n";
  if (unix_sockets) {
    text +=
        "sockets: unix stream sockets only, to reach the X server (no other family, no TCP; the\n"
        "  filters cannot read the address a connect names, so any unix socket the host can name,\n"
        "  by path or by abstract name, is reachable)\n";
  } else if (seccomp) {
    text += "sockets: none\n";
  }
  if (!problems.empty()) text += "problems: " + problems + "\n";
  return text;
}

std::string SandboxReport::Missing() const {
  std::string missing;
  auto add = [&missing](bool held, const char* layer) {
    if (!held) missing += (missing.empty() ? "" : ", ") + std::string(layer);
  };
  add(no_new_privs, "no-new-privileges");
  add(landlock, "landlock");
  add(landlock_net, "landlock network");
  add(landlock_scope, "landlock scope");
  add(seccomp, "seccomp");
  if (missing.empty()) return {};
  return "sandbox layers missing: " + missing + (problems.empty() ? "" : " (" + problems + ")");
}

}  // namespace trovix::platform
