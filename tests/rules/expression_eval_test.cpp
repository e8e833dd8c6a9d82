// Evaluating compiled expressions against a fake host: precedence, short circuits, lazy
// values, unary runs, dates, texts, functions and failures.

#include <gtest/gtest.h>
#include <unicode/locid.h>

#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/file_time.h"
#include "rules/expression/expression.h"

namespace trovix::rules {
namespace {

using base::kTicksPerDay;
using base::kTicksPerHour;

class FakeHost : public ExpressionHost {
 public:
  void FetchValue(size_t, const std::string& name, ExprValue* value) override {
    fetched.push_back(name);
    auto it = values.find(name);
    if (it != values.end()) *value = it->second;
  }
  void Grep(const ExprValue& pattern, ExprValue* result) override {
    grep_patterns.push_back(pattern.text);
    *result = ExprValue::Bool(contents.find(pattern.text) != std::string::npos);
  }

  std::map<std::string, ExprValue> values;
  std::vector<std::string> fetched;
  std::vector<std::string> grep_patterns;
  std::string contents;
};

class ExpressionEval : public ::testing::Test {
 protected:
  void SetUp() override {
    base::SetLocalTimeZone("UTC");
    saved_locale_ = icu::Locale::getDefault();
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale("en_GB"), status);
  }
  void TearDown() override {
    base::SetLocalTimeZone("");
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(saved_locale_, status);
  }

  ExprResult Run(const std::string& text) {
    Expression e;
    EXPECT_TRUE(e.Compile(text)) << e.ErrorText();
    std::vector<ExprValue> values;
    return e.Evaluate(values, host_);
  }
  bool Matches(const std::string& text) {
    ExprResult r = Run(text);
    EXPECT_EQ(r.error, 0) << text;
    return r.matched;
  }
  void Set(const std::string& name, ExprValue v) { host_.values[name] = std::move(v); }

