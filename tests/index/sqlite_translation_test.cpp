#include "index/sqlite/sqlite_translation.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>

#include "base/file_time.h"
#include "index/dialect/index_query_text.h"
#include "index/sqlite/index_schema.h"
#include "index/dialect/sql_parser.h"
#include "index/sqlite/sqlite_functions.h"
#include "index/sqlite/text_pieces.h"
#include "platform/sqlite_statement.h"
#include "props/catalogue.h"
#include "rules/patterns/folding.h"
#include "rules/query/query_builder.h"
#include "rules/rule_set.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine::index {
namespace {

using Ids = std::vector<int64_t>;

base::FileTime Utc(int y, int mo, int d, int h, int mi, int s) {
  base::CivilTime c;
  c.year = y, c.month = mo, c.day = d, c.hour = h, c.minute = mi, c.second = s;
  return base::FileTimeFromCivil(c);
}

const base::FileTime kT0 = Utc(2024, 3, 5, 10, 20, 30);

struct Row {
  int64_t id;
  std::string name;
  bool folder;
  int64_t size;      // negative: missing
  int64_t modified;  // negative: missing
};

// A small index, written as the indexer writes it:
//   /home/u                  3   ärger.txt (10), report_2024.pdf (11), x[y].txt (15)
//   /home/u/100% done        4   ABC%def.txt (12, no size, no date)
//   /home/u/100% done/sub    5   ΣΊΣΥΦΟΣ.md (13)
//   /home/u2                 6   abc.txt (14)
class SqliteTranslation : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(sqlite3_open((tree_.root() + "/index.db").c_str(), &db_), SQLITE_OK);
    ASSERT_EQ(RegisterIndexFunctions(db_), SQLITE_OK);
    Exec("PRAGMA synchronous=OFF");
    Exec(SchemaSql(kTrigramTokenizer));
    Exec("INSERT INTO folders VALUES (1,'/'),(2,'/home'),(3,'/home/u'),(4,'/home/u/100% done'),"
         "(5,'/home/u/100% done/sub'),(6,'/home/u2')");
    AddItem(2, 1, "home", 1, -1, -1);
    AddItem(3, 2, "u", 1, -1, -1);
    AddItem(4, 3, "100% done", 1, -1, -1);
    AddItem(5, 4, "sub", 1, -1, -1);
    AddItem(6, 2, "u2", 1, -1, -1);
    AddItem(10, 3, "Ärger.TXT", 0, 100, kT0 + base::kTicksPerSecond / 2);
    AddItem(11, 3, "report_2024.pdf", 0, 2000, kT0 + base::kTicksPerSecond);
    AddItem(12, 4, "ABC%def.txt", 0, -1, -1);
    AddItem(13, 5, "ΣΊΣΥΦΟΣ.md", 0, 5, kT0 - base::kTicksPerDay);
    AddItem(14, 6, "abc.txt", 0, 50, kT0);
    AddItem(15, 3, "x[y].txt", 0, 7, kT0);
    Exec("INSERT INTO prop_names VALUES (1,'System.Title'),(2,'System.Image.HorizontalSize')");
    Exec("INSERT INTO props VALUES (10,1,'Quarterly Report'),(11,1,'Ärger im Büro'),(10,2,640),(11,2,1920)");
    AddContents(10, "The Quick brown fox");
    AddContents(11, "Lazy dogs\n   SLEEP all day");
  }
  void TearDown() override { sqlite3_close(db_); }

  void Exec(const std::string& sql) {
    char* message = nullptr;
    ASSERT_EQ(sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &message), SQLITE_OK) << message;
  }
  // Negative size or time: missing (NULL).
  void AddItem(int64_t id, int64_t parent, const std::string& name, int folder, int64_t size, int64_t modified) {
    rows_.push_back({id, name, folder != 0, size, modified});
    const std::string key = rules::detail::FoldText(name);
    platform::Statement item(db_, "INSERT INTO items(id, parent, name, name_key, is_folder, size, modified, state) "
                                  "VALUES (?,?,?,?,?,?,?,1)");
    item.Bind(1, id).Bind(2, parent).Bind(3, name).Bind(5, int64_t{folder});
    if (key != name) item.Bind(4, key);
    if (size >= 0) item.Bind(6, size);
    if (modified >= 0) item.Bind(7, modified);
    ASSERT_EQ(item.Run(), SQLITE_DONE);
    ASSERT_EQ(platform::Statement(db_, "INSERT INTO names(rowid, key) VALUES (?,?)").Bind(1, id).Bind(2, key).Run(),
              SQLITE_DONE);
  }
  void AddContents(int64_t id, const std::string& text) {
    const std::string kept = IndexedText(text);
    ASSERT_EQ(platform::Statement(db_, "INSERT INTO texts(id, lead, body) VALUES (?,0,?)")
                  .Bind(1, TextPieceId(id, 0)).BindBlob(2, CompressText(kept)).Run(),
              SQLITE_DONE);
    ASSERT_EQ(platform::Statement(db_, "INSERT INTO contents(rowid, text) VALUES (?,?)")
                  .Bind(1, TextPieceId(id, 0)).Bind(2, kept).Run(),
              SQLITE_DONE);
  }

  // The ids a query returns, sorted; an error fails the test.
  Ids Run(const std::string& where) {
    std::string error;
    Ids ids;
    if (!TryRun("SELECT Path FROM SystemIndex WHERE " + where, &ids, &error)) ADD_FAILURE() << where << ": " << error;
    return ids;
  }
  std::string ErrorOf(const std::string& where) {
    std::string error;
    Ids ids;
    EXPECT_FALSE(TryRun("SELECT Path FROM SystemIndex WHERE " + where, &ids, &error)) << where;
    return error;
  }
  bool TryRun(const std::string& text, Ids* ids, std::string* error) {
    SqlStatement statement;
    SqliteQuery query;
    SqliteTranslateOptions options;
    options.local_host = "desk";
    if (!ParseSql(text, &statement, error) || !TranslateToSqlite(statement, options, &query, error)) return false;
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db_, query.sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK) {
      *error = sqlite3_errmsg(db_) + std::string(" in ") + query.sql;
      return false;
    }
    EXPECT_EQ(BindSqliteParams(stmt, query.params), SQLITE_OK);
    int rc;
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) ids->push_back(sqlite3_column_int64(stmt, 0));
    sqlite3_finalize(stmt);
    if (rc != SQLITE_DONE) {
      *error = sqlite3_errmsg(db_);
      return false;
    }
    std::sort(ids->begin(), ids->end());
    return true;
  }

  testing::TempTree tree_;
  sqlite3* db_ = nullptr;
  std::vector<Row> rows_;
};

