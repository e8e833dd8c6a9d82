// The renderer: its decoding in the test process (scaling rules, refused formats, PDF pages)
// and the helper itself through the process pool, as the desktop program runs it (sandbox,
// answers beyond their request, archive members).
#include <gtest/gtest.h>

#include <QBuffer>
#include <QByteArray>
#include <QImage>

#include <fstream>
#include <sstream>

#include "platform/process_pool.h"
#include "render/render_protocol.h"
#include "render/render_runner.h"
#include "tests/support/temp_tree.h"

namespace trovix::render {
namespace {

std::string Png(int w, int h, QColor color = Qt::red) {
  QImage image(w, h, QImage::Format_ARGB32);
  image.fill(color);
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  image.save(&buffer, "PNG");
  return bytes.toStdString();
}

std::string Corpus(const std::string& relative) {
  std::ifstream in(std::string(TROVIX_CORPUS_DIR) + "/" + relative, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

RenderRequest Box(RenderOp op, uint32_t w, uint32_t h) {
  RenderRequest r;
  r.op = op;
  r.width = w;
  r.height = h;
  return r;
}

// The scaling rules (into the box keeping the shape, never enlarged; a thumbnail a square with
// the picture in its middle) are checked on what the helper draws, here and in the quick view's
// and the thumbnail cache's tests.
TEST(RenderPicture, RefusesWhatIsNoPictureAndVectorPictures) {
  EXPECT_EQ(RenderPicture("just some text", Box(kOpPicture, 64, 64)).end.code, kRenderNoPicture);
  EXPECT_EQ(RenderPicture("", Box(kOpPicture, 64, 64)).end.code, kRenderNoPicture);
  const std::string svg = "<svg xmlns='http://www.w3.org/2000/svg' width='10' height='10'><text>A</text></svg>";
  EXPECT_EQ(RenderPicture(svg, Box(kOpPicture, 64, 64)).end.code, kRenderNoPicture);
  // A PNG cut in the middle of its data decodes to nothing or to a picture, never beyond.
  const std::string png = Png(300, 300);
  RenderResult cut = RenderPicture(png.substr(0, png.size() / 2), Box(kOpPicture, 64, 64));
  if (cut.end.code == kRenderOk) {
    EXPECT_LE(cut.image.width, 64u);
  }
}

TEST(RenderPdfPage, DrawsThePageIntoTheBoxAndCountsPages) {
  const std::string pdf = Corpus("documents/002-trivial-libre-office-writer.pdf");
  ASSERT_FALSE(pdf.empty());
  RenderRequest r = Box(kOpPdfPage, 200, 200);
  RenderResult page = RenderPdfPage(pdf, r);
  ASSERT_EQ(page.end.code, kRenderOk) << page.end.message;
  EXPECT_LE(page.image.width, 200u);
  EXPECT_EQ(page.image.height, 200u) << "an A4 page is taller than wide";
  EXPECT_GE(page.image.pages, 1u);
  r.page = 999;  // past the end: the last page
  EXPECT_EQ(RenderPdfPage(pdf, r).end.code, kRenderOk);
  EXPECT_EQ(RenderPdfPage("%PDF-1.4 broken", r).end.code, kRenderNoPicture);
}

TEST(RenderAnswer, RefusesWhatAnHonestRendererNeverSends) {
  RenderRequest request = Box(kOpPicture, 10, 10);
  RenderedImage image;
  image.width = 11;  // wider than the box
  image.height = 1;
  image.pixels.assign(44, 'x');
  RenderAnswer wide(request);
  EXPECT_EQ(wide.Take({kRenderImage, image.Encode()}), RenderAnswer::kBroken);

  image.width = 10;
  image.pixels.assign(39, 'x');  // pixels that do not add up
  RenderAnswer short_pixels(request);
  EXPECT_EQ(short_pixels.Take({kRenderImage, image.Encode()}), RenderAnswer::kBroken);

  RenderAnswer no_picture_but_ok(request);
  EXPECT_EQ(no_picture_but_ok.Take({kRenderEnd, RenderEnd{kRenderOk, ""}.Encode()}), RenderAnswer::kBroken);

  image.pixels.assign(40, 'x');
  RenderAnswer good(request);
  EXPECT_EQ(good.Take({kRenderImage, image.Encode()}), RenderAnswer::kMore);
  EXPECT_EQ(good.Take({kRenderImage, image.Encode()}), RenderAnswer::kBroken) << "a second picture";
  RenderAnswer fine(request);
  fine.Take({kRenderImage, image.Encode()});
  EXPECT_EQ(fine.Take({kRenderEnd, RenderEnd{kRenderOk, ""}.Encode()}), RenderAnswer::kEnd);
  EXPECT_TRUE(fine.has_image());
}

// The helper as the desktop program runs it.
class RendererProcess : public ::testing::Test {
 protected:
  explicit RendererProcess(const char* program = TROVIX_RENDER_TEST_PATH) {
    platform::PoolOptions options;
    options.program = program;
    options.args = {"--serve"};
    options.size = 1;
    pool_ = std::make_unique<platform::ProcessPool>(options);
  }

  struct Asked {
    platform::ExchangeStatus status;
    RenderEnd end;
    RenderedImage image;
    bool image_sent = false;
  };

  Asked Ask(RenderRequest request, int64_t timeout_ms = 5000) {
    Asked asked;
    RenderAnswer answer(request);
    asked.status = AskRenderer(*pool_, request, &answer, timeout_ms);
    asked.end = answer.end();
    asked.image_sent = answer.has_image();
    if (asked.image_sent) asked.image = answer.image();
    return asked;
  }

  std::unique_ptr<platform::ProcessPool> pool_;
  testing::TempTree tree_;
};

TEST_F(RendererProcess, DrawsPicturesAndPagesInsideItsSandbox) {
  tree_.File("a.png", Png(300, 150));
  RenderRequest request = Box(kOpPicture, 100, 100);
  request.path = tree_.path("a.png");
  Asked picture = Ask(request);
  ASSERT_EQ(picture.status, platform::ExchangeStatus::kOk);
  ASSERT_TRUE(picture.image_sent) << picture.end.message << pool_->helper_log();
  EXPECT_EQ(picture.image.width, 100u);
  EXPECT_EQ(picture.image.height, 50u);

  // A large picture is scaled on Qt's worker threads, which the sandbox must let start.
  tree_.File("big.png", Png(3000, 2000));
  request.path = tree_.path("big.png");
  request.width = request.height = 1600;
  Asked big = Ask(request);
  ASSERT_TRUE(big.image_sent) << big.end.message << pool_->helper_log();
  EXPECT_EQ(big.image.width, 1600u);

  request.op = kOpPdfPage;
  request.path = std::string(TROVIX_CORPUS_DIR) + "/documents/et-PDF.pdf";
  Asked page = Ask(request);
  EXPECT_TRUE(page.image_sent) << page.end.message << pool_->helper_log();

  RenderRequest sandbox;
  sandbox.op = kOpSandbox;
  Asked layers = Ask(sandbox);
  EXPECT_NE(layers.end.message.find("seccomp allow-list: in force"), std::string::npos) << layers.end.message;
  EXPECT_NE(layers.end.message.find("landlock file system (read-only): in force"), std::string::npos)
      << layers.end.message;
  // Everything above ran in the same helper: the sandbox took nothing the work needs.
  EXPECT_EQ(pool_->starts(), 1u) << pool_->helper_log();
}

// A FIFO named like a picture, and pictures that crash or hang the helper, are driven through
// the quick view and the thumbnail cache, which must stay usable after each.
TEST_F(RendererProcess, APictureLargerThanItsBoxIsRefusedAndTheRendererKilled) {
  RenderRequest request = Box(kOpPicture, 64, 64);
  request.path = tree_.path("poison-flood.png");
  EXPECT_EQ(Ask(request).status, platform::ExchangeStatus::kRefused);
}

TEST_F(RendererProcess, ReadsArchiveMembersOnlyUpToTheStreamLimit) {
  // A zip made here: one picture inside.
  tree_.File("p.png", Png(40, 40));
  const std::string cmd = "cd " + tree_.path("") + " && zip -q pics.zip p.png";
  ASSERT_EQ(system(cmd.c_str()), 0);
  RenderRequest request = Box(kOpPicture, 64, 64);
  request.path = tree_.path("pics.zip");
  request.members = {"p.png"};
  EXPECT_TRUE(Ask(request).image_sent);
  request.max_member_bytes = 10;
  Asked too_large = Ask(request);
  EXPECT_FALSE(too_large.image_sent);
  EXPECT_EQ(too_large.end.code, kRenderTooLarge) << too_large.end.message;
  request.max_member_bytes = 0;
  EXPECT_EQ(Ask(request).end.code, kRenderTooLarge);
}

}  // namespace
}  // namespace trovix::render
