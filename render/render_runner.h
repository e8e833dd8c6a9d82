// The renderer's work for one request (render/render_protocol.h): read the file (or the archive
// member the request names, within nMaxStreamExtractSize), decode it with Qt's image readers or
// poppler, and scale it into the request's box. Runs only inside `trovix-render`, in its
// sandbox; nothing here is linked into the desktop program.
//
// Nothing escapes: an exception of any library ends the request with kRenderUnreadable.
//
// Thread-safety: one call at a time (Qt's image readers and poppler's global state).
#pragma once

#include <string>

#include "render/render_protocol.h"

namespace trovix::render {

struct RenderResult {
  RenderEnd end;
  RenderedImage image;  // filled when end.code is kRenderOk
};

// The most a file of the file system may hold to be rendered; members are held to the
// request's max_member_bytes.
inline constexpr size_t kMaxInputBytes = 128u << 20;

RenderResult RunRender(const RenderRequest& request);

// Decoding a picture or a PDF page from bytes already read (the tests call these directly).
RenderResult RenderPicture(const std::string& bytes, const RenderRequest& request);
RenderResult RenderPdfPage(const std::string& bytes, const RenderRequest& request);

// Loads every image plug-in and poppler's fonts, so that no library has to open its own files
// for the first time once the sandbox has closed around the process. Called before the sandbox.
void WarmUp();

}  // namespace trovix::render
