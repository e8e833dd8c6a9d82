// The rendering protocol: what the desktop program asks of `trovix-render` (pictures,
// thumbnails, PDF pages) and what comes back, as frames (platform/frame_io.h) over the pipes of
// a helper of the process pool (platform/process_pool.h).
//
// Request (kRenderRequest): RenderRequest::Encode().
// Answer, in this order:
//   kRenderImage  at most one: RenderedImage::Encode(): width, height, the document's page
//                 count (1 for a picture) and width x height 32-bit pixels (0xAARRGGBB,
//                 premultiplied, in host order: both ends are the same machine);
//   kRenderEnd    exactly one, last: RenderEnd::Encode(): kRenderOk after a picture, otherwise
//                 why there is none.
//
// The picture always fits the box the request names, and the box is never above kMaxEdge on a
// side, so one frame holds it (kMaxEdge^2 x 4 bytes is under the pool's 16 MiB frame cap). The
// client checks both (RenderAnswer): a helper that sends a larger picture, pixels that do not
// add up to its size, or a frame of another type, is broken or taken over, and is killed.
//
// Header-only: the desktop program and the helper each use it, neither links the other.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/frame_io.h"
#include "platform/process_pool.h"

namespace trovix::render {

inline constexpr uint32_t kRenderRequest = 32;
inline constexpr uint32_t kRenderImage = 33;
inline constexpr uint32_t kRenderEnd = 34;

// The largest edge of any answer: a quick view on a 4K screen at 200% wants about this much,
// and 2000 x 2000 x 4 bytes still fits one frame.
inline constexpr uint32_t kMaxEdge = 2000;
inline constexpr uint32_t kMaxImageFrame = 16 + kMaxEdge * kMaxEdge * 4;
inline constexpr size_t kMaxEndMessage = 1024;

enum RenderOp : uint8_t {
  kOpThumbnail = 1,  // a picture file scaled into the box, centred on a transparent square
  kOpPicture = 2,    // a picture file scaled into the box (never enlarged)
  kOpPdfPage = 3,    // one page of a PDF scaled into the box
  kOpSandbox = 4,    // what holds in the helper's sandbox, as the end's message
};

struct RenderRequest {
  RenderOp op = kOpPicture;
  std::string path;                  // the file in the file system (raw bytes)
  std::vector<std::string> members;  // member path inside `path`, then inside that member ...
  uint32_t width = 256;              // the box; clamped to 1..kMaxEdge
  uint32_t height = 256;
  uint32_t page = 0;                     // kOpPdfPage: 0-based
  uint64_t max_member_bytes = 3'145'728;  // nMaxStreamExtractSize: members read at most this

  std::string Encode() const {
    platform::FrameWriter w;
    w.U8(op).Bytes(path).U32(static_cast<uint32_t>(members.size()));
    for (const std::string& m : members) w.Bytes(m);
    w.U32(Clamp(width)).U32(Clamp(height)).U32(page).U64(max_member_bytes);
    return w.Take();
  }
  bool Decode(const std::string& payload) {
    platform::FrameReader r(payload);
    const uint8_t o = r.U8();
    if (o < kOpThumbnail || o > kOpSandbox) return false;
    op = static_cast<RenderOp>(o);
    path = r.Bytes();
    const uint32_t n = r.U32();
    if (r.failed() || n > 16) return false;
    members.clear();
    for (uint32_t i = 0; i < n; ++i) members.push_back(r.Bytes());
    width = r.U32();
    height = r.U32();
    page = r.U32();
    max_member_bytes = r.U64();
    return !r.failed() && r.at_end() && width >= 1 && width <= kMaxEdge && height >= 1 && height <= kMaxEdge;
  }
  static uint32_t Clamp(uint32_t edge) { return std::clamp<uint32_t>(edge, 1, kMaxEdge); }
};

struct RenderedImage {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t pages = 1;
  std::string pixels;  // width * height * 4 bytes

