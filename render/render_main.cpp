// trovix-render: the helper process that turns untrusted files into pictures for the desktop
// program (thumbnails in the results list, pictures and PDF pages in the quick view).
//
//   trovix-render --serve      the pool's mode: request frames on standard input, answer
//                              frames on standard output (render/render_protocol.h)
//   trovix-render --sandbox    what holds in a renderer's sandbox, layer by layer
//
// It links Qt Gui's image readers and poppler, and nothing of the desktop program. It starts
// no GUI application (no display, no platform plug-in, no fonts of Qt's own): Qt's image
// readers and QImage work without one. Every plug-in and poppler's font configuration are
// loaded before the sandbox (render_runner.h WarmUp); then it enters the same sandbox as the
// document reader (platform/sandbox.h: read-only file system, the same seccomp allow-list) and
// only then reads a request. A file that hangs or crashes it costs only its picture: the pool
// kills it at the deadline and starts another.
//
// As in trovix-extract, nothing but frames may reach standard output: descriptor 1 is pointed
// at standard error before any library runs.
#include <limits.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/frame_io.h"
#include "platform/helper_serve.h"
#include "platform/process_pool.h"
#include "platform/sandbox.h"
#include "render/render_protocol.h"
#include "render/render_runner.h"

namespace {

namespace platform = trovix::platform;
namespace render = trovix::render;

bool SendEnd(int out, render::RenderCode code, const std::string& message) {
  return platform::WriteFrame(out, render::kRenderEnd, render::RenderEnd{code, message}.Encode()) ==
         platform::FrameStatus::kOk;
}

#if defined(TROVIX_RENDER_TESTING)
// The test build only: a decoder that crashes or hangs on one file, for the tests that prove
// such a file costs only its picture. A path holding "poison-crash" dies of SIGSEGV, one
// holding "poison-hang" sleeps for ever, one holding "poison-flood" answers a picture larger
// than its box, as a taken-over renderer might.
bool InjectFault(int out, const render::RenderRequest& request) {
  if (request.path.find("poison-crash") != std::string::npos) raise(SIGSEGV);
  if (request.path.find("poison-hang") != std::string::npos)
    for (;;) pause();
  if (request.path.find("poison-flood") != std::string::npos) {
    render::RenderedImage image;
    image.width = request.width + 1;
    image.height = 1;
    image.pixels.assign(static_cast<size_t>(image.width) * 4, '\xff');
    platform::WriteFrame(out, render::kRenderImage, image.Encode());
    SendEnd(out, render::kRenderOk, "");
    return true;
  }
  return false;
}
#endif

platform::ServeStep Dispatch(int out, const platform::Frame& frame, const std::string& layers) {
  render::RenderRequest request;
  if (frame.type != render::kRenderRequest || !request.Decode(frame.payload))
    return platform::StepOf(SendEnd(out, render::kRenderBadRequest, "bad request"));
  if (request.op == render::kOpSandbox)
    return platform::StepOf(SendEnd(out, render::kRenderOk, layers));
#if defined(TROVIX_RENDER_TESTING)
  if (InjectFault(out, request)) return platform::ServeStep::kNext;
#endif
  render::RenderResult result = render::RunRender(request);
  if (result.end.code == render::kRenderOk &&
      platform::WriteFrame(out, render::kRenderImage, result.image.Encode()) !=
          platform::FrameStatus::kOk)
    return platform::ServeStep::kBroken;
  return platform::StepOf(SendEnd(out, result.end.code, result.end.message));
}

int Serve() {
  platform::ServeLoop loop;
  loop.program = "trovix-render";
  loop.sandbox = {.landlock = true, .event_counters = true};
  loop.before_sandbox = render::WarmUp;
  loop.start = [](const platform::SandboxReport& report) -> platform::ServeDispatch {
    return [layers = report.Layers()](int out, const platform::Frame& frame) {
      return Dispatch(out, frame, layers);
    };
  };
  return platform::ServeFrames(loop);
}

// What holds in a renderer, told by one started as the desktop program starts them.
int ReportSandbox() {
  std::unique_ptr<platform::ProcessPool> pool = platform::OneHelperPool({"--serve"});
  if (!pool) return 2;
  render::RenderRequest request;
  request.op = render::kOpSandbox;
  render::RenderAnswer answer(request);
  platform::ExchangeFailure failure;
  const platform::ExchangeStatus status =
      render::AskRenderer(*pool, request, &answer, 30'000, &failure);
  if (status != platform::ExchangeStatus::kOk || answer.end().code != render::kRenderOk) {
    fprintf(stderr, "trovix-render: the renderer failed (%s)\n", failure.what.c_str());
    return 2;
  }
  fputs(answer.end().message.c_str(), stdout);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  // Qt's worker threads (large pictures are scaled on several) get Qt's own small event
  // dispatcher rather than GLib's, which would want more of the system than the sandbox gives.
  setenv("QT_NO_GLIB", "1", 1);
  // A client that goes away must end a write with an error, not kill the renderer mid-answer.
  signal(SIGPIPE, SIG_IGN);
  if (argc == 2 && strcmp(argv[1], "--serve") == 0) return Serve();
  if (argc == 2 && strcmp(argv[1], "--sandbox") == 0) return ReportSandbox();
  fprintf(stderr, "usage: trovix-render --serve\n       trovix-render --sandbox\n");
  return 2;
}
