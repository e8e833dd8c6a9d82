// Compiling expressions: lexing, the syntax check with its error codes and positions, name
// resolution and the trial evaluation.

#include "rules/expression/expression.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "props/property_info.h"
#include "rules/value/date_text.h"

namespace trovix::rules {
namespace {

std::vector<int32_t> Program(const std::string& text) {
  Expression e;
  EXPECT_TRUE(e.Compile(text)) << e.ErrorText();
  return e.tokens();
}

TEST(Expression, SpellingsOfOneOperatorCompileAlike) {
  EXPECT_EQ(Program("$System.Size>=5"), Program("$System.Size>5"));
  EXPECT_EQ(Program("$System.Size<=5"), Program("$System.Size<5"));
  EXPECT_EQ(Program("$System.Size<>5"), Program("$System.Size!=5"));
  EXPECT_EQ(Program("$System.Size < 5"), Program("$System.Size<5"));
}

TEST(Expression, OnlyDoubleQuotesKeepBlanks) {
  Expression single, dbl;
  ASSERT_TRUE(single.Compile("$System.ItemNameDisplay = ' a b '"));
  ASSERT_TRUE(dbl.Compile("$System.ItemNameDisplay = \" a b \""));
  EXPECT_EQ(single.text(), "$System.ItemNameDisplay='ab'");
  EXPECT_EQ(dbl.text(), "$System.ItemNameDisplay=\" a b \"");
  ASSERT_EQ(single.constants().size(), 1u);
  EXPECT_EQ(single.constants()[0].text, "ab");
  EXPECT_FALSE(single.constants()[0].verbatim);
  EXPECT_EQ(dbl.constants()[0].text, " a b ");
  EXPECT_TRUE(dbl.constants()[0].verbatim);
}

TEST(Expression, NamesAreCanonicalDistinctAndInOrder) {
  Expression e;
  ASSERT_TRUE(e.Compile("$size>1 & $System.DateModified>$System.DateCreated & ${System.Size}<9 & $SIZE>0"))
      << e.ErrorText();
  EXPECT_EQ(e.names(), (std::vector<std::string>{"System.Size", "System.DateModified", "System.DateCreated"}));
  ASSERT_EQ(e.properties().size(), 3u);
  EXPECT_EQ(e.properties()[0]->name, "System.Size");
  // Every spelling of Size refers to reference 0.
  int size_references = 0;
  for (int32_t t : e.tokens()) size_references += t == -1;
  EXPECT_EQ(size_references, 3);
}

TEST(Expression, ConstantsFollowTheValueSyntax) {
  SetDateLocale("en_GB");
  struct Case {
    const char* constant;
    ExprKind kind;
    int64_t integer;
  };
  const Case cases[] = {
      {"17", ExprKind::kInteger, 17},
      {"100KB", ExprKind::kInteger, 102400},
      {"2gb", ExprKind::kInteger, 2147483648},
      {"1TB", ExprKind::kInteger, 0},
      {"1:30", ExprKind::kInteger, 900'000'000},
      {"'1:00:00'", ExprKind::kInteger, 36'000'000'000},
      {"10K", ExprKind::kText, 0},
      {"abc", ExprKind::kText, 0},
      {"'len'", ExprKind::kText, 0},
      {"\"17\"", ExprKind::kText, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.constant);
    Expression e;
    // "^" evaluates both sides, so the constant's kind never clashes and the size is asked for.
    ASSERT_TRUE(e.Compile(std::string(c.constant) + "^$System.Size>0")) << e.ErrorText();
    ASSERT_FALSE(e.constants().empty());
    EXPECT_EQ(e.constants()[0].kind, c.kind);
    if (c.kind == ExprKind::kInteger) {
      EXPECT_EQ(e.constants()[0].integer, c.integer);
    }
  }

  Expression floats;
  ASSERT_TRUE(floats.Compile("$System.Size>1.5e-3|$System.Size>.25|$System.Size>99999999999999999999"));
  ASSERT_EQ(floats.constants().size(), 3u);
  EXPECT_EQ(floats.constants()[0].kind, ExprKind::kFloat);
  EXPECT_DOUBLE_EQ(floats.constants()[0].real, 1.5e-3);
  EXPECT_DOUBLE_EQ(floats.constants()[1].real, 0.25);
  EXPECT_EQ(floats.constants()[2].kind, ExprKind::kFloat);

  Expression dates;
  ASSERT_TRUE(dates.Compile("$System.DateModified>31/10/2010 | $System.DateModified>'2010-10-31'"));
  ASSERT_EQ(dates.constants().size(), 2u);
  EXPECT_EQ(dates.constants()[0].kind, ExprKind::kDate);
  EXPECT_EQ(dates.constants()[0], dates.constants()[1]);
  EXPECT_EQ(dates.constants()[0].integer, ParseDate("31/10/2010")->start);
  SetDateLocale("");
}

TEST(Expression, TokensThatStayWhole) {
  Expression e;
  // "*" where an operand is due starts a pattern; inside a word it stays in it.
  ASSERT_TRUE(e.Compile("$System.ItemNameDisplay=*.txt|$System.ItemNameDisplay=a*b?"));
  ASSERT_EQ(e.constants().size(), 2u);
  EXPECT_EQ(e.constants()[0].text, "*.txt");
  EXPECT_EQ(e.constants()[1].text, "a*b?");
  // After an operand it multiplies; a date needs exactly two slashes and a short first part.
  ASSERT_TRUE(e.Compile("$System.Size*2>2020/1/1"));
  EXPECT_EQ(e.tokens(), (std::vector<int32_t>{-1, 10, -1001, 6, -1002, 11, -1003, 11, -1004, 29}));
  ASSERT_TRUE(e.Compile("$System.Size>1e-5"));
  EXPECT_EQ(e.tokens().size(), 4u);
  ASSERT_TRUE(e.Compile("$System.Size>1/2"));
  EXPECT_EQ(e.tokens().size(), 6u);
}

struct ErrorCase {
  const char* text;
  int32_t code;
  int32_t position;
};

TEST(Expression, SyntaxErrorsAndTheirPositions) {
  const ErrorCase cases[] = {
      {"", 6, 0},
      {"  \t\r\n", 6, 0},
      {"5>3", 6, 0},
      {"len($System.FileName", 2, 3},
      {"(($System.Size>1)", 2, 0},
      {"$System.Size>1)", 2, 14},
      {"len($System.ItemNameDisplay,$System.Size)>1", 4, 0},
      {"mid($System.ItemNameDisplay,1)", 4, 0},
      {"grep('a') & grep('b') & $System.Size>1", 4, 10},
      {"len($x,$y", 2, 3},  // unbalanced before the arity is looked at
      {"$System.Size>'abc", 3, 13},
      {"${System.Size>1", 3, 1},
      {"$5>1", 1, 1},
      {"$System.Size>1+$", 1, 16},
      {"$System.Size>", 1, 12},
      {"$System.Size>>5", 1, 13},
      {"$System.Size>1,2", 1, 14},
      {"($System.Size,1)>0", 1, 13},
      {"len$System.Size", 1, 3},
      {"$System.Size 5", 1, 0},  // the blank goes first: one unknown name
      {"$System.Size(1)", 1, 12},
      {"$NoSuchProperty>1", 1, 0},
      {"$System.Size>1|${}>1", 1, 15},
      {"$System.Size>1&$System.Search.Contents='a'", 5, 15},
      {"$Stock.Algorithmic>1", 5, 0},
      {"$System.Size>1|${*}=a", 5, 15},
      {"$System.Size>1|$System.ItemNameDisplay*2>1", 5, 38},
      {"$System.DateModified>5", 5, 20},
      {"dpart($System.DateModified,'fortnight')>1", 5, 27},
      {"abs($System.ItemNameDisplay)>1", 5, 4},
      {"1|$System.Size>5", 6, 0},
      {"0&$System.Size>5", 6, 0},
  };
  for (const ErrorCase& c : cases) {
    SCOPED_TRACE(c.text);
    Expression e;
    EXPECT_FALSE(e.Compile(c.text));
    EXPECT_FALSE(e.compiled());
    EXPECT_EQ(e.error_code(), c.code);
    EXPECT_EQ(e.error_position(), c.position);
  }
}

TEST(Expression, ValueDependentFailuresAreNoCompileErrors) {
  Expression e;
  EXPECT_TRUE(e.Compile("$System.Size/0>1")) << e.ErrorText();
  EXPECT_TRUE(e.Compile("$System.Size%($System.Size-1)>1")) << e.ErrorText();
  EXPECT_TRUE(e.Compile("$System.Size>0 | grep('x')")) << e.ErrorText();
}

TEST(Expression, ErrorTextFormat) {
  Expression e;
  EXPECT_EQ(e.ErrorText(), "NO ERROR!");
  EXPECT_FALSE(e.Compile("$System.Size>'x"));
  EXPECT_EQ(e.ErrorText(), "$System.Size>'x\r\n             ^\r\nopen quote\r\n");
  ASSERT_TRUE(e.Compile("$System.Size>1"));
  EXPECT_EQ(e.ErrorText(), "NO ERROR!");
}

TEST(Expression, ErrorPositionCountsCharactersNotBytes) {
  Expression e;
  EXPECT_FALSE(e.Compile("$System.ItemNameDisplay=\"äöü\"+"));
  EXPECT_EQ(e.error_code(), kExprUnexpectedToken);
  EXPECT_EQ(e.error_position(), 29);
}

TEST(Expression, NestingIsLimited) {
  const int limit = Expression::kMaxNesting;
  auto nested = [](int depth, const std::string& inner) {
    return std::string(depth, '(') + inner + std::string(depth, ')');
  };
  Expression e;
  EXPECT_TRUE(e.Compile(nested(limit, "$System.Size>1"))) << e.ErrorText();
  EXPECT_FALSE(e.Compile(nested(limit + 1, "$System.Size>1")));
  EXPECT_EQ(e.error_code(), kExprUnexpectedToken);
  EXPECT_EQ(e.error_position(), limit);
  // Calls count as brackets too.
  std::string calls = "$System.Size";
  for (int i = 0; i < limit + 1; ++i) calls = "abs(" + calls + ")";
  EXPECT_FALSE(e.Compile(calls + ">1"));
  EXPECT_EQ(e.error_position(), limit * 4 + 3);
  // Deep nesting far beyond the limit is refused, not recursed into.
  EXPECT_FALSE(e.Compile(nested(200000, "$System.Size")));
}

TEST(Expression, LongExpressionsNeedNoDeepRecursion) {
  std::string sum = "$System.Size";
  for (int i = 0; i < 20000; ++i) sum += "+1";
  Expression e;
  EXPECT_TRUE(e.Compile(sum + ">0")) << e.error_code();
  EXPECT_TRUE(e.Compile(std::string(100000, '-') + "$System.Size>0")) << e.error_code();
  EXPECT_TRUE(e.Compile(std::string(100001, '!') + "$System.Size")) << e.error_code();
}

TEST(Expression, TooManyNamesIsAnError) {
  std::string text = "$System.Size>0";
  for (size_t i = 0; i <= Expression::kMaxNames; ++i) text += "|$p" + std::to_string(i) + ">0";
  Expression e;
  EXPECT_FALSE(e.Compile(text));
  EXPECT_EQ(e.error_code(), kExprUnexpectedToken);
}

}  // namespace
}  // namespace trovix::rules