  std::string Encode() const {
    platform::FrameWriter w;
    w.U32(width).U32(height).U32(pages).Bytes(pixels);
    return w.Take();
  }
  bool Decode(const std::string& payload) {
    platform::FrameReader r(payload);
    width = r.U32();
    height = r.U32();
    pages = r.U32();
    pixels = r.Bytes();
    return !r.failed() && r.at_end() && width >= 1 && height >= 1 && width <= kMaxEdge && height <= kMaxEdge &&
           pixels.size() == static_cast<size_t>(width) * height * 4;
  }
};

enum RenderCode : uint32_t {
  kRenderOk = 0,          // the picture was sent (kOpSandbox: the message holds the report)
  kRenderNoPicture = 1,   // the file is no picture (or no PDF) these decoders read
  kRenderUnreadable = 2,  // cannot be opened, not a regular file, damaged beyond reading
  kRenderTooLarge = 3,    // the file or member is above what may be read
  kRenderEncrypted = 4,   // a locked PDF
  kRenderBadRequest = 5,  // the request did not decode
};

struct RenderEnd {
  RenderCode code = kRenderNoPicture;
  std::string message;

  std::string Encode() const {
    platform::FrameWriter w;
    w.U32(code).Bytes(message.substr(0, kMaxEndMessage));
    return w.Take();
  }
  bool Decode(const std::string& payload) {
    platform::FrameReader r(payload);
    code = static_cast<RenderCode>(r.U32());
    message = r.Bytes();
    return !r.failed() && r.at_end() && code <= kRenderBadRequest && message.size() <= kMaxEndMessage;
  }
};

// The client's side of one answer: every frame goes through Take, which checks it against the
// request and decodes it. kBroken means the helper is broken or taken over: the client kills it.
class RenderAnswer {
 public:
  enum Result { kMore, kEnd, kBroken };

  explicit RenderAnswer(const RenderRequest& request)
      : op_(request.op), width_(RenderRequest::Clamp(request.width)), height_(RenderRequest::Clamp(request.height)) {}

  Result Take(const platform::Frame& frame) {
    if (ended_ || broken_) return Broken();
    if (frame.type == kRenderImage) {
      if (op_ == kOpSandbox || has_image_ || !image_.Decode(frame.payload) || image_.width > width_ ||
          image_.height > height_)
        return Broken();
      has_image_ = true;
      return kMore;
    }
    if (frame.type != kRenderEnd || !end_.Decode(frame.payload)) return Broken();
    // A picture comes with kRenderOk and only with it.
    if ((end_.code == kRenderOk) != (has_image_ || op_ == kOpSandbox)) return Broken();
    ended_ = true;
    return kEnd;
  }

  bool has_image() const { return has_image_ && ended_; }
  RenderedImage& image() { return image_; }
  const RenderEnd& end() const { return end_; }
  bool broken() const { return broken_; }

 private:
  Result Broken() {
    broken_ = true;
    has_image_ = false;
    end_ = {kRenderUnreadable, "the renderer's answer was refused"};
    return kBroken;
  }

  RenderOp op_;
  uint32_t width_;
  uint32_t height_;
  RenderedImage image_;
  RenderEnd end_;
  bool has_image_ = false;
  bool ended_ = false;
  bool broken_ = false;
};

// One request to a renderer of `pool`, its answer checked frame by frame into *answer; a
// helper that answers beyond the request is killed (kRefused).
inline platform::ExchangeStatus AskRenderer(platform::ProcessPool& pool, const RenderRequest& request,
                                            RenderAnswer* answer, int64_t timeout_ms,
                                            platform::ExchangeFailure* failure = nullptr) {
  return pool.Exchange(
      kRenderRequest, request.Encode(), kRenderEnd,
      [answer](const platform::Frame& frame) {
        return answer->Take(frame) == RenderAnswer::kBroken ? platform::FrameVerdict::kRefuse
                                                            : platform::FrameVerdict::kMore;
      },
      timeout_ms, failure, {kMaxImageFrame, uint64_t{kMaxImageFrame} + 4096});
}

}  // namespace trovix::render
