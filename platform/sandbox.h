// The sandbox a helper process enters before it reads any untrusted file: it may read files,
// and write only to the pipes it was given.
//   - PR_SET_NO_NEW_PRIVS;
//   - Landlock, read-only for the whole file system, at the highest ABI the kernel offers
//     (found at run time; the constants newer than the system headers are defined here);
//   - a seccomp filter: no sockets other than local ones, no execve/execveat, no opening of
//     files for writing or creating (open/openat/openat2 with O_WRONLY, O_RDWR, O_CREAT or
//     O_TRUNC), no ptrace; the call fails with EPERM rather than killing the helper, so a
//     library that tries gets an error it can live with.
// Each layer that the kernel refuses is reported, not fatal: the others still apply.
#pragma once

#include <string>

namespace trovix::platform {

struct SandboxReport {
  bool no_new_privs = false;
  int landlock_abi = 0;       // 0: not available or refused
  bool landlock = false;      // a read-only ruleset is in force
  bool seccomp = false;       // the filter is in force
  std::string problems;       // what the kernel refused, one clause per layer

  // One line: "no_new_privs=yes landlock=abi6 seccomp=yes".
  std::string Describe() const;
};

// Enters the sandbox for the calling process (all its threads must be started after this).
SandboxReport EnterSandbox();

// The highest Landlock ABI this kernel offers, 0 when none (without entering anything).
int LandlockAbi();

}  // namespace trovix::platform
