#include "render/render_runner.h"

#include <poppler/cpp/poppler-document.h>
#include <poppler/cpp/poppler-global.h>
#include <poppler/cpp/poppler-image.h>
#include <poppler/cpp/poppler-page-renderer.h>
#include <poppler/cpp/poppler-page.h>

#include <QBuffer>
#include <QByteArray>
#include <QImage>
#include <QImageReader>

#include <algorithm>
#include <climits>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <exception>
#include <memory>

#include "extract/archive/archive_reader.h"
#include "extract/document_input.h"
#include "extract/outcome.h"
#include "extract/text_sink.h"
#include "platform/regular_file.h"

namespace trovix::render {
namespace {

// Image readers that draw with fonts or scripts need a whole GUI application, which the
// renderer does not start: a file that claims to be one of these gets no picture.
bool RefusedFormat(const QByteArray& format) { return format == "svg" || format == "svgz"; }

RenderResult Fail(RenderCode code, std::string message) { return {{code, std::move(message)}, {}}; }

// Copies a 32-bit premultiplied image into the answer, row by row (a QImage's rows may be
// padded; the protocol's are not).
RenderResult Answer(const QImage& image, uint32_t pages) {
  RenderResult result;
  result.end = {kRenderOk, ""};
  result.image.width = static_cast<uint32_t>(image.width());
  result.image.height = static_cast<uint32_t>(image.height());
  result.image.pages = pages;
  const size_t row = static_cast<size_t>(image.width()) * 4;
  result.image.pixels.resize(row * static_cast<size_t>(image.height()));
  for (int y = 0; y < image.height(); ++y)
    std::memcpy(result.image.pixels.data() + row * static_cast<size_t>(y), image.constScanLine(y), row);
  return result;
}

// The picture in the middle of a transparent square of the box's smaller edge, so the names
// under thumbnails line up. Drawn by hand: QPainter would want a GUI application for nothing.
QImage Squared(const QImage& image, int edge) {
  QImage square(edge, edge, QImage::Format_ARGB32_Premultiplied);
  square.fill(0);
  const int x0 = (edge - image.width()) / 2, y0 = (edge - image.height()) / 2;
  for (int y = 0; y < image.height(); ++y)
    std::memcpy(square.scanLine(y0 + y) + static_cast<size_t>(x0) * 4, image.constScanLine(y),
                static_cast<size_t>(image.width()) * 4);
  return square;
}

void IgnorePopplerMessage(const std::string&, void*) {}

RenderResult ReadInput(const RenderRequest& request, std::string* bytes) {
  // A FIFO, socket or device is refused before a byte is read: a pipe named x.png cannot hang
  // the renderer, and /dev/zero cannot feed it for ever.
  const int error = platform::ReadRegularFile(request.path, bytes, kMaxInputBytes);
  if (error == EFBIG) return Fail(kRenderTooLarge, "the file is too large to show");
  if (error != 0) return Fail(kRenderUnreadable, platform::DescribeReadError(error, kMaxInputBytes));
  if (request.members.empty()) return {{kRenderOk, ""}, {}};
  if (request.max_member_bytes == 0) return Fail(kRenderTooLarge, "members of archives are not read");
  extract::ExtractLimits limits;
  limits.max_member_bytes = request.max_member_bytes;
  extract::ExpandBudget budget(limits.max_expanded_bytes);
  std::string blocks[2];
  blocks[0] = std::move(*bytes);
  int current = 0;
  for (const std::string& member : request.members) {
    extract::DocumentInput input = extract::DocumentInput::Memory(&blocks[current], member);
    blocks[current ^ 1].clear();
    extract::Outcome o = extract::ReadMember(input, member, limits, &budget, &blocks[current ^ 1]);
    if (!o.ok())
      return Fail(o.code == extract::kEndTooLarge ? kRenderTooLarge : kRenderUnreadable, o.message);
    blocks[current].clear();
    blocks[current].shrink_to_fit();
    current ^= 1;
  }
  *bytes = std::move(blocks[current]);
  return {{kRenderOk, ""}, {}};
}

}  // namespace

RenderResult RenderPicture(const std::string& bytes, const RenderRequest& request) {
  QByteArray data = QByteArray::fromRawData(bytes.data(), static_cast<qsizetype>(bytes.size()));
  QBuffer buffer(&data);
  if (!buffer.open(QIODevice::ReadOnly)) return Fail(kRenderUnreadable, "cannot read");
  // The format is found from the bytes alone: the name of a file says nothing a decoder may
  // trust.
  QImageReader reader(&buffer);
  reader.setAutoTransform(true);
  if (!reader.canRead() || RefusedFormat(reader.format())) return Fail(kRenderNoPicture, "not a picture");
  const QSize full = reader.size();
  const int box_w = static_cast<int>(RenderRequest::Clamp(request.width));
  const int box_h = static_cast<int>(RenderRequest::Clamp(request.height));
  QSize target = full;
  if (full.isValid() && !full.isEmpty()) {
    // Never enlarged: a small icon stays small in a large pane.
    if (full.width() > box_w || full.height() > box_h) target = full.scaled(box_w, box_h, Qt::KeepAspectRatio);
    target = target.expandedTo(QSize(1, 1));
    reader.setScaledSize(target);
  }
  QImage image = reader.read();
  if (image.isNull()) return Fail(kRenderNoPicture, reader.errorString().toStdString());
  // Readers that cannot scale while decoding (or did not know the size) are scaled here.
  if (image.width() > box_w || image.height() > box_h)
    image = image.scaled(box_w, box_h, Qt::KeepAspectRatio, Qt::SmoothTransformation);
  image = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
  if (image.isNull()) return Fail(kRenderNoPicture, "not a picture");
  if (request.op == kOpThumbnail) image = Squared(image, std::min(box_w, box_h));
  return Answer(image, 1);
}

RenderResult RenderPdfPage(const std::string& bytes, const RenderRequest& request) {
  if (bytes.size() > static_cast<size_t>(INT_MAX)) return Fail(kRenderTooLarge, "the file is too large to show");
  poppler::set_debug_error_function(IgnorePopplerMessage, nullptr);
  std::unique_ptr<poppler::document> doc(
      poppler::document::load_from_raw_data(bytes.data(), static_cast<int>(bytes.size())));
  if (!doc) return Fail(kRenderNoPicture, "not a PDF that can be read");
  // Asking a locked document for its pages crashes poppler: the lock is tested first.
  if (doc->is_locked()) return Fail(kRenderEncrypted, "encrypted");
  const int pages = doc->pages();
  if (pages <= 0) return Fail(kRenderNoPicture, "the document has no pages");
  const int index = static_cast<int>(std::min<uint32_t>(request.page, static_cast<uint32_t>(pages - 1)));
  std::unique_ptr<poppler::page> page(doc->create_page(index));
  if (!page) return Fail(kRenderUnreadable, "the page cannot be read");
  const poppler::rectf rect = page->page_rect(poppler::media_box);
  const double box_w = RenderRequest::Clamp(request.width), box_h = RenderRequest::Clamp(request.height);
  if (!(rect.width() > 0.5 && rect.height() > 0.5)) return Fail(kRenderUnreadable, "the page has no size");
  // Points are 1/72 inch: the resolution that makes the page fill the box.
  const double dpi = 72.0 * std::min(box_w / rect.width(), box_h / rect.height());
  poppler::page_renderer renderer;
  renderer.set_render_hint(poppler::page_renderer::antialiasing, true);
  renderer.set_render_hint(poppler::page_renderer::text_antialiasing, true);
  renderer.set_image_format(poppler::image::format_argb32);
  poppler::image drawn = renderer.render_page(page.get(), dpi, dpi);
  if (!drawn.is_valid() || drawn.width() <= 0 || drawn.height() <= 0)
    return Fail(kRenderUnreadable, "the page cannot be drawn");
  // Rounding may give the page a pixel more than the box: that pixel is cut.
  const int w = std::min(drawn.width(), static_cast<int>(box_w));
  const int h = std::min(drawn.height(), static_cast<int>(box_h));
  QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
  for (int y = 0; y < h; ++y)
    std::memcpy(image.scanLine(y), drawn.const_data() + static_cast<size_t>(y) * drawn.bytes_per_row(),
                static_cast<size_t>(w) * 4);
  return Answer(image, static_cast<uint32_t>(pages));
}

RenderResult RunRender(const RenderRequest& request) {
  try {
    std::string bytes;
    RenderResult read = ReadInput(request, &bytes);
    if (read.end.code != kRenderOk) return read;
    if (request.op == kOpPdfPage) return RenderPdfPage(bytes, request);
    return RenderPicture(bytes, request);
  } catch (const std::exception& e) {
    return Fail(kRenderUnreadable, std::string("cannot read: ") + e.what());
  } catch (...) {
    return Fail(kRenderUnreadable, "cannot read");
  }
}

void WarmUp() {
  // Every image plug-in is loaded now, while it may still open its library.
  for (const QByteArray& format : QImageReader::supportedImageFormats()) {
    if (RefusedFormat(format)) continue;
    QByteArray empty;
    QBuffer buffer(&empty);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer, format);
    (void)reader.canRead();
  }
  // One page with a font the document does not carry: poppler reads the font configuration
  // and finds a substitute, which is what every later document needs too.
  static const char kPage[] =
      "%PDF-1.4\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj\n"
      "2 0 obj<</Type/Pages/Kids[3 0 R]/Count 1>>endobj\n"
      "3 0 obj<</Type/Page/Parent 2 0 R/MediaBox[0 0 72 72]/Contents 4 0 R"
      "/Resources<</Font<</F1 5 0 R>>>>>>endobj\n"
      "4 0 obj<</Length 35>>stream\nBT /F1 12 Tf 10 30 Td (Aa) Tj ET\nendstream endobj\n"
      "5 0 obj<</Type/Font/Subtype/Type1/BaseFont/Helvetica>>endobj\n"
      "trailer<</Root 1 0 R>>\n%%EOF\n";
  RenderRequest request;
  request.op = kOpPdfPage;
  request.width = request.height = 16;
  RenderPdfPage(std::string(kPage, sizeof kPage - 1), request);
}

}  // namespace trovix::render
