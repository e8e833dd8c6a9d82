#include "platform/helper_serve.h"

#include <unistd.h>

#include <cstdio>

namespace trovix::platform {

int ServeFrames(const ServeLoop& loop) {
  // Nothing but frames may reach the pool: the answers get a descriptor of their own, and
  // descriptor 1 (where a library that prints writes) becomes standard error.
  const int out = dup(1);
  if (out < 0 || dup2(2, 1) < 0) return 1;
  if (loop.before_sandbox) loop.before_sandbox();
  // The sandbox comes before the first request. A missing layer is said once on standard
  // error (the pool passes each distinct line on once); the layers granted still hold.
  const SandboxReport report = EnterSandbox(loop.sandbox);
  if (std::string missing = report.Missing(); !missing.empty())
    fprintf(stderr, "%s: %s\n", loop.program, missing.c_str());
  const ServeDispatch dispatch = loop.start(report);
  for (;;) {
    Frame frame;
    const FrameStatus status = ReadFrame(0, &frame, -1);
    if (status == FrameStatus::kClosed) return 0;
    if (status != FrameStatus::kOk) return 1;
    if (frame.type == kFrameCancel) continue;  // came after its request ended
    switch (dispatch(out, frame)) {
      case ServeStep::kNext:
        break;
      case ServeStep::kDone:
        return 0;
      case ServeStep::kBroken:
        return 1;
    }
  }
}

std::unique_ptr<ProcessPool> OneHelperPool(std::vector<std::string> args) {
  PoolOptions options;
  options.program = ThisProgram();
  if (options.program.empty()) return nullptr;
  options.args = std::move(args);
  options.size = 1;
  return std::make_unique<ProcessPool>(std::move(options));
}

}  // namespace trovix::platform
