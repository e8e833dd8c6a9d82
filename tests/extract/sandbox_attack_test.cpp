// A document that takes over the helper gets the helper's process: these tests play that
// document. The test build of trovix-extract runs each attack inside its real sandbox, as the
// pool starts it (pipes, session, environment), once with every layer and once with the
// seccomp filter alone (as on a kernel without Landlock). Each attack must be refused or end
// the helper; what it aimed at is checked from outside too.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/extract_protocol.h"
#include "platform/process_pool.h"
#include "platform/sandbox.h"
#include "tests/support/temp_tree.h"

namespace trovix::extract {
namespace {

volatile sig_atomic_t g_signals = 0;
void CountSignal(int) { g_signals = g_signals + 1; }

struct Seen {
  platform::ExchangeStatus status;
  int signal = 0;
  std::string answer;

  // Refused with an error the kernel gives for a denied call (not, say, a bad address that
  // would mean the call itself was let through), or the helper killed by its filter.
  bool Held() const {
    if (status == platform::ExchangeStatus::kCrashed) return signal == SIGSYS;
    if (status != platform::ExchangeStatus::kOk || answer.find("DONE") != std::string::npos) return false;
    for (const char* why : {"Operation not permitted", "Permission denied", "Function not implemented",
                            "No such device or address"})
      if (answer.find(why) != std::string::npos) return true;
    return false;
  }
  std::string Said() const { return status == platform::ExchangeStatus::kOk ? answer : "killed by signal " + std::to_string(signal); }
};

class SandboxAttack : public ::testing::TestWithParam<bool> {
 protected:
  SandboxAttack() : pool_(Options(GetParam())) {}

  static platform::PoolOptions Options(bool landlock) {
    platform::PoolOptions options;
    options.program = TROVIX_EXTRACT_TEST_PATH;
    options.args = landlock ? std::vector<std::string>{"--serve"} : std::vector<std::string>{"--serve", "--no-landlock"};
    options.size = 1;
    options.memory_limit = 0;
    return options;
  }

  Seen Ask(ExtractRequest request) {
    Seen seen;
    platform::ExchangeFailure failure;
    seen.status = pool_.Exchange(
        kExtractRequest, request.Encode(), kExtractEnd,
        [&](const platform::Frame& frame) {
          if (frame.type == kExtractText) seen.answer += frame.payload;
          return platform::FrameVerdict::kMore;
        },
        20'000, &failure);
    seen.signal = failure.signal;
    return seen;
  }

  Seen Try(const std::string& attack) {
    ExtractRequest request;
    request.path = "probe:" + attack;
    Seen seen = Ask(request);
    // What each attack met, for whoever reads the test log on a new kernel.
    printf("[%s] %-40s %s\n", GetParam() ? "landlock" : "seccomp only", attack.c_str(), seen.Said().c_str());
    return seen;
  }

  void ExpectHeld(const std::string& attack) {
    Seen seen = Try(attack);
    EXPECT_TRUE(seen.Held()) << attack << ": " << seen.Said();
  }

  platform::ProcessPool pool_;
};

TEST_P(SandboxAttack, NoTerminalNoSessionOfTheUserNoSecretsInTheEnvironment) {
  setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
  setenv("SSH_AUTH_SOCK", "/nonexistent/agent", 1);
  setenv("DISPLAY", ":99", 1);
  setenv("XDG_RUNTIME_DIR", "/nonexistent/runtime", 1);
  setenv("LANG", "C.UTF-8", 1);
  ExtractRequest request;
  request.op = kOpSandbox;
  Seen seen = Ask(request);
  ASSERT_EQ(seen.status, platform::ExchangeStatus::kOk);
  EXPECT_NE(seen.answer.find("terminal descriptors: none"), std::string::npos) << seen.answer;
  EXPECT_NE(seen.answer.find("session: its own"), std::string::npos) << seen.answer;
  EXPECT_NE(seen.answer.find("seccomp allow-list: in force"), std::string::npos) << seen.answer;
  EXPECT_NE(seen.answer.find("LANG"), std::string::npos) << seen.answer;
  for (const char* secret : {"DBUS_SESSION_BUS_ADDRESS", "SSH_AUTH_SOCK", "DISPLAY", "XDG_RUNTIME_DIR", "HOME", "PATH"})
    EXPECT_EQ(seen.answer.find(secret), std::string::npos) << secret << " reached the helper";
  if (GetParam() && platform::LandlockAbi() >= 6) {
    EXPECT_NE(seen.answer.find("landlock scope (no abstract unix sockets, no signals outside): in force"),
              std::string::npos) << seen.answer;
  }

  ExpectHeld("tiocsti");
  ExpectHeld("tty");
}

TEST_P(SandboxAttack, NoSocketReachesAnything) {
  testing::TempTree tree;
  // A listening unix socket (as the session bus or an agent would be) and a UDP and a TCP
  // port on this machine, all of the test's own.
  int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  sockaddr_un unix_address{};
  unix_address.sun_family = AF_UNIX;
  std::snprintf(unix_address.sun_path, sizeof unix_address.sun_path, "%s", tree.path("bus").c_str());
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&unix_address), sizeof unix_address), 0);
  ASSERT_EQ(listen(listener, 4), 0);
  int udp = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  int tcp = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof local;
  ASSERT_EQ(bind(udp, reinterpret_cast<sockaddr*>(&local), sizeof local), 0);
  ASSERT_EQ(bind(tcp, reinterpret_cast<sockaddr*>(&local), sizeof local), 0);
  ASSERT_EQ(listen(tcp, 4), 0);
  sockaddr_in bound{};
  getsockname(udp, reinterpret_cast<sockaddr*>(&bound), &size);
  const int udp_port = ntohs(bound.sin_port);
  size = sizeof bound;
  getsockname(tcp, reinterpret_cast<sockaddr*>(&bound), &size);
  const int tcp_port = ntohs(bound.sin_port);

