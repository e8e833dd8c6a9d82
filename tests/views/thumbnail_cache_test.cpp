// Thumbnails of the results list come from the renderer: a picture arrives at the edge asked
// for; a FIFO named like a picture, or a picture that crashes or hangs the renderer, keeps its
// type's icon and holds up neither the window nor the pictures after it.
#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QImage>
#include <QSignalSpy>
#include <QTest>

#include "tests/support/temp_tree.h"
#include "views/preview/render_service.h"
#include "views/results/thumbnail_cache.h"

namespace trovix::views {
namespace {

TEST(ThumbnailCacheTest, HostileFilesKeepTheirIconAndHoldUpNothing) {
  testing::TempTree tree;
  QImage picture(300, 100, QImage::Format_RGB32);
  picture.fill(Qt::darkGreen);
  for (const char* name : {"fine.png", "poison-crash.png", "poison-hang.png"})
    ASSERT_TRUE(picture.save(QString::fromStdString(tree.path(name))));
  tree.Fifo("x.png");

  RenderServiceOptions options;
  options.program = TROVIX_RENDER_TEST_PATH;
  options.timeout_ms = 1500;
  auto cache = std::make_unique<ThumbnailCache>(nullptr, std::make_shared<RenderService>(options));
  cache->SetEdge(48);
  QSignalSpy ready(cache.get(), &ThumbnailCache::ready);
  const QIcon before = cache->IconFor(tree.path("fine.png"), false);
  // Asked last, drawn first: the newest request is what is on screen.
  for (const char* name : {"poison-hang.png", "poison-crash.png", "x.png"}) cache->IconFor(tree.path(name), false);
  QElapsedTimer clock;
  clock.start();
  while (ready.isEmpty() && clock.elapsed() < 8000) QTest::qWait(20);
  ASSERT_FALSE(ready.isEmpty()) << "the good picture arrived";
  const QIcon after = cache->IconFor(tree.path("fine.png"), false);
  const QImage drawn = after.pixmap(48, 48).toImage();
  EXPECT_EQ(drawn.size(), QSize(48, 48));
  EXPECT_EQ(drawn.pixelColor(24, 24), QColor(Qt::darkGreen));
  EXPECT_EQ(drawn.pixelColor(24, 2).alpha(), 0) << "a square with the picture in its middle";
  // The others keep an icon; asking again does not ask the renderer again.
  QTest::qWait(2000);
  const int answers = ready.size();
  for (const char* name : {"poison-hang.png", "poison-crash.png", "x.png"})
    EXPECT_FALSE(cache->IconFor(tree.path(name), false).isNull()) << name;
  QTest::qWait(200);
  EXPECT_EQ(ready.size(), answers);
  // Closing never waits for a renderer that still hangs.
  cache->IconFor(tree.path("poison-hang.png"), false);
  clock.restart();
  cache.reset();
  EXPECT_LT(clock.elapsed(), 200);
  (void)before;
}

}  // namespace
}  // namespace trovix::views