TEST_F(SqliteTranslation, NamesFoldAsTheWalkDoes) {
  EXPECT_EQ(Run("CONTAINS(System.ItemNameDisplay,'\"ÄRG*\"')"), (Ids{10}));
  EXPECT_EQ(Run("CONTAINS(System.ItemNameDisplay,'\"σίσυφ*\"')"), (Ids{13}));
  // Shorter than a trigram: straight to the substring test.
  EXPECT_EQ(Run("CONTAINS(System.ItemNameDisplay,'\"Bc\"')"), (Ids{12, 14}));
  // Several words: each must be there.
  EXPECT_EQ(Run("CONTAINS(System.ItemNameDisplay,'abc txt')"), (Ids{12, 14}));
  EXPECT_EQ(Run("CONTAINS(System.ItemNameDisplay,'abc OR report')"), (Ids{11, 12, 14}));
  EXPECT_EQ(Run("System.ItemNameDisplay='ärger.txt'"), (Ids{10}));
  EXPECT_EQ(Run("System.ItemNameDisplay<>'ärger.txt' AND System.IsFolder=FALSE"), (Ids{11, 12, 13, 14, 15}));
}

TEST_F(SqliteTranslation, LikeWithBracketEscapes) {
  EXPECT_EQ(Run("System.ItemNameDisplay LIKE 'abc[%]def%'"), (Ids{12}));
  EXPECT_EQ(Run("System.ItemNameDisplay LIKE 'ABC%'"), (Ids{12, 14}));
  EXPECT_EQ(Run("System.ItemNameDisplay LIKE 'x[[]y]%'"), (Ids{15}));
  EXPECT_EQ(Run("System.ItemNameDisplay LIKE '_rger.txt'"), (Ids{10}));  // one code point
  EXPECT_EQ(Run("System.ItemNameDisplay LIKE 'report[_]2024%'"), (Ids{11}));
  EXPECT_EQ(Run("System.ItemNameDisplay LIKE 'reportx2024%'"), (Ids{}));
  EXPECT_EQ(Run("System.ItemNameDisplay NOT LIKE '%.txt' AND System.IsFolder=FALSE"), (Ids{11, 13}));
}