  ExpectHeld("unix " + tree.path("bus"));
  ExpectHeld("socketpair");
  ExpectHeld("udp " + std::to_string(udp_port));
  ExpectHeld("tcp " + std::to_string(tcp_port));
  ExpectHeld("io_uring");

  char byte;
  EXPECT_LT(accept(listener, nullptr, nullptr), 0) << "the unix socket got a connection";
  EXPECT_LT(recv(udp, &byte, 1, 0), 0) << "the UDP port got a datagram";
  EXPECT_LT(accept(tcp, nullptr, nullptr), 0) << "the TCP port got a connection";
  for (int fd : {listener, udp, tcp}) close(fd);
}

TEST_P(SandboxAttack, NoOtherProcessIsSignalledTracedOrRobbed) {
  struct sigaction count{}, old_term{};
  count.sa_handler = CountSignal;
  sigaction(SIGTERM, &count, &old_term);
  g_signals = 0;
  pid_t sleeper = fork();
  if (sleeper == 0) {
    execl("/bin/sleep", "sleep", "60", static_cast<char*>(nullptr));
    _exit(127);
  }
  const std::string parent = std::to_string(getpid());
  for (const std::string& target : {parent, std::to_string(sleeper)}) {
    ExpectHeld("kill " + target);
    ExpectHeld("tgkill " + target);
    ExpectHeld("tkill " + target);
    ExpectHeld("setown " + target);
    ExpectHeld("pidfd " + target);
    ExpectHeld("process_vm_writev " + target);
#if !defined(TROVIX_SANITIZED)
    // A sanitized helper may trace (its leak checker does): that build is for tests only.
    ExpectHeld("ptrace " + target);
#endif
  }
  EXPECT_EQ(waitpid(sleeper, nullptr, WNOHANG), 0) << "the other process was ended";
  kill(sleeper, SIGKILL);
  waitpid(sleeper, nullptr, 0);
  EXPECT_EQ(g_signals, 0) << "the test process was signalled";
  sigaction(SIGTERM, &old_term, nullptr);
}

TEST_P(SandboxAttack, FilesKeepTheirContentsNameModeAttributesAndTimes) {
  testing::TempTree tree({"own.txt=mine"});
  const std::string own = tree.path("own.txt");
  const bool xattrs = setxattr(own.c_str(), "user.kept", "v", 1, 0) == 0;
  struct stat before;
  ASSERT_EQ(stat(own.c_str(), &before), 0);
  for (const char* attack : {"chmod", "fchmod", "chown", "setxattr", "removexattr", "utimensat", "append", "rename",
                             "unlink", "truncate"})
    ExpectHeld(std::string(attack) + " " + own);
  ExpectHeld("write " + tree.path("new.txt"));
  ExpectHeld("execve");

  struct stat after;
  ASSERT_EQ(stat(own.c_str(), &after), 0);
  EXPECT_EQ(after.st_mode, before.st_mode);
  EXPECT_EQ(after.st_size, before.st_size);
  EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
  EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
  EXPECT_EQ(after.st_atim.tv_sec, before.st_atim.tv_sec);
  EXPECT_LT(getxattr(own.c_str(), "user.probe", nullptr, 0), 0);
  if (xattrs) {
    EXPECT_EQ(getxattr(own.c_str(), "user.kept", nullptr, 0), 1);
  }
  EXPECT_FALSE(std::filesystem::exists(tree.path("new.txt")));
  EXPECT_FALSE(std::filesystem::exists(own + ".moved"));
}

