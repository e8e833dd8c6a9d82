#include "index/dialect/sql_parser.h"

#include <gtest/gtest.h>

#include "index/dialect/index_query_text.h"
#include "props/catalogue.h"
#include "rules/query/query_builder.h"
#include "rules/rule_set.h"

namespace trovix::engine::index {
namespace {

std::string Dump(const ContainsNode& n) {
  switch (n.kind) {
    case ContainsNode::Kind::kTerm:
      return (n.phrase ? "\"" + n.text + "\"" : n.text) + (n.prefix ? "*" : "");
    case ContainsNode::Kind::kNot: return "(not " + Dump(*n.children[0]) + ")";
    default: {
      std::string out = n.kind == ContainsNode::Kind::kAnd ? "(and" : "(or";
      for (const auto& c : n.children) out += " " + Dump(*c);
      return out + ")";
    }
  }
}

// The tree as a compact S-expression, to compare shapes in one line.
std::string Dump(const SqlCondition& c) {
  static const char* const kOps[] = {"=", "<>", "<", "<=", ">", ">="};
  switch (c.kind) {
    case SqlCondition::Kind::kAnd:
    case SqlCondition::Kind::kOr: {
      std::string out = c.kind == SqlCondition::Kind::kAnd ? "(and" : "(or";
      for (const auto& child : c.children) out += " " + Dump(*child);
      return out + ")";
    }
    case SqlCondition::Kind::kNot: return "(not " + Dump(*c.children[0]) + ")";
    case SqlCondition::Kind::kCompare: {
      std::string v;
      switch (c.value.kind) {
        case SqlLiteral::Kind::kInteger: v = std::to_string(c.value.integer); break;
        case SqlLiteral::Kind::kFloat: v = std::to_string(c.value.real); break;
        case SqlLiteral::Kind::kText: v = "'" + c.value.text + "'"; break;
        case SqlLiteral::Kind::kBool: v = c.value.integer ? "true" : "false"; break;
      }
      return c.column + kOps[static_cast<int>(c.op)] + v;
    }
    case SqlCondition::Kind::kLike: return c.column + " like '" + c.value.text + "'";
    case SqlCondition::Kind::kContains: return "contains(" + c.column + ", " + Dump(*c.query) + ")";
    case SqlCondition::Kind::kScope: return "scope(" + c.path + ")";
    case SqlCondition::Kind::kDirectory: return "dir(" + c.path + ")";
  }
  return "?";
}

std::string ParseDump(const std::string& text) {
  SqlStatement s;
  std::string error;
  if (!ParseSql(text, &s, &error)) return "error: " + error;
  return s.where ? Dump(*s.where) : "(none)";
}

std::string ParseError(const std::string& text) {
  SqlStatement s;
  std::string error;
  EXPECT_FALSE(ParseSql(text, &s, &error)) << text;
  return error;
}

TEST(ParseSql, BuilderOutputRoundTrip) {
  const std::string select = IndexScopeText("/home/u/100% done", true, "System.ItemPathDisplay");
  EXPECT_EQ(ParseDump(InsertWhere(select, "WHERE ( (System.Size>=100) AND ( NOT (CONTAINS(System.ItemNameDisplay,'\"abc*\"')) OR "
                                          "(System.DateModified>='2024/03/05 00:00:00' AND System.DateModified<='2024/03/05 23:59:59')))")),
            "(and (and System.Size>=100 (or (not contains(System.ItemNameDisplay, \"abc\"*)) "
            "(and System.DateModified>='2024/03/05 00:00:00' System.DateModified<='2024/03/05 23:59:59'))) "
            "scope(/home/u/100% done))");
  EXPECT_EQ(ParseDump(InsertWhere(IndexScopeText("/", false, "Path"), "WHERE ( (System.ItemNameDisplay LIKE '[%]a%_'))")),
            "(and System.ItemNameDisplay like '[%]a%_' dir())");
  // The builder's WHERE part left empty: the scope alone.
  EXPECT_EQ(ParseDump(InsertWhere(IndexScopeText("/srv", true, "Path"), "")), "scope(/srv)");
}

TEST(ParseSql, BuilderTextFromRuleSet) {
  rules::RulePtr size = rules::Rule::Create(props::DefaultCatalogue().FindProperty("System.Size")->key);
  size->SetFlags(rules::cf::kNotEqual);
  size->SetMin(static_cast<uint64_t>(int64_t{-3}));
  rules::RuleSet set;
  ASSERT_TRUE(set.Compile({size}, false));
  EXPECT_EQ(ParseDump(InsertWhere(IndexScopeText("/x", true, "Path"), rules::BuildWhere(set).text)),
            "(and System.Size<>-3 scope(/x))");
}

TEST(ParseSql, HandEditedForms) {
  EXPECT_EQ(ParseDump("select \"System.Size\", path from localhost.systemindex where not \"System.Size\" != 1.5e3"),
            "(not System.Size<>1500.000000)");
  EXPECT_EQ(ParseDump("SELECT Path FROM SystemIndex WHERE System.IsFolder = true or System.Title = 'it''s'"),
            "(or System.IsFolder=true System.Title='it's')");
  EXPECT_EQ(ParseDump("SELECT Path FROM SystemIndex WHERE CONTAINS('apple \"big pie*\" OR NOT (x* AND y)')"),
            "contains(, (or (and apple \"big pie\"*) (not (and x* y))))");
  EXPECT_EQ(ParseDump("SELECT Path FROM SystemIndex WHERE System.ItemNameDisplay NOT LIKE 'a%';"),
            "(not System.ItemNameDisplay like 'a%')");
  EXPECT_EQ(ParseDump("SELECT Path FROM SystemIndex WHERE DIRECTORY='FILE:\\srv\\share\\'"), "dir(/srv/share)");
  EXPECT_EQ(ParseDump("SELECT * FROM SystemIndex"), "(none)");
}

TEST(ParseSql, ErrorsNamePositions) {
  EXPECT_EQ(ParseError("SELECT Path FROM SystemIndex WHERE (System.Size > 1))"), "unexpected ')' at 53");
  EXPECT_EQ(ParseError("SELECT Path FROM SystemIndex WHERE System.Size >"), "expected a value, found the end of the text at 49");
  EXPECT_EQ(ParseError("SELECT Path FROM Other WHERE a=1"), "unknown table 'Other' at 18");
  EXPECT_EQ(ParseError("SELECT Path FROM SystemIndex WHERE a = 'open"), "unterminated string starting at 40");
  EXPECT_EQ(ParseError("SELECT Path FROM SystemIndex WHERE a # 1"), "unexpected '#' at 38");
  // Positions count characters, not bytes.
  EXPECT_EQ(ParseError("SELECT Path FROM SystemIndex WHERE a = 'ä' )"), "unexpected ')' at 44");
  EXPECT_EQ(ParseError("SELECT Path FROM SystemIndex WHERE CONTAINS('a (b')"), "expected ')', found end of query at 50");
  EXPECT_EQ(ParseError("SELECT Path FROM SystemIndex WHERE SCOPE='/x'"), "SCOPE needs 'file:<path>', found '/x' at 42");
  EXPECT_EQ(ParseError("SELECT Path FROM SystemIndex WHERE a LIKE 3"), "LIKE needs a quoted pattern, found '3' at 43");
  EXPECT_EQ(ParseError(""), "expected SELECT, found the end of the text at 1");
}

TEST(ParseSql, DepthIsLimited) {
  std::string nested = "SELECT Path FROM SystemIndex WHERE ";
  for (int i = 0; i < kMaxSqlDepth; ++i) nested += "(";
  nested += "a=1";
  for (int i = 0; i < kMaxSqlDepth; ++i) nested += ")";
  EXPECT_EQ(ParseDump(nested), "a=1");
  EXPECT_NE(ParseError("SELECT Path FROM SystemIndex WHERE (" + nested.substr(35) + ")").find("nested deeper than 200"),
            std::string::npos);

  std::string nots = "SELECT Path FROM SystemIndex WHERE ";
  for (int i = 0; i < 100000; ++i) nots += "NOT ";
  EXPECT_NE(ParseError(nots + "a=1").find("nested deeper"), std::string::npos);
  std::string query = "SELECT Path FROM SystemIndex WHERE CONTAINS('";
  for (int i = 0; i < 100000; ++i) query += "(";
  EXPECT_NE(ParseError(query + "')").find("nested deeper"), std::string::npos);

  // Long flat chains are one node, not a deep tree.
  std::string chain = "SELECT Path FROM SystemIndex WHERE a=0";
  for (int i = 1; i < 5000; ++i) chain += " OR a=" + std::to_string(i);
  SqlStatement s;
  std::string error;
  ASSERT_TRUE(ParseSql(chain, &s, &error)) << error;
  EXPECT_EQ(s.where->children.size(), 5000u);
}

TEST(ParseDateLiteral, FormsAndRejects) {
  base::FileTime t = 0, u = 0;
  ASSERT_TRUE(ParseDateLiteral("2024/03/05 10:20:30", &t));
  ASSERT_TRUE(ParseDateLiteral("2024-3-5 10:20:30", &u));
  EXPECT_EQ(t, u);
  const base::CivilTime c = base::CivilFromFileTime(t);
  EXPECT_EQ(c.hour * 10000 + c.minute * 100 + c.second, 102030);
  ASSERT_TRUE(ParseDateLiteral("2024/03/05", &u));
  EXPECT_EQ(t - u, (10 * 3600 + 20 * 60 + 30) * base::kTicksPerSecond);
  for (const char* bad : {"2024/13/01", "2024/02/30 00:00:00", "2024/03-05", "24/03/05", "2024/03/05 1:2", "yesterday", ""})
    EXPECT_FALSE(ParseDateLiteral(bad, &t)) << bad;
}

}  // namespace
}  // namespace trovix::engine::index
