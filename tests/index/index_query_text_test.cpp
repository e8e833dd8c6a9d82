#include "index/dialect/index_query_text.h"

#include <gtest/gtest.h>

namespace trovix::engine::index {
namespace {

TEST(IndexScopeText, ScopeAndDirectory) {
  EXPECT_EQ(IndexScopeText("/home/u", true, "Path"), "SELECT Path FROM SystemIndex %s AND SCOPE='file:/home/u'");
  EXPECT_EQ(IndexScopeText("/home/u/", false, "Path"),
            "SELECT Path FROM SystemIndex %s AND DIRECTORY='file:/home/u'");
  EXPECT_EQ(IndexScopeText("/", true, "Path"), "SELECT Path FROM SystemIndex %s AND SCOPE='file:'");
  EXPECT_EQ(IndexScopeText("relative/dir", true, "Path"), "");
  EXPECT_EQ(IndexScopeText("", true, "Path"), "");
}

TEST(IndexScopeText, PercentSurvivesInsertion) {
  const std::string select = IndexScopeText("/home/u/100% done", true, "Path");
  EXPECT_EQ(select, "SELECT Path FROM SystemIndex %s AND SCOPE='file:/home/u/100%% done'");
  EXPECT_EQ(InsertWhere(select, "WHERE ( (System.ItemNameDisplay LIKE '%%a'))"),
            "SELECT Path FROM SystemIndex WHERE ( (System.ItemNameDisplay LIKE '%%a')) AND "
            "SCOPE='file:/home/u/100% done'");
  // A path holding "%s" is not taken for the place of the WHERE text.
  EXPECT_EQ(InsertWhere(IndexScopeText("/a%s", true, "Path"), "W"),
            "SELECT Path FROM SystemIndex W AND SCOPE='file:/a%s'");
}

}  // namespace
}  // namespace trovix::engine::index
