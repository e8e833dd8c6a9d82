#include "platform/stop_signals.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <thread>

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

StopSignals::StopSignals(std::stop_source source, bool second_ends_program) {
  g_signalled = 0;
  g_second_ends = second_ends_program ? 1 : 0;
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return;  // no relay: the signals keep their usual meaning
  write_fd_ = fds[1];
  g_wake_fd = write_fd_;
  // The relay reads one byte per signal, and ends when the write end is closed. It owns its
  // end of the pipe and its copy of the stop source: nothing of this object.
  std::thread([read_fd = fds[0], source = std::move(source)]() mutable {
    char byte = 0;
    for (;;) {
      const ssize_t n = read(read_fd, &byte, 1);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      source.request_stop();
    }
    close(read_fd);
  }).detach();
  Install(OnStopSignal);
}

StopSignals::~StopSignals() {
  if (write_fd_ < 0) return;
  Install(SIG_DFL);
  g_wake_fd = -1;
  close(write_fd_);
}

bool StopSignals::Signalled() const { return g_signalled != 0; }

}  // namespace trovix::platform