// A name test that every row must pass drives the query from the names table, so its first
// rows come before the trigram's whole list is read; under OR or NOT, without a trigram, or
// with DIRECTORY (one folder's items come faster from their own index) the items table leads.
// The answers are the same either way.
TEST_F(SqliteTranslation, NameTestsEveryRowPassesDriveTheQuery) {
  struct Case {
    const char* where;
    bool driven;
    Ids ids;
  };
  const Case cases[] = {
      {"System.ItemNameDisplay LIKE '%port%' AND SCOPE='file:/home/u'", true, {11}},
      {"CONTAINS(System.ItemNameDisplay,'\"ärg*\"') AND System.Size>=0", true, {10}},
      {"System.ItemNameDisplay LIKE '%abc%' AND System.ItemNameDisplay LIKE '%def%'", true, {12}},
      {"System.ItemNameDisplay LIKE '%port%' OR System.Size=5", false, {11, 13}},
      {"NOT System.ItemNameDisplay LIKE '%txt%' AND System.IsFolder=FALSE", false, {11, 13}},
      {"CONTAINS(System.ItemNameDisplay,'abc OR report')", false, {11, 12, 14}},
      {"System.ItemNameDisplay LIKE '%abc%' AND DIRECTORY='file:/home/u2'", false, {14}},
      {"System.ItemNameDisplay LIKE '%bc%' AND SCOPE='file:/home'", false, {12, 14}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.where);
    SqlStatement statement;
    SqliteQuery query;
    std::string error;
    ASSERT_TRUE(ParseSql(std::string("SELECT Path FROM SystemIndex WHERE ") + c.where, &statement, &error)) << error;
    ASSERT_TRUE(TranslateToSqlite(statement, {}, &query, &error)) << error;
    EXPECT_EQ(query.sql.rfind("SELECT items.id FROM names CROSS JOIN items", 0) == 0, c.driven) << query.sql;
    EXPECT_EQ(Run(c.where), c.ids);
  }
}

TEST_F(SqliteTranslation, DatesStandForTheirWholeSecond) {
  // 10 was written half a second after 10:20:30, 11 at 10:20:31 sharp, 14 and 15 at 10:20:30.
  EXPECT_EQ(Run("System.DateModified='2024/03/05 10:20:30'"), (Ids{10, 14, 15}));
  EXPECT_EQ(Run("System.DateModified<='2024/03/05 10:20:30'"), (Ids{10, 13, 14, 15}));
  EXPECT_EQ(Run("System.DateModified<'2024/03/05 10:20:30'"), (Ids{13}));
  EXPECT_EQ(Run("System.DateModified>'2024/03/05 10:20:30'"), (Ids{11}));
  EXPECT_EQ(Run("System.DateModified>='2024-03-05 10:20:31'"), (Ids{11}));
  EXPECT_EQ(Run("System.DateModified<>'2024/03/05 10:20:30'"), (Ids{11, 13}));
}

TEST_F(SqliteTranslation, MissingValuesUnderNot) {
  EXPECT_EQ(Run("System.Size>=0 AND System.IsFolder=FALSE"), (Ids{10, 11, 13, 14, 15}));
  // 12 has no size: it fails the test, and so passes its NOT, as in the walk.
  EXPECT_EQ(Run("NOT System.Size>=60 AND System.IsFolder=FALSE"), (Ids{12, 13, 14, 15}));
  EXPECT_EQ(Run("NOT (System.Size>=60 AND System.DateModified>'2000/01/01 00:00:00') AND System.IsFolder=FALSE"),
            (Ids{12, 13, 14, 15}));
  EXPECT_EQ(Run("NOT NOT System.Size>=60"), (Ids{10, 11}));
}

TEST_F(SqliteTranslation, ScopeAndDirectory) {
  EXPECT_EQ(Run("SCOPE='file:/home/u'"), (Ids{4, 5, 10, 11, 12, 13, 15}));
  EXPECT_EQ(Run("DIRECTORY='file:/home/u/'"), (Ids{4, 10, 11, 15}));
  EXPECT_EQ(Run("SCOPE='file:'"), (Ids{2, 3, 4, 5, 6, 10, 11, 12, 13, 14, 15}));
  EXPECT_EQ(Run("DIRECTORY='file:/nowhere'"), (Ids{}));

  // A root with "%" in it, through the builder's text.
  Ids ids;
  std::string error;
  const std::string text = InsertWhere(IndexScopeText("/home/u/100% done", true, "Path"),
                                       "WHERE ( (System.ItemNameDisplay LIKE '%[%]%'))");
  ASSERT_TRUE(TryRun(text, &ids, &error)) << error;
  EXPECT_EQ(ids, (Ids{12}));
}

