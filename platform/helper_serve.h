// The serve loop of the helper programs of the process pool (trovix-extract, trovix-render,
// trovix-plugin-host): each is started by the pool with `--serve`, keeps standard output for
// answer frames alone, enters its sandbox before the first request, and then reads a frame,
// dispatches it and answers, until the pool closes its pipe. The programs differ only in what
// they do before the sandbox and in how they answer a request; the loop is here once.
//
// And the `--sandbox` report of each program: what holds in a helper is told by one started
// as the pool starts them, in a pool of one helper (OneHelperPool).
//
// Runs on the helper's main thread; the loop owns the process until it returns.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/frame_io.h"
#include "platform/process_pool.h"
#include "platform/sandbox.h"

namespace trovix::platform {

// What an answer leaves the helper to do.
enum class ServeStep {
  kNext,    // read the next request
  kDone,    // end the helper (exit code 0): the client is gone
  kBroken,  // end the helper (exit code 1): an answer could not be written
};

// kNext when an answer was written, kBroken when it could not be.
inline ServeStep StepOf(bool written) { return written ? ServeStep::kNext : ServeStep::kBroken; }

// Answers one request frame (never a cancel frame: those that come after their request ended
// are dropped by the loop) on the answer descriptor `out`.
using ServeDispatch = std::function<ServeStep(int out, const Frame& frame)>;

struct ServeLoop {
  const char* program = "";  // the program's name, for its lines on standard error
  SandboxOptions sandbox;
  // Runs before the sandbox, with standard output already pointed at standard error:
  // whatever needs more of the system than the sandbox gives (plug-ins loaded, fonts, the
  // locale).
  std::function<void()> before_sandbox;
  // Runs once the sandbox holds (a thread started here is under it too) and returns the
  // dispatch; `report` says what holds, for the request that asks.
  std::function<ServeDispatch(const SandboxReport& report)> start;
};

// The loop: 0 when the pool closed the pipe, 1 on a broken pipe or a bad frame.
int ServeFrames(const ServeLoop& loop);

// A pool of one helper: the running program started with `args`, as the pool starts helpers.
// nullptr when the running program cannot be found.
std::unique_ptr<ProcessPool> OneHelperPool(std::vector<std::string> args);

}  // namespace trovix::platform
