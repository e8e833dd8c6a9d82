#include "views/preview/render_service.h"

#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>

namespace trovix::views {
namespace {

platform::PoolOptions PoolOptionsOf(const RenderServiceOptions& options) {
  platform::PoolOptions pool;
  pool.program = options.program.empty() ? RenderService::DefaultProgram() : options.program;
  pool.args = {"--serve"};
  pool.size = options.helpers;
  return pool;
}

}  // namespace

RenderService::RenderService(RenderServiceOptions options)
    : options_(std::move(options)), pool_(PoolOptionsOf(options_)) {}

std::shared_ptr<RenderService> RenderService::Shared() {
  static auto* service = new std::shared_ptr<RenderService>(std::make_shared<RenderService>());
  return *service;
}

std::string RenderService::DefaultProgram() {
  return platform::HelperBesideThisProgram("TROVIX_RENDER", "trovix-render");
}

RenderOutcome RenderService::Render(const render::RenderRequest& request) {
  RenderOutcome outcome;
  render::RenderAnswer answer(request);
  platform::ExchangeFailure failure;
  const platform::ExchangeStatus status = render::AskRenderer(pool_, request, &answer, options_.timeout_ms, &failure);
  if (status != platform::ExchangeStatus::kOk || answer.broken()) {
    outcome.code = render::kRenderUnreadable;
    outcome.helper_failed = status != platform::ExchangeStatus::kUnavailable;
    outcome.message = status == platform::ExchangeStatus::kTimedOut ? "the renderer took too long and was stopped"
                      : status == platform::ExchangeStatus::kUnavailable
                          ? "the renderer could not be started (" + failure.what + ")"
                          : "the renderer failed (" + failure.what + ")";
    return outcome;
  }
  outcome.code = answer.end().code;
  outcome.message = answer.end().message;
  if (!answer.has_image()) return outcome;
  render::RenderedImage& image = answer.image();
  QImage made(static_cast<int>(image.width), static_cast<int>(image.height), QImage::Format_ARGB32_Premultiplied);
  if (made.isNull()) return outcome;
  const size_t row = static_cast<size_t>(image.width) * 4;
  for (int y = 0; y < made.height(); ++y)
    std::memcpy(made.scanLine(y), image.pixels.data() + row * static_cast<size_t>(y), row);
  outcome.image = std::move(made);
  outcome.pages = static_cast<int>(image.pages);
  return outcome;
}

}  // namespace trovix::views