TEST_F(SqliteTranslation, PathsFromFolders) {
  EXPECT_EQ(Run("System.ItemPathDisplay='/home/u/ÄRGER.txt'"), (Ids{10}));
  EXPECT_EQ(Run("System.ItemPathDisplay='/home'"), (Ids{2}));
  EXPECT_EQ(Run("System.ItemFolderPathDisplay='/home/u/100% done'"), (Ids{5, 12}));
  EXPECT_EQ(Run("System.ItemPathDisplay LIKE '/home/u/100[%] done/%'"), (Ids{5, 12, 13}));
}

TEST_F(SqliteTranslation, PropertiesInTheirOwnTable) {
  EXPECT_EQ(Run("System.Title='QUARTERLY report'"), (Ids{10}));
  EXPECT_EQ(Run("CONTAINS(System.Title,'\"BÜRO\"')"), (Ids{11}));
  EXPECT_EQ(Run("System.Image.HorizontalSize>1000"), (Ids{11}));
  EXPECT_EQ(Run("NOT System.Title='quarterly report' AND System.IsFolder=FALSE"), (Ids{11, 12, 13, 14, 15}));
  // A property the database has never seen matches nothing, and its NOT everything.
  EXPECT_EQ(Run("System.Comment='x'"), (Ids{}));
  EXPECT_EQ(Run("NOT System.Comment='x' AND System.IsFolder=FALSE"), (Ids{10, 11, 12, 13, 14, 15}));
}

TEST_F(SqliteTranslation, ContentsPhrases) {
  EXPECT_EQ(Run("CONTAINS('\"QUICK brown\"')"), (Ids{10}));
  EXPECT_EQ(Run("CONTAINS('quick OR sleep')"), (Ids{10, 11}));
  EXPECT_EQ(Run("CONTAINS('\"uick bro\"')"), (Ids{10}));  // trigrams find substrings
  // A phrase reads the text's line breaks and runs of blanks as one blank, and its own too.
  EXPECT_EQ(Run("CONTAINS('\"dogs sleep\"')"), (Ids{11}));
  EXPECT_EQ(Run("CONTAINS('\"dogs   sleep all\"')"), (Ids{11}));
  EXPECT_EQ(Run("CONTAINS('\"quick fox\"')"), (Ids{}));  // every trigram is there, the phrase is not
  // Its first word may end a longer one and its last begin one, as substrings do.
  EXPECT_EQ(Run("CONTAINS('\"ick brown fo\"')"), (Ids{10}));
  EXPECT_EQ(Run("CONTAINS('\"azy dogs sleep al\"')"), (Ids{11}));
  EXPECT_EQ(Run("CONTAINS('dogs NOT fox')"), (Ids{11}));
  EXPECT_EQ(Run("CONTAINS(System.Search.Contents, 'fox')"), (Ids{10}));
  EXPECT_EQ(ErrorOf("CONTAINS('ox')"), "contents queries need at least 3 characters at 36");
}

TEST_F(SqliteTranslation, RefusesWhatItCannotAnswer) {
  std::string error;
  Ids ids;
  EXPECT_FALSE(TryRun("SELECT Path FROM far.SystemIndex", &ids, &error));
  EXPECT_NE(error.find("'far'"), std::string::npos);
  EXPECT_TRUE(TryRun("SELECT Path FROM DESK.SystemIndex WHERE System.Size=5", &ids, &error)) << error;
  EXPECT_TRUE(TryRun("SELECT Path FROM localhost.SystemIndex WHERE System.Size=5", &ids, &error)) << error;
  EXPECT_EQ(ErrorOf("System.DateModified>'last week'"),
            "System.DateModified holds dates: compare it with 'YYYY/MM/DD hh:mm:ss' at 36");
  EXPECT_EQ(ErrorOf("System.Size LIKE '1%'"), "LIKE needs a property that holds text at 36");
  EXPECT_EQ(ErrorOf("System.Size='big'"), "System.Size holds numbers: compare it with a number at 36");
  EXPECT_EQ(ErrorOf("CONTAINS(System.Size,'1')"), "CONTAINS needs a property that holds text at 36");
}

TEST_F(SqliteTranslation, LongChainsStayWithinSqliteDepth) {
  std::string chain = "System.Size=0";
  for (int i = 1; i < 3000; ++i) chain += " OR System.Size=" + std::to_string(i);
  EXPECT_EQ(Run(chain), (Ids{10, 11, 13, 14, 15}));
  EXPECT_EQ(Run("System.Size=5 OR CONTAINS(System.ItemNameDisplay, 'abc txt abc txt abc txt abc txt abc')"),
            (Ids{12, 13, 14}));
}

