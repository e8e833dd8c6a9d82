// The search as typed: with an index covering the root, each edit of a name rule runs the
// indexed query again in place of the previous one, and never walks the folders.
#include <gtest/gtest.h>

#include <QComboBox>
#include <QLineEdit>
#include <QTest>

#include <ctime>
#include <filesystem>

#include "index/indexer.h"
#include "index/sqlite/index_database.h"
#include "platform/sqlite_statement.h"
#include "tests/views/frame_test_util.h"
#include "tests/views/screenshots.h"
#include "views/results/results_pane.h"
#include "views/rule_boxes/rule_box.h"
#include "views/frame/search_pane.h"

namespace trovix::views {
namespace {

using testing::FrameSession;

// Indexes `root` (names and facts) into the database the frame of a session in `tree` reads.
void IndexNames(testing::TempTree& tree, const std::string& root) {
  std::filesystem::create_directories(tree.path("cache/trovix"));
  std::string error;
  auto db = engine::index::IndexDatabase::Open(tree.path("cache/trovix/index.db"),
                                               engine::index::IndexDatabase::Access::kWrite, &error);
  ASSERT_TRUE(db) << error;
  engine::index::Indexer indexer(*db);
  ASSERT_TRUE(indexer.AddRoot(root, &error)) << error;
  engine::index::UpdateStats stats;
  ASSERT_TRUE(indexer.Update({}, &stats, {}, {}, false)) << indexer.error();
}

// A rule box with nothing typed in it yet.
rules::RulePtr EmptyRule(std::string_view property) { return rules::Rule::CreateFor(testing::Prop(property)); }

// The line the first rule box is typed into, whichever value widget its property made.
QLineEdit* NameLine(MainFrame& frame) {
  QWidget* value = frame.search_pane()->boxes().front()->valueWidget();
  if (auto* line = qobject_cast<QLineEdit*>(value)) return line;
  return qobject_cast<QComboBox*>(value)->lineEdit();
}

// Types `text` one key at a time, letting the window run between keys as a user's typing does.
void TypeSlowly(QLineEdit* line, const QString& text) {
  for (QChar c : text) {
    QTest::keyClicks(line, QString(c));
    QTest::qWait(5);
  }
}

// Waits until no search runs and the queue holds no end of one; the count of the last search.
qint64 SettledCount(MainFrame& frame, QSignalSpy& finished) {
  for (int i = 0; i < 400 && (frame.search()->running() || finished.isEmpty()); ++i) QTest::qWait(10);
  QTest::qWait(50);
  return finished.isEmpty() ? -1 : finished.last().at(0).toLongLong();
}

TEST(SearchAsTyped, EachKeyOfANameRuleRunsTheIndexedQueryAgain) {
  testing::TempTree tree({"docs/report_2023.txt=1", "docs/report_2024.txt=2", "docs/sub/report_old.md=3",
                          "docs/notes.txt=4", "docs/sub/repair.log=5"});
  IndexNames(tree, tree.path("docs"));
  FrameSession session(tree);
  MainFrame& frame = session.frame();
  session.SetSearch(tree.path("docs"), {EmptyRule("System.ItemNameDisplay")});
  QSignalSpy finished(&frame, &MainFrame::searchFinished);

  TypeSlowly(NameLine(frame), "rep");
  EXPECT_EQ(SettledCount(frame, finished), 4);
  EXPECT_EQ(frame.results()->ItemCount(), 4);
  EXPECT_TRUE(frame.search()->index_answered());

  // Each further key narrows what the list shows, without Start.
  TypeSlowly(NameLine(frame), "ort_20");
  EXPECT_EQ(SettledCount(frame, finished), 2);
  EXPECT_EQ(frame.results()->ItemCount(), 2);
  // A backspace widens it again.
  finished.clear();
  for (int i = 0; i < 3; ++i) QTest::keyClick(NameLine(frame), Qt::Key_Backspace);
  EXPECT_EQ(SettledCount(frame, finished), 3);
  EXPECT_TRUE(session.messages.empty());
}

TEST(SearchAsTyped, OnlyTheIndexAnswersAndOnlyWhereItCoversTheRoot) {
  testing::TempTree tree({"docs/alpha.txt=1", "other/alpha.txt=2"});
  IndexNames(tree, tree.path("docs"));
  // Made after the index: only a walk could find it.
  tree.Add("docs/zebra.txt=3");
  FrameSession session(tree);
  MainFrame& frame = session.frame();
  session.SetSearch(tree.path("docs"), {EmptyRule("System.ItemNameDisplay")});
  QSignalSpy finished(&frame, &MainFrame::searchFinished);
  TypeSlowly(NameLine(frame), "zebra");
  EXPECT_EQ(SettledCount(frame, finished), 0) << "a search as typed walked the folder";
  EXPECT_EQ(frame.results()->ItemCount(), 0);
  // Start asks the question for real: the index found nothing, so the folder is walked.
  EXPECT_EQ(session.RunSearch(), 1);

  // A folder the index does not cover is not searched as typed (a walk per key is no answer).
  frame.search_pane()->SetRootText(QString::fromStdString(tree.path("other")));
  finished.clear();
  NameLine(frame)->clear();
  TypeSlowly(NameLine(frame), "alpha");
  QTest::qWait(200);
  EXPECT_TRUE(finished.isEmpty());
  EXPECT_FALSE(frame.search()->running());
  // Added to the index while the window is open: the next key finds the index covering it.
  IndexNames(tree, tree.path("other"));
  QTest::keyClick(NameLine(frame), Qt::Key_Backspace);
  EXPECT_EQ(SettledCount(frame, finished), 1);
  finished.clear();
  // Nor is a rule on anything but the name.
  session.SetSearch(tree.path("docs"), {EmptyRule("System.Size")});
  TypeSlowly(NameLine(frame), "1");
  QTest::qWait(200);
  EXPECT_TRUE(finished.isEmpty());

  // Text that does not parse yet waits quietly for the next key; Start says what is wrong.
  frame.search_pane()->SetRules({EmptyRule("System.ItemNameDisplay")});
  TypeSlowly(NameLine(frame), "report*.txt [");
  QTest::qWait(200);
  EXPECT_TRUE(frame.search_pane()->RuleErrorText().isEmpty()) << frame.search_pane()->RuleErrorText().toStdString();
  frame.StartOrStop();
  EXPECT_FALSE(frame.search_pane()->RuleErrorText().isEmpty());
  EXPECT_TRUE(session.messages.empty());
}

// A drive the index keeps and that is not mounted: its results come from the catalogue, and
// how old that is stays in view beside the count that ends each search, until the next search.
TEST(SearchAsTyped, TheCataloguesAgeStaysBesideTheCount) {
  testing::TempTree tree({"media/home_report.txt=1", "media/stick/stick_report.txt=2", "other/report.txt=3"});
  IndexNames(tree, tree.path("media"));
  IndexNames(tree, tree.path("other"));
  {
    // The stick's rows carry a catalogue whose drive is mounted nowhere, last seen three days ago.
    std::string error;
    auto db = engine::index::IndexDatabase::Open(tree.path("cache/trovix/index.db"),
                                                 engine::index::IndexDatabase::Access::kWrite, &error);
    ASSERT_TRUE(db) << error;
    const int64_t seen = static_cast<int64_t>(std::time(nullptr)) - 3 * 86400 - 60;
    platform::Statement add(db->db(), "INSERT INTO volumes(identity, fs_type, mount_point, device, mount_id, seen) "
                                      "VALUES('uuid:5eed-57ec', 'ext4', ?, 0, 0, ?)");
    ASSERT_EQ(add.Bind(1, tree.path("media/stick")).Bind(2, seen).Run(), SQLITE_DONE);
    ASSERT_TRUE(db->Exec("UPDATE items SET volume=(SELECT id FROM volumes WHERE identity='uuid:5eed-57ec') "
                         "WHERE name LIKE 'stick%'"));
  }
  FrameSession session(tree);
  MainFrame& frame = session.frame();
  frame.resize(900, 420);
  frame.show();
  session.SetSearch(tree.path("media"), {EmptyRule("System.ItemNameDisplay")});
  QSignalSpy finished(&frame, &MainFrame::searchFinished);
  TypeSlowly(NameLine(frame), "report");
  EXPECT_EQ(SettledCount(frame, finished), 2);
  EXPECT_EQ(frame.status_text(), "2 item(s) found");
  const QString notice = frame.notice_text();
  EXPECT_TRUE(notice.contains(QString::fromStdString(tree.path("media/stick")) + " is not mounted")) << notice.toStdString();
  EXPECT_TRUE(notice.contains("uuid:5eed-57ec, last seen 3 days ago")) << notice.toStdString();
  testing::SaveScreenshot(&frame, "catalogue_age_beside_the_count");

  // Said once, however many keys ran the search again.
  EXPECT_EQ(notice.count("is not mounted"), 1);
  // A search that meets no such drive clears it.
  frame.search_pane()->SetRootText(QString::fromStdString(tree.path("other")));
  finished.clear();
  EXPECT_EQ(session.RunSearch(), 1);
  EXPECT_TRUE(frame.notice_text().isEmpty()) << frame.notice_text().toStdString();
  EXPECT_TRUE(session.messages.empty());
}

}  // namespace
}  // namespace trovix::views
