#include "views/frame/window_placement.h"

#include <gtest/gtest.h>

namespace trovix::views {
namespace {

TEST(WindowPlacement, RoundTripsAndRefusesForeignRecords) {
  WindowPlacement p;
  p.show = kShowMaximised;
  p.left = -20;  // a window partly off the left edge of the screen
  p.top = 40;
  p.right = 1000;
  p.bottom = 700;
  auto record = EncodePlacement(p);
  EXPECT_EQ(record[0], 44);
  auto back = DecodePlacement(record);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->show, kShowMaximised);
  EXPECT_EQ(back->left, -20);
  EXPECT_EQ(back->bottom, 700);

  record[0] = 40;  // another length field
  EXPECT_FALSE(DecodePlacement(record));
  p.right = p.left;  // an empty rectangle
  EXPECT_FALSE(DecodePlacement(EncodePlacement(p)));
}

}  // namespace
}  // namespace trovix::views