TEST_P(SandboxAttack, NoNewProcessOrNamespace) {
  for (const char* attack : {"unshare", "setns", "fork", "rawfork", "vfork", "clone-newuser", "clone3", "setsid-child"})
    ExpectHeld(attack);
  // The helper still works after all of it (a fresh one where an attack ended the last).
  testing::TempTree tree({"a.txt=still reading"});
  ExtractRequest request;
  request.path = tree.path("a.txt");
  Seen seen = Ask(request);
  EXPECT_EQ(seen.status, platform::ExchangeStatus::kOk);
  EXPECT_EQ(seen.answer, "still reading");
}

INSTANTIATE_TEST_SUITE_P(Layers, SandboxAttack, ::testing::Values(true, false),
                         [](const ::testing::TestParamInfo<bool>& info) {
                           return info.param ? "WithLandlock" : "SeccompAlone";
                         });

}  // namespace
}  // namespace trovix::extract

namespace trovix::extract {
namespace {

// A taken-over helper that ignores its limits: the client checks every frame against the caps
// of its request (as the extraction service does) and kills the helper at the first frame
// beyond them, keeping no more than the caps allow.
struct Flooded {
  platform::ExchangeStatus status;
  uint64_t kept = 0;
  std::string why;
};

Flooded Flood(platform::ProcessPool& pool, ExtractOp op, const std::string& spec, uint64_t max_text = 1'000'000) {
  ExtractRequest request;
  request.op = op;
  request.path = "flood:" + spec;
  request.limits.max_text_bytes = max_text;
  request.limits.max_members = 1000;
  AnswerDecoder decoder(request);
  Flooded flooded;
  platform::ExchangeFailure failure;
  flooded.status = pool.Exchange(
      kExtractRequest, request.Encode(), kExtractEnd,
      [&](const platform::Frame& frame) {
        if (decoder.Take(frame) == AnswerDecoder::kBroken) return platform::FrameVerdict::kRefuse;
        flooded.kept += frame.payload.size();
        return platform::FrameVerdict::kMore;
      },
      20'000, &failure, {decoder.max_frame(), decoder.max_bytes()});
  flooded.why = decoder.broken().empty() ? failure.what : decoder.broken();
  return flooded;
}

TEST(AnswerCaps, AHelperThatSendsMoreThanItsRequestAllowsIsKilled) {
  platform::PoolOptions options;
  options.program = TROVIX_EXTRACT_TEST_PATH;
  options.args = {"--serve"};
  options.size = 1;
  options.memory_limit = 0;
  platform::ProcessPool pool(options);
  using platform::ExchangeStatus;

  // Within the caps, a flood is an answer like any other.
  EXPECT_EQ(Flood(pool, kOpText, "text 15 65536").status, ExchangeStatus::kOk);
  // Past the text the request allows: killed at the first piece beyond, nothing more kept.
  Flooded text = Flood(pool, kOpText, "text 100000 65536");
  EXPECT_EQ(text.status, ExchangeStatus::kRefused) << text.why;
  EXPECT_LE(text.kept, 1'000'000u);
  // A frame above its type's cap is refused before it is read; so are frames the request
  // does not answer, empty text pieces, and more members than it allows.
  EXPECT_EQ(Flood(pool, kOpText, "text 1 2000000", 100'000'000).status, ExchangeStatus::kRefused);
  EXPECT_EQ(Flood(pool, kOpText, "member 1 10").status, ExchangeStatus::kRefused);
  EXPECT_EQ(Flood(pool, kOpText, "99 1 10").status, ExchangeStatus::kRefused);
  EXPECT_EQ(Flood(pool, kOpText, "text 100000 0").status, ExchangeStatus::kRefused);
  EXPECT_EQ(Flood(pool, kOpList, "member 1000 10").status, ExchangeStatus::kOk);
  EXPECT_EQ(Flood(pool, kOpList, "member 1001 10").status, ExchangeStatus::kRefused);
  EXPECT_EQ(Flood(pool, kOpList, "member 1 70000").status, ExchangeStatus::kRefused);
  EXPECT_EQ(Flood(pool, kOpProps, "property 4096 10").status, ExchangeStatus::kOk);
  EXPECT_EQ(Flood(pool, kOpProps, "property 4097 10").status, ExchangeStatus::kRefused);
  EXPECT_EQ(Flood(pool, kOpProps, "property 20 1000000").status, ExchangeStatus::kRefused);
  // A request never asks for more text than a client takes.
  Flooded huge = Flood(pool, kOpText, "text 1100 65536", 1ull << 40);
  EXPECT_EQ(huge.status, ExchangeStatus::kRefused);
  EXPECT_LE(huge.kept, kMaxTextAnswer);
}

}  // namespace
}  // namespace trovix::extract
