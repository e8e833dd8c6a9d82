// The built-in icon renders (the SVG resource is linked in and Qt's SVG support reads it).
#include "views/program/app_icon.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QImage>

namespace trovix::views {
namespace {

TEST(AppIconTest, RendersFromTheBuiltInResource) {
  const QIcon icon = AppIcon();
  ASSERT_FALSE(icon.isNull());
  const QImage image = icon.pixmap(128, 128).toImage();
  ASSERT_EQ(image.size(), QSize(128, 128));
  // Something was drawn: the centre (the magnifier's glass) is not transparent.
  EXPECT_GT(qAlpha(image.pixel(76, 76)), 0);
}

}  // namespace
}  // namespace trovix::views