TEST_F(SqliteTranslation, ValuesAreNeverSpliced) {
  SqlStatement statement;
  SqliteQuery query;
  std::string error;
  ASSERT_TRUE(ParseSql("SELECT Path FROM SystemIndex WHERE System.Title = 'x'') OR 1=1 --' AND "
                       "System.ItemNameDisplay LIKE 'a''b' AND System.Size = 12345",
                       &statement, &error)) << error;
  ASSERT_TRUE(TranslateToSqlite(statement, {}, &query, &error)) << error;
  EXPECT_EQ(query.sql.find("1=1"), std::string::npos) << query.sql;
  EXPECT_EQ(query.sql.find("a'b"), std::string::npos) << query.sql;
  EXPECT_EQ(query.sql.find("12345"), std::string::npos) << query.sql;
}

// The walk's side: each row's values handed to the rule set as the folder walk hands them.
class RowValues final : public rules::ValueProvider {
 public:
  void LoadValue(rules::RuleMatcher& m, int32_t, size_t) override {
    const std::string& property = m.rule().Descriptor()->name;
    if (property == "System.ItemNameDisplay") m.SetText(row->name);
    if (property == "System.Size") m.SetNumber(row->size < 0 ? kNoValue : static_cast<uint64_t>(row->size));
    if (property == "System.DateModified")
      m.SetNumber(row->modified < 0 ? kNoValue : static_cast<uint64_t>(row->modified));
  }
  const Row* row = nullptr;
};

rules::RulePtr RuleOn(const char* property, uint32_t flags, std::string text = {}, int64_t min = 0,
                      int32_t context = rules::kContextAnd, int32_t indent = 0) {
  rules::RulePtr rule = rules::Rule::Create(props::DefaultCatalogue().FindProperty(property)->key);
  rule->SetFlags(flags);
  if (!text.empty()) rule->SetText(std::move(text));
  rule->SetMin(static_cast<uint64_t>(min));
  rule->SetContext(context);
  rule->SetIndent(indent);
  return rule;
}

// The same rules down both roads: the index's answer must be the walk's.
TEST_F(SqliteTranslation, IndexAgreesWithTheWalk) {
  using namespace rules;
  const std::vector<std::vector<RulePtr>> lists = {
      {RuleOn("System.ItemNameDisplay", cf::kIgnoreCase, "ÄRG")},
      {RuleOn("System.ItemNameDisplay", cf::kIgnoreCase, "txt"), RuleOn("System.Size", cf::kLowerBound, {}, 60, kContextAndNot)},
      {RuleOn("System.ItemNameDisplay", cf::kIgnoreCase, "σίσ"), RuleOn("System.Size", cf::kEqual, {}, 7, kContextOr)},
      // Whole seconds: the dialect's dates have no fractions.
      {RuleOn("System.DateModified", cf::kDateKind | cf::kLowerBound, {}, kT0 + base::kTicksPerSecond),
       RuleOn("System.ItemNameDisplay", cf::kIgnoreCase | cf::kExact, "ABC.TXT", 0, kContextOr)},
      {RuleOn("System.Size", cf::kLowerBound, {}, 1), RuleOn("System.ItemNameDisplay", cf::kIgnoreCase, "abc", 0, kContextAnd, 0),
       RuleOn("System.ItemNameDisplay", cf::kIgnoreCase, "report", 0, kContextOrNot, 1)},
  };
  RulePtr freeform = RuleOn("System.ItemNameDisplay", cf::kIgnoreCase, "TXT \"abc\"");
  freeform->SetKind(kKindFreeform);
  std::vector<std::vector<RulePtr>> all = lists;
  all.push_back({freeform});
  all.push_back({RuleOn("System.ItemNameDisplay", cf::kIgnoreCase | cf::kExact, "ABC*")});
  all.push_back({RuleOn("System.ItemNameDisplay", cf::kIgnoreCase | cf::kExact, "?rger.txt")});
  for (const auto& list : all) {
    RuleSet set;
    ASSERT_TRUE(set.Compile(list, false));
    const BuildResult built = BuildWhere(set);
    SCOPED_TRACE(built.text);
    ASSERT_TRUE(built.all_translated);
    Ids index;
    std::string error;
    ASSERT_TRUE(TryRun(InsertWhere(IndexScopeText("/", true, "Path"), built.text), &index, &error)) << error;

    RowValues values;
    set.set_value_provider(&values);
    Ids walk;
    for (const Row& row : rows_) {
      values.row = &row;
      if (!row.folder && set.Evaluate()) walk.push_back(row.id);
    }
    std::erase_if(index, [&](int64_t id) {
      return std::any_of(rows_.begin(), rows_.end(), [&](const Row& r) { return r.id == id && r.folder; });
    });
    EXPECT_EQ(index, walk);
  }
}

}  // namespace
}  // namespace trovix::engine::index
