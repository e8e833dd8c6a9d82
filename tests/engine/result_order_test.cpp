#include <gtest/gtest.h>

#include "engine/results/result_order.h"

namespace trovix::engine {
namespace {

using props::PropValue;

// (How whole items are ordered is the results sort test's.)
TEST(CompareValues, EmptyFirstThenByKind) {
  EXPECT_LT(CompareValues(PropValue(), PropValue::UInt64(0), false), 0);
  EXPECT_GT(CompareValues(PropValue::Text("a"), PropValue(), false), 0);
  EXPECT_EQ(CompareValues(PropValue(), PropValue(), false), 0);
  EXPECT_LT(CompareValues(PropValue::Int64(-5), PropValue::UInt64(3), false), 0);
  EXPECT_LT(CompareValues(PropValue::Double(1.5), PropValue::Double(2.25), false), 0);
  EXPECT_EQ(CompareValues(PropValue::Text("Readme"), PropValue::Text("README"), false), 0);
}

}  // namespace
}  // namespace trovix::engine