  FakeHost host_;
  icu::Locale saved_locale_;
};

const base::FileTime kMay1 = base::FileTimeFromCivil({2024, 5, 1, 0, 0, 0});

TEST_F(ExpressionEval, PrecedenceAndLeftToRight) {
  Set("System.Size", ExprValue::Integer(1));
  EXPECT_TRUE(Matches("$System.Size+2*3=7"));
  EXPECT_TRUE(Matches("($System.Size+2)*3=9"));
  EXPECT_TRUE(Matches("$System.Size-1-1=-1"));
  EXPECT_TRUE(Matches("7%4*$System.Size=3"));
  // The three logical operators share one level: (true | x) & false.
  EXPECT_FALSE(Matches("$System.Size>0|$System.Size<0&0"));
  EXPECT_TRUE(Matches("$System.Size>0^$System.Size>5"));
  EXPECT_FALSE(Matches("$System.Size>0^$System.Size>0"));
  // ">" and "<" include equality.
  EXPECT_TRUE(Matches("$System.Size>1&$System.Size<1"));
  // Comparisons chain left to right on their truth values (-1, 0).
  EXPECT_TRUE(Matches("($System.Size=1)=-1"));
  EXPECT_TRUE(Matches("$System.Size/2=0 & 7/-2=-3 & -7%3=-1"));
}

TEST_F(ExpressionEval, ShortCircuitSkipsFetches) {
  Set("System.Size", ExprValue::Integer(1));
  Set("System.DateModified", ExprValue::Date(kMay1));
  EXPECT_FALSE(Matches("$System.Size>5 & ($System.DateModified>1/1/2000 | $System.DateModified<1/1/2000)"));
  EXPECT_EQ(host_.fetched, (std::vector<std::string>{"System.Size"}));
  host_.fetched.clear();
  EXPECT_TRUE(Matches("$System.Size=1 | len(str($System.DateModified))>0"));
  EXPECT_EQ(host_.fetched, (std::vector<std::string>{"System.Size"}));
  host_.fetched.clear();
  EXPECT_TRUE(Matches("$System.Size=1 ^ $System.DateModified<1/1/2000"));
  EXPECT_EQ(host_.fetched.size(), 2u);
}

TEST_F(ExpressionEval, ValuesAreFetchedOnceAndOnlyWhenNotSupplied) {
  Expression e;
  ASSERT_TRUE(e.Compile("$System.Size>1 & $System.Size<10 & $System.FileOwner=$System.FileOwner"));
  Set("System.Size", ExprValue::Integer(5));
  std::vector<ExprValue> values;
  ExprResult r = e.Evaluate(values, host_);
  EXPECT_FALSE(r.matched);  // the comment has no value, and no value equals nothing
  EXPECT_EQ(host_.fetched, (std::vector<std::string>{"System.Size", "System.FileOwner"}));

  host_.fetched.clear();
  std::vector<ExprValue> supplied = {ExprValue::Integer(5), ExprValue::Text("x")};
  EXPECT_TRUE(e.Evaluate(supplied, host_).matched);
  EXPECT_TRUE(host_.fetched.empty());
}

TEST_F(ExpressionEval, UnaryRuns) {
  Set("System.Size", ExprValue::Integer(5));
  Set("System.ItemNameDisplay", ExprValue::Text("a.txt"));
  EXPECT_TRUE(Matches("-$System.Size=-5"));
  EXPECT_TRUE(Matches("--$System.Size=5"));
  EXPECT_TRUE(Matches("+-+$System.Size=-5"));
  // A negation wins over the sign: -!5 is !5, which is false.
  EXPECT_FALSE(Matches("-!$System.Size"));
  EXPECT_TRUE(Matches("-!$System.Size=0"));
  EXPECT_TRUE(Matches("!!$System.Size=5"));
  // Text cannot change sign, so it is negated instead.
  EXPECT_TRUE(Matches("-$System.ItemNameDisplay=0"));
  EXPECT_TRUE(Matches("!$System.FileOwner"));
}

TEST_F(ExpressionEval, DatesMoveAndSubtractInWholeDays) {
  Set("System.DateModified", ExprValue::Date(kMay1 + 2 * kTicksPerDay + 23 * kTicksPerHour));
  Set("System.DateCreated", ExprValue::Date(kMay1));
  EXPECT_TRUE(Matches("$System.DateModified-$System.DateCreated=2"));
  EXPECT_TRUE(Matches("$System.DateCreated-$System.DateModified=-2"));
  EXPECT_FALSE(Matches("$System.DateModified < $System.DateCreated + 2"));
  EXPECT_TRUE(Matches("$System.DateModified < $System.DateCreated + 3"));
  // Fractions of days are cut toward zero.
  EXPECT_TRUE(Matches("$System.DateCreated+2.9=$System.DateCreated+2"));
  EXPECT_TRUE(Matches("$System.DateCreated-1.9=-1+$System.DateCreated"));
  EXPECT_TRUE(Matches("$System.DateModified ~ $System.DateCreated+2"));
  EXPECT_FALSE(Matches("$System.DateModified ~ $System.DateCreated"));
  EXPECT_TRUE(Matches("$System.DateCreated='2024-05-01'"));
}

TEST_F(ExpressionEval, NumbersMixAndApproximate) {
  Set("System.Size", ExprValue::Integer(100));
  Set("System.GPS.Latitude", ExprValue::Float(2.8));
  EXPECT_TRUE(Matches("$System.Size/3=33"));
  EXPECT_TRUE(Matches("$System.Size/3.0>33.3 & $System.Size/3.0<33.4"));
  EXPECT_TRUE(Matches("$System.GPS.Latitude*10>27.99 & $System.GPS.Latitude*10<28.01"));
  EXPECT_TRUE(Matches("$System.GPS.Latitude%1>0.79 & $System.GPS.Latitude%1<0.81"));
  EXPECT_TRUE(Matches("$System.Size~104"));
  EXPECT_FALSE(Matches("$System.Size~94"));
  EXPECT_TRUE(Matches("$System.Size-99~0"));  // the tolerance of 0 is 1
  EXPECT_TRUE(Matches("$System.GPS.Latitude~2.9"));
  EXPECT_TRUE(Matches("$System.Size>1KB=0 & $System.Size<1KB"));
}

TEST_F(ExpressionEval, TextsCompareByLocaleAndPatterns) {
  Set("System.ItemNameDisplay", ExprValue::Text("Report.TXT"));
  EXPECT_TRUE(Matches("$System.ItemNameDisplay=\"Report.TXT\""));
  EXPECT_FALSE(Matches("$System.ItemNameDisplay=\"report.txt\""));
  EXPECT_TRUE(Matches("$System.ItemNameDisplay~\"report.txt\""));
  // Single-quoted and bare constants with * or ? are patterns; double-quoted ones are not.
  EXPECT_TRUE(Matches("$System.ItemNameDisplay='*.TXT'"));
  EXPECT_TRUE(Matches("$System.ItemNameDisplay=R?port*"));
  EXPECT_FALSE(Matches("$System.ItemNameDisplay='*.txt'"));
  EXPECT_TRUE(Matches("$System.ItemNameDisplay~'*.txt'"));
  EXPECT_FALSE(Matches("$System.ItemNameDisplay=\"*.TXT\""));
  EXPECT_TRUE(Matches("$System.ItemNameDisplay!='*.doc'"));
  Set("System.ItemNameDisplay", ExprValue::Text("*.TXT"));
  EXPECT_TRUE(Matches("$System.ItemNameDisplay=\"*.TXT\""));
  // Locale order, not byte order: "apple" sorts before "Banana".
  Set("System.ItemNameDisplay", ExprValue::Text("apple"));
  EXPECT_TRUE(Matches("$System.ItemNameDisplay<Banana"));
  EXPECT_TRUE(Matches("$System.ItemNameDisplay+'pie'=applepie"));
}

TEST_F(ExpressionEval, NoValueComparesFalse) {
  EXPECT_FALSE(Matches("$System.Size=0"));
  EXPECT_FALSE(Matches("$System.Size!=0"));
  EXPECT_FALSE(Matches("$System.Size+1>0"));
  EXPECT_TRUE(Matches("len($System.FileOwner)=0"));
  EXPECT_TRUE(Matches("max($System.Size,3)=3"));
}

TEST_F(ExpressionEval, Functions) {
  Set("System.ItemNameDisplay", ExprValue::Text("  Käse.txt "));
  Set("System.DateModified", ExprValue::Date(base::FileTimeFromCivil({2024, 5, 5, 13, 45, 10})));
  Set("System.Size", ExprValue::Integer(-7));
  EXPECT_TRUE(Matches("len($System.ItemNameDisplay)=11"));
  EXPECT_TRUE(Matches("trim($System.ItemNameDisplay)=\"Käse.txt\""));
  EXPECT_TRUE(Matches("mid(trim($System.ItemNameDisplay),2,3)=\"äse\""));
  EXPECT_TRUE(Matches("mid(trim($System.ItemNameDisplay),0,2)=\"K\""));
  EXPECT_TRUE(Matches("mid(trim($System.ItemNameDisplay),7,100)=\"xt\""));
  EXPECT_TRUE(Matches("mid($System.ItemNameDisplay,2,-1)=\"\""));
  EXPECT_TRUE(Matches("find($System.ItemNameDisplay,'.')=7"));
  EXPECT_TRUE(Matches("find($System.ItemNameDisplay,\"zip\")=0"));
  EXPECT_TRUE(Matches("dpart($System.DateModified,'year')=2024 & dpart($System.DateModified,Month)=5"));
  EXPECT_TRUE(Matches("dpart($System.DateModified,'days')=5 & dpart($System.DateModified,'hour')=13"));
  EXPECT_TRUE(Matches("dpart($System.DateModified,'minute')=45 & dpart($System.DateModified,'second')=10"));
  EXPECT_TRUE(Matches("dpart($System.DateModified,'weekday')=7"));  // a Sunday
  EXPECT_TRUE(Matches("abs($System.Size)=7 & abs(-2.5)=2.5"));
  EXPECT_TRUE(Matches("min($System.Size,3)=-7 & max($System.Size,3)=3 & max(a,B)=B"));
  EXPECT_TRUE(Matches("str($System.Size)=\"-7\" & str(2.5)=\"2.5\" & str($System.Size+0.5)=\"-6.5\""));
  EXPECT_TRUE(Matches("str($System.Size)+str(len($System.ItemNameDisplay))=\"-711\""));
}

TEST_F(ExpressionEval, GrepGoesToTheHost) {
  Set("System.Size", ExprValue::Integer(1));
  host_.contents = "the quick brown fox";
  EXPECT_TRUE(Matches("$System.Size>0 & grep('quick')"));
  EXPECT_FALSE(Matches("$System.Size>0 & grep(\"slow fox\")"));
  EXPECT_EQ(host_.grep_patterns, (std::vector<std::string>{"quick", "slow fox"}));

  // A host without contents finds nothing.
  struct Plain : ExpressionHost {
    void FetchValue(size_t, const std::string&, ExprValue* v) override { *v = ExprValue::Integer(1); }
  } plain;
  Expression e;
  ASSERT_TRUE(e.Compile("$System.Size>0 & grep('quick')"));
  std::vector<ExprValue> values;
  EXPECT_FALSE(e.Evaluate(values, plain).matched);
}

TEST_F(ExpressionEval, Truth) {
  Set("System.GPS.Latitude", ExprValue::Float(std::nan("")));
  EXPECT_TRUE(Matches("$System.GPS.Latitude"));
  Set("System.GPS.Latitude", ExprValue::Float(0.0));
  EXPECT_FALSE(Matches("$System.GPS.Latitude"));
  Set("System.ItemNameDisplay", ExprValue::Text("x"));
  EXPECT_TRUE(Matches("$System.ItemNameDisplay"));
  EXPECT_FALSE(Matches("trim(\" \")^!$System.ItemNameDisplay"));
}

TEST_F(ExpressionEval, FailuresMakeTheItemNotMatch) {
  Set("System.Size", ExprValue::Integer(10));
  ExprResult r = Run("$System.Size/($System.Size-10)>1");
  EXPECT_FALSE(r.matched);
  EXPECT_EQ(r.error, 1 + 1);  // the "/" is token 1
  EXPECT_EQ(Run("$System.Size%0=1").error, 2);
  EXPECT_EQ(Run("$System.Size/0.0=1").error, 2);
  // A host that hands over a value of an unexpected kind: a mismatch, not a crash.
  Set("System.Size", ExprValue::Text("big"));
  r = Run("$System.Size*2>1");
  EXPECT_FALSE(r.matched);
  EXPECT_EQ(r.error, 2);
  r = Run("abs($System.Size)>1");
  EXPECT_EQ(r.error, 3);  // at the argument
  // Dates moved beyond the calendar fail rather than wrap.
  Set("System.DateModified", ExprValue::Date(kMay1));
  EXPECT_NE(Run("$System.DateModified+1e300>$System.DateModified").error, 0);
  EXPECT_NE(Run("$System.DateModified+9223372036854775807>$System.DateModified").error, 0);
  // Not compiled: never a match.
  Expression bad;
  EXPECT_FALSE(bad.Compile("$System.Size>"));
  std::vector<ExprValue> values;
  EXPECT_FALSE(bad.Evaluate(values, host_).matched);
}

TEST_F(ExpressionEval, IntegerEdgesWrapWithoutTrapping) {
  Set("System.Size", ExprValue::Integer(INT64_MIN));
  EXPECT_TRUE(Matches("$System.Size/-1=$System.Size"));
  EXPECT_TRUE(Matches("$System.Size%-1=0"));
  EXPECT_TRUE(Matches("-$System.Size=$System.Size"));
  EXPECT_TRUE(Matches("$System.Size-1=9223372036854775807"));
}

TEST(ExprValue, FromPropertyValues) {
  EXPECT_TRUE(ExprValue::FromProp(props::PropValue()).IsNone());
  EXPECT_TRUE(ExprValue::FromProp(props::PropValue::Text("")).IsNone());
  EXPECT_EQ(ExprValue::FromProp(props::PropValue::UInt64(42)), ExprValue::Integer(42));
  EXPECT_EQ(ExprValue::FromProp(props::PropValue::Bool(true)), ExprValue::Integer(-1));
  EXPECT_EQ(ExprValue::FromProp(props::PropValue::Double(1.5)), ExprValue::Float(1.5));
  EXPECT_EQ(ExprValue::FromProp(props::PropValue::FileTime(kMay1)), ExprValue::Date(kMay1));
  EXPECT_EQ(ExprValue::FromProp(props::PropValue::Text("a")), ExprValue::Text("a"));
  EXPECT_EQ(ExprValue::FromProp(props::PropValue::TextVector({"a", "b"})), ExprValue::Text("a; b"));
}

}  // namespace
}  // namespace trovix::rules
