#include "platform/stop_signals.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace trovix::platform {
namespace {

// What the handler may touch: plain flags and a descriptor, all set before it is installed.
volatile std::sig_atomic_t g_signalled = 0;
volatile std::sig_atomic_t g_second_ends = 0;
volatile int g_wake_fd = -1;

void OnStopSignal(int signal_number) {
  if (g_signalled && g_second_ends) {
    std::signal(signal_number, SIG_DFL);
    std::raise(signal_number);
    return;
  }
  g_signalled = 1;
  const int saved = errno;
  const char byte = 1;
  [[maybe_unused]] ssize_t n = write(g_wake_fd, &byte, 1);
  errno = saved;
}

void Install(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

}  // namespace

StopSignals::StopSignals(std::stop_source source, bool second_ends_program, Relay relay)
    : source_(std::move(source)) {
  g_signalled = 0;
  g_second_ends = second_ends_program ? 1 : 0;
  if (pipe2(pipe_, O_CLOEXEC) != 0) {
    pipe_[0] = pipe_[1] = -1;
    return;  // no relay: the signals keep their usual meaning
  }
  g_wake_fd = pipe_[1];
  if (relay == Relay::kCaller) {
    Install(OnStopSignal);
    return;
  }
  // The relay reads one byte per signal; a zero byte from the destructor ends it.
  relay_ = std::thread([this] {
    char byte = 0;
    for (;;) {
      const ssize_t n = read(pipe_[0], &byte, 1);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0 || byte == 0) return;
      source_.request_stop();
    }
  });
  Install(OnStopSignal);
}

StopSignals::~StopSignals() {
  if (pipe_[1] < 0) return;
  Install(SIG_DFL);
  if (relay_.joinable()) {
    const char end = 0;
    while (write(pipe_[1], &end, 1) < 0 && errno == EINTR) {
    }
    relay_.join();
  }
  g_wake_fd = -1;
  close(pipe_[0]);
  close(pipe_[1]);
}

bool StopSignals::Signalled() const { return g_signalled != 0; }

void StopSignals::RelayUntil(int done_fd) {
  if (relay_.joinable() || pipe_[0] < 0) return;
  pollfd fds[2] = {{pipe_[0], POLLIN, 0}, {done_fd, POLLIN, 0}};
  for (;;) {
    if (poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (fds[0].revents & POLLIN) {
      char byte = 0;
      if (read(pipe_[0], &byte, 1) == 1) source_.request_stop();
    }
    if (fds[1].revents != 0) return;
  }
}

}  // namespace trovix::platform
