// RenderService: the desktop program's side of the renderer (render/render_protocol.h). Every
// picture the program shows of a file (thumbnails, the quick view's pictures and PDF pages)
// is decoded by `trovix-render` in a pool of sandboxed helpers (platform/process_pool.h) and
// comes back as bounded pixels; nothing of the file is decoded in this process. A file that
// hangs or crashes the renderer costs only its picture: the helper is killed at the deadline
// (or found dead), replaced, and the request answers "no picture".
//
// The renderer is found as TROVIX_RENDER (a path) when set, else as "trovix-render" beside
// the running program.
//
// Thread-safety: Render may be called from any thread; it blocks until the answer or the
// deadline, so the UI thread calls it only through a BackgroundQueue.
#pragma once

#include <QImage>

#include <cstdint>
#include <memory>
#include <string>

#include "platform/process_pool.h"
#include "render/render_protocol.h"

namespace trovix::views {

struct RenderOutcome {
  QImage image;  // null when there is no picture
  int pages = 0;
  render::RenderCode code = render::kRenderNoPicture;
  std::string message;
  bool helper_failed = false;  // the renderer crashed, hung or answered beyond its request
};

struct RenderServiceOptions {
  std::string program;  // empty: found as described above
  int helpers = 2;      // one for the list's thumbnails, one for the quick view
  int64_t timeout_ms = 5000;
};

class RenderService {
 public:
  explicit RenderService(RenderServiceOptions options = {});
  // The process's service, made on first use; never destroyed, since a job may still be
  // waiting for it on a detached thread while the program ends (its helpers die with it).
  static std::shared_ptr<RenderService> Shared();
  static std::string DefaultProgram();

  RenderOutcome Render(const render::RenderRequest& request);
  uint64_t helper_starts() const { return pool_.starts(); }
  std::string helper_log() const { return pool_.helper_log(); }

 private:
  RenderServiceOptions options_;
  platform::ProcessPool pool_;
};

}  // namespace trovix::views
