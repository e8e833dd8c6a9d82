// A helper program for the process pool's tests. Each request (frame type 16) is a command:
//   "echo N TEXT"   answers N frames of TEXT (type 17), then the end frame (type 19)
//   "stream"        answers frames until it sees a cancel, then the end frame
//   "crash"         dies of SIGKILL;   "exit"  exits with code 3;   "hang"  never answers
//   "garbage"       writes bytes that are not a frame
//   "fds"           answers with the number of open descriptors
//   "sandbox"       enters the sandbox; answers with its description
//   "try-write P"   answers "ok" or the error of opening P for writing
//   "try-read P"    answers "ok" or the error of opening P for reading
//   "try-socket"    answers "ok" or the error of making an internet socket
//   "try-exec"      answers "ok" or the error of running /bin/true
//   "env"           answers its environment, one entry a line
//   "session"       answers "own" when it leads a session of its own, and which of 0-2 are ttys
//   "stderr N TEXT" writes TEXT N times to standard error, each on a line
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/frame_io.h"
#include "platform/sandbox.h"

namespace platform = trovix::platform;

namespace {

constexpr uint32_t kAnswer = 17;
constexpr uint32_t kEnd = 19;

std::string Errno(int r) { return r >= 0 ? "ok" : std::strerror(errno); }

std::string OpenFor(const std::string& path, int flags) {
  int fd = ::open(path.c_str(), flags | O_CLOEXEC, 0600);
  std::string answer = Errno(fd);
  if (fd >= 0) ::close(fd);
  return answer;
}

int CountFds() {
  int count = 0;
  DIR* dir = opendir("/proc/self/fd");
  while (dirent* e = readdir(dir)) count += e->d_name[0] != '.';
  closedir(dir);
  return count - 1;  // the listing's own descriptor
}

std::string Answer(const std::string& command) {
  auto arg = [&command](size_t skip) { return command.substr(skip); };
  if (command == "sandbox") return platform::EnterSandbox().Describe();
  if (command.rfind("try-write ", 0) == 0) return OpenFor(arg(10), O_WRONLY | O_CREAT);
  if (command.rfind("try-read ", 0) == 0) return OpenFor(arg(9), O_RDONLY);
  if (command == "try-socket") {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    std::string answer = Errno(fd);
    if (fd >= 0) ::close(fd);
    return answer;
  }
  if (command == "try-exec") {
    char* argv[] = {const_cast<char*>("/bin/true"), nullptr};
    ::execv(argv[0], argv);
    return std::strerror(errno);
  }
  if (command == "fds") return std::to_string(CountFds());
  if (command == "env") {
    std::string env;
    for (char** e = environ; *e; ++e) env += std::string(*e) + "\n";
    return env;
  }
  if (command == "session") {
    std::string answer = getsid(0) == getpid() ? "own" : "shared";
    for (int fd = 0; fd < 3; ++fd)
      if (isatty(fd)) answer += " tty" + std::to_string(fd);
    return answer;
  }
  if (command.rfind("stderr ", 0) == 0) {
    char* rest = nullptr;
    long n = std::strtol(command.c_str() + 7, &rest, 10);
    const std::string line = std::string(rest + (*rest ? 1 : 0)) + "\n";
    for (long i = 0; i < n; ++i) (void)!write(2, line.data(), line.size());
    return "written";
  }
  return "unknown";
}

}  // namespace

int main() {
  signal(SIGPIPE, SIG_IGN);
  for (;;) {
    platform::Frame frame;
    platform::FrameStatus status = platform::ReadFrame(0, &frame, -1);
    if (status != platform::FrameStatus::kOk) return 0;
    if (frame.type != 16) continue;  // a late cancel
    const std::string& command = frame.payload;
    if (command == "crash") raise(SIGKILL);  // a sanitizer would catch SIGSEGV and exit
    if (command == "exit") return 3;
    if (command == "hang")
      for (;;) pause();
    if (command == "garbage") {
      (void)!write(1, "\x11\x00\x00\x00\xff\xff\xff\xff", 8);
      continue;
    }
    if (command.rfind("echo ", 0) == 0) {
      char* rest = nullptr;
      long n = std::strtol(command.c_str() + 5, &rest, 10);
      for (long i = 0; i < n; ++i) platform::WriteFrame(1, kAnswer, rest + (*rest ? 1 : 0));
    } else if (command == "stream") {
      while (!platform::InputPending(0)) platform::WriteFrame(1, kAnswer, "more");
      platform::Frame cancel;
      platform::ReadFrame(0, &cancel, -1);
    } else {
      platform::WriteFrame(1, kAnswer, Answer(command));
    }
    platform::WriteFrame(1, kEnd, "");
  }
}
