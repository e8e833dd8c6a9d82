// The sandbox a helper process enters before it reads any untrusted file. A document crafted
// to take over the helper gets a process that may read files, write to the pipes it was given
// and end itself, and nothing else:
//   - PR_SET_NO_NEW_PRIVS;
//   - Landlock, read-only for the whole file system, at the highest ABI the kernel offers
//     (found at run time; the constants newer than the system headers are defined here): no
//     file is created, written, renamed or removed; from ABI 4 no TCP bind or connect; from
//     ABI 6 no abstract unix socket and no signal outside the helper (scoping);
//   - a seccomp ALLOW-LIST (sandbox.cpp lists every call it admits and why). Anything not on
//     it fails with ENOSYS, so a library that probes an unknown call gets an error it can live
//     with; the calls only an attack makes (io_uring, ptrace, process_vm_*, pidfd_*, unshare,
//     setns, TIOCSTI/TIOCLINUX) end the helper at once.
// The pool that starts a helper (platform/process_pool.h) does the rest: no terminal on any
// descriptor, a session of its own, an environment from a short allow-list.
// Each layer the kernel refuses is reported, not fatal: the others still apply.
#pragma once

#include <string>

namespace trovix::platform {

struct SandboxOptions {
  // Only the tests turn this off, to prove the seccomp filter holds on its own (as it must
  // on kernels without Landlock).
  bool landlock = true;
  // The renderer's image scaling runs on Qt's worker threads, and a Qt thread wakes its event
  // loop through an event counter (eventfd2): a descriptor that names no file and no socket.
  // Only the renderer asks for it; the document reader's list stays as it is.
  bool event_counters = false;
  // A lister plugin draws its window through its own connection to the X server, which lives
  // behind a unix socket file. Only the plugin host in lister mode asks for this: unix stream
  // sockets may be made and connected, and data sent and received on them; every other family
  // stays refused (and TCP is refused by Landlock as well). The X library connects to the
  // server's abstract socket and does not fall back to its socket file when that is refused,
  // so Landlock's scope keeps signals in and leaves abstract sockets reachable. The kernel's
  // filters cannot read the address a connect names, so any unix socket the host can name is
  // reachable: the report says so.
  bool x11_client = false;
};

struct SandboxReport {
  bool no_new_privs = false;
  int landlock_abi = 0;         // 0: not available or refused
  bool landlock = false;        // the read-only file system ruleset is in force
  bool landlock_net = false;    // TCP bind and connect refused (ABI 4)
  bool landlock_scope = false;  // abstract unix sockets and signals scoped (ABI 6)
  bool seccomp = false;         // the allow-list is in force
  int seccomp_calls = 0;        // system calls the allow-list admits (some with conditions)
  bool unix_sockets = false;    // unix stream sockets admitted (SandboxOptions::x11_client)
  std::string problems;         // what the kernel refused, one clause per layer

  // One line: "no_new_privs=yes landlock=abi7 scope=yes seccomp=allow-list".
  std::string Describe() const;
  // One line per layer, for people: what holds and what is missing.
  std::string Layers() const;
  // What is missing, in one line for standard error; empty when every layer holds.
  std::string Missing() const;
};

// Enters the sandbox for the calling process (all its threads must be started after this).
SandboxReport EnterSandbox(const SandboxOptions& options = {});

// The highest Landlock ABI this kernel offers, 0 when none (without entering anything).
int LandlockAbi();

}  // namespace trovix::platform
