#include "rules/file_count_rule.h"

#include <gtest/gtest.h>

#include "props/catalogue.h"
#include "props/fetcher.h"
#include "props/file_kinds.h"
#include "rules/rule.h"
#include "tests/support/temp_tree.h"

namespace trovix::rules {
namespace {

class FileCountRule : public ::testing::Test {
 protected:
  ~FileCountRule() override { props::SetFileCountSettings({}); }

  // The folder's count with the setting in force; "<none>" without a value.
  std::string CountWith(std::string_view setting, bool hidden = false) {
    props::SetFileCountSettings(MakeFileCountSettings(setting, hidden));
    props::PropValue v;
    auto folder = props::ShellItem::FromPath(tree_.path("d"));
    HRESULT hr = props::FetchValue(*folder, *props::DefaultCatalogue().FindProperty("Stock.FileCount"), &v);
    return hr == S_OK ? v.ToDisplayText() : "<none>";
  }

  testing::TempTree tree_{{"d/a.txt=12345", "d/b.TXT=1", "d/c.jpg", "d/sub/", "d/sub/x.txt", "d/.h.txt"}};
};

TEST_F(FileCountRule, PatternsExpressionsAndUnusableText) {
  EXPECT_EQ(CountWith("*"), "4");
  EXPECT_EQ(CountWith("  "), "4");
  EXPECT_EQ(CountWith("*", true), "5");
  EXPECT_EQ(CountWith("*.txt"), "2");  // names match without regard to case
  EXPECT_EQ(CountWith("*.txt *.jpg"), "3");
  EXPECT_EQ(CountWith("$System.Size >= 2"), "1");
  EXPECT_EQ(CountWith("$Stock.IsFolder"), "1");
  std::string why;
  props::FileCountSettings broken = MakeFileCountSettings("$System.Size >", false, &why);
  EXPECT_FALSE(broken.usable);
  EXPECT_FALSE(why.empty());
  EXPECT_EQ(CountWith("$System.Size >"), "<none>");
}

TEST_F(FileCountRule, ACountInsideACountHasNoValue) {
  // Every folder of d would have to count its own items: the inner counts give no value, so
  // nothing matches rather than the whole tree being walked.
  EXPECT_EQ(CountWith("$Stock.FileCount >= 0"), "0");
}

TEST(KindRule, OffersTheKindNamesInUseWhenMade) {
  const props::PropertyInfo& kind = *props::DefaultCatalogue().FindProperty("Stock.Kind");
  RulePtr before = Rule::CreateFor(kind);
  ASSERT_EQ(before->Kind(), kKindEnumText);
  ASSERT_NE(before->Options(), nullptr);
  EXPECT_EQ(before->Options()->options.size(), 8u);
  props::SetFileKinds({{"notes", "txt,md"}, {"Art", "png"}});
  RulePtr after = Rule::CreateFor(kind);
  ASSERT_EQ(after->Options()->options.size(), 2u);
  EXPECT_EQ(after->Options()->options[0].label, "Art");
  ASSERT_TRUE(after->SetOption(kOptionEquals, 1));
  EXPECT_EQ(after->Text(), "notes");
  EXPECT_EQ(before->Options()->options.size(), 8u);  // a rule keeps the list it was made with
  props::SetFileKinds({});
}

}  // namespace
}  // namespace trovix::rules
