#include "platform/sandbox.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/landlock.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>

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
bool EnterLandlock(int abi, std::string* problems) {
  RulesetAttr attr{};
  attr.handled_access_fs = FileSystemRights(abi);
  size_t attr_size = sizeof(uint64_t);
  if (abi >= 4) {
    attr.handled_access_net = LANDLOCK_ACCESS_NET_BIND_TCP | LANDLOCK_ACCESS_NET_CONNECT_TCP;
    attr_size = 2 * sizeof(uint64_t);
  }
  if (abi >= 6) {
    attr.scoped = LANDLOCK_SCOPE_ABSTRACT_UNIX_SOCKET | LANDLOCK_SCOPE_SIGNAL;
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

// Adds one rule; a call this architecture does not have (open on arm64, say) is no problem.
bool Deny(scmp_filter_ctx ctx, int error, int call, std::initializer_list<scmp_arg_cmp> args = {}) {
  if (call < 0) return true;
  int r = seccomp_rule_add_array(ctx, SCMP_ACT_ERRNO(static_cast<uint32_t>(error)), call,
                                 static_cast<unsigned>(args.size()), args.begin());
  return r == 0 || r == -EDOM;
}

bool EnterSeccomp(std::string* problems) {
  scmp_filter_ctx ctx = seccomp_init(SCMP_ACT_ALLOW);
  if (ctx == nullptr) {
    *problems += "seccomp: cannot make a filter; ";
    return false;
  }
  // Threads a library started before this point are covered too.
  seccomp_attr_set(ctx, SCMP_FLTATR_CTL_TSYNC, 1);
  bool ok = Deny(ctx, EPERM, SCMP_SYS(socket), {SCMP_A0(SCMP_CMP_NE, AF_UNIX)}) &&
            Deny(ctx, EPERM, SCMP_SYS(execve)) && Deny(ctx, EPERM, SCMP_SYS(execveat)) &&
            Deny(ctx, EPERM, SCMP_SYS(creat)) && Deny(ctx, EPERM, SCMP_SYS(process_vm_writev));
#if !defined(TROVIX_SANITIZED)
  // The leak checker of a sanitized build stops the world with ptrace at exit.
  ok = ok && Deny(ctx, EPERM, SCMP_SYS(ptrace));
#endif
  // Opening for writing, creating or truncating: the flags are the second argument of open and
  // the third of openat. openat2 hides them in a structure a filter cannot read, so it answers
  // "not implemented" and the C library falls back to openat.
  for (uint64_t flag : {uint64_t{O_WRONLY}, uint64_t{O_RDWR}, uint64_t{O_CREAT}, uint64_t{O_TRUNC}}) {
    ok = ok && Deny(ctx, EPERM, SCMP_SYS(open), {SCMP_A1(SCMP_CMP_MASKED_EQ, flag, flag)}) &&
         Deny(ctx, EPERM, SCMP_SYS(openat), {SCMP_A2(SCMP_CMP_MASKED_EQ, flag, flag)});
  }
  ok = ok && Deny(ctx, ENOSYS, SCMP_SYS(openat2));
  // Changing the tree by name, for kernels without Landlock.
  for (int call : {SCMP_SYS(unlink), SCMP_SYS(unlinkat), SCMP_SYS(rename), SCMP_SYS(renameat), SCMP_SYS(renameat2),
                   SCMP_SYS(mkdir), SCMP_SYS(mkdirat), SCMP_SYS(rmdir), SCMP_SYS(link), SCMP_SYS(linkat),
                   SCMP_SYS(symlink), SCMP_SYS(symlinkat), SCMP_SYS(truncate), SCMP_SYS(mknod), SCMP_SYS(mknodat)})
    ok = ok && Deny(ctx, EPERM, call);
  if (!ok) {
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
  return true;
}

}  // namespace

int LandlockAbi() {
  long abi = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
  return abi > 0 ? static_cast<int>(abi) : 0;
}

SandboxReport EnterSandbox() {
  SandboxReport report;
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0)
    report.no_new_privs = true;
  else
    report.problems += std::string("no_new_privs: ") + std::strerror(errno) + "; ";
  report.landlock_abi = LandlockAbi();
  if (report.landlock_abi > 0)
    report.landlock = EnterLandlock(report.landlock_abi, &report.problems);
  else
    report.problems += "landlock: not offered by this kernel; ";
  report.seccomp = EnterSeccomp(&report.problems);
  if (report.problems.size() >= 2) report.problems.resize(report.problems.size() - 2);
  return report;
}

std::string SandboxReport::Describe() const {
  std::string text = std::string("no_new_privs=") + (no_new_privs ? "yes" : "no");
  text += " landlock=";
  text += landlock ? "abi" + std::to_string(landlock_abi) : "no";
  text += std::string(" seccomp=") + (seccomp ? "yes" : "no");
  if (!problems.empty()) text += " (" + problems + ")";
  return text;
}

}  // namespace trovix::platform
