// The main frame with its real panes: what a search did not read is said at its end, Stop
// stops it, a single file is explained, searches are saved and run again by name. (A search
// filling the list and its count are the accessibility and results tests'.)
#include <gtest/gtest.h>

#include <QApplication>
#include <QTest>

#include "app/settings/saved_lists.h"
#include "tests/views/frame_test_util.h"
#include "views/frame/frame_commands.h"
#include "views/frame/filter_bar.h"
#include "views/frame/properties_dialog.h"
#include "views/results/results_pane.h"
#include "views/rule_boxes/rule_box.h"
#include "views/frame/search_pane.h"

namespace trovix::views {
namespace {

using testing::FrameSession;
using testing::MakeRule;

// Compressed files a contents search passed over are said at its end, in the desktop's words;
// no advice box follows, as every common document type has a reader.
TEST(MainFrame, TheEndOfAContentsSearchSaysWhatWasNotRead) {
  testing::TempTree tree({"docs/a.txt=walrus", "docs/b.txt.gz=x", "docs/c.log.gz=x"});
  FrameSession session(tree);
  MainFrame& frame = session.frame();
  session.SetSearch(tree.path("docs"), {MakeRule("System.Search.Contents", "walrus")});
  QSignalSpy status(frame.results(), &ResultsPane::statusText);
  EXPECT_EQ(session.RunSearch(), 1);
  QStringList said;
  for (const auto& args : status) said << args.at(0).toString();
  EXPECT_TRUE(said.contains("1 item(s) found; 2 .gz files not read: the setting \"Read the file inside compressed "
                            "files\" reads them"))
      << said.join(" | ").toStdString();
  EXPECT_TRUE(session.messages.empty());
}

TEST(MainFrame, StopEndsARunningSearch) {
  testing::TempTree tree;
  for (int i = 0; i < 4000; ++i) tree.Add("many/f" + std::to_string(i) + ".dat=x");
  FrameSession session(tree);
  MainFrame& frame = session.frame();
  frame.search_pane()->SetRootText(QString::fromStdString(tree.path("many")));
  // A contents rule makes every file slow enough to be stopped half-way.
  frame.search_pane()->SetRules({MakeRule("System.Search.Contents", "x")});
  QSignalSpy finished(&frame, &MainFrame::searchFinished);
  frame.StartOrStop();
  ASSERT_TRUE(frame.search()->running());
  frame.StartOrStop();  // the same button stops it
  ASSERT_TRUE(finished.wait(15000));
  EXPECT_FALSE(frame.search()->running());
  EXPECT_EQ(frame.results()->ItemCount(), finished.at(0).at(0).toLongLong());
}

TEST(MainFrame, MissingRulesOrRootAreReportedAndStartNothing) {
  testing::TempTree tree({"docs/a.txt=1"});
  FrameSession session(tree);
  MainFrame& frame = session.frame();
  frame.search_pane()->SetRules({});
  frame.search_pane()->SetRootText(QString::fromStdString(tree.path("docs")));
  frame.StartOrStop();
  ASSERT_EQ(session.messages.size(), 1u);
  EXPECT_EQ(session.messages[0].text, "Please specify what to search for, e.g. a filename");

  frame.search_pane()->SetRules({MakeRule("System.ItemNameDisplay", "*.txt")});
  frame.search_pane()->SetRootText(QString::fromStdString(tree.path("no such folder")));
  frame.StartOrStop();
  ASSERT_EQ(session.messages.size(), 2u);
  EXPECT_EQ(session.messages[1].text, "Please supply a valid root folder for the search");
  EXPECT_FALSE(frame.search()->running());
}

TEST(MainFrame, ASingleFileAsRootIsExplained) {
  testing::TempTree tree({"docs/a.txt=hello", "docs/b.pdf=x"});
  FrameSession session(tree);
  MainFrame& frame = session.frame();
  frame.search_pane()->SetRules({MakeRule("System.ItemNameDisplay", "*.txt")});
  frame.search_pane()->SetRootText(QString::fromStdString(tree.path("docs/a.txt")));
  frame.StartOrStop();
  ASSERT_EQ(session.messages.size(), 1u);
  EXPECT_EQ(session.messages[0].caption, "equivalent expression");
  EXPECT_EQ(session.messages[0].icon, QMessageBox::Information);
  EXPECT_EQ(session.messages[0].text.rfind("FOUND!", 0), 0u);

  frame.search_pane()->SetRootText(QString::fromStdString(tree.path("docs/b.pdf")));
  frame.StartOrStop();
  ASSERT_EQ(session.messages.size(), 2u);
  EXPECT_EQ(session.messages[1].icon, QMessageBox::Critical);
  EXPECT_EQ(session.messages[1].text.rfind("NOT FOUND!", 0), 0u);
  // The list was never touched.
  EXPECT_EQ(frame.results()->ItemCount(), 0);
}

TEST(MainFrame, SavedSearchesAskBeforeACopyAndRunByMenuCommand) {
  testing::TempTree tree({"docs/a.txt=1", "docs/b.txt=2", "docs/c.pdf=3"});
  FrameSession session(tree);
  MainFrame& frame = session.frame();
  EXPECT_FALSE(frame.SaveSearchAs("too early", false));  // nothing searched yet

  session.SetSearch(tree.path("docs"), {MakeRule("System.ItemNameDisplay", "*.pdf")});
  EXPECT_EQ(session.RunSearch(), 1);
  EXPECT_TRUE(frame.SaveSearchAs("pdfs", true));
  session.answer = QMessageBox::No;
  EXPECT_FALSE(frame.SaveSearchAs("pdfs again", true));
  ASSERT_FALSE(session.messages.empty());
  EXPECT_EQ(session.messages.back().text.rfind("The same parameters are saved under name: pdfs\n", 0), 0u);
  ASSERT_EQ(session.app().lists().searches.size(), 1u);

  // Another search, then the saved one again: its rules and root come back and it runs.
  frame.search_pane()->SetRules({MakeRule("System.ItemNameDisplay", "*.txt")});
  frame.search_pane()->SetRootText("/");
  QSignalSpy finished(&frame, &MainFrame::searchFinished);
  frame.RunSavedSearch(0);
  ASSERT_TRUE(finished.wait(15000));
  EXPECT_EQ(frame.results()->ItemCount(), 1);
  EXPECT_EQ(frame.search_pane()->RootText().toStdString(), tree.path("docs"));
  frame.RunSavedSearch(5);  // beyond the list: nothing happens
}

TEST(MainFrame, ADamagedSettingsStoreStartsOnDefaultsAndSaysSoOnce) {
  testing::TempTree tree({"config/velmora/registry.db=this is no database, only some bytes of text"});
  {
    FrameSession session(tree, {}, /*settings_file=*/false);
    ASSERT_EQ(session.messages.size(), 1u);
    EXPECT_NE(session.messages[0].text.find("damaged"), std::string::npos) << session.messages[0].text;
    EXPECT_EQ(session.app().settings().nCharsAutoFilter, 3);  // a default
  }
  // The damaged file was set aside and the defaults saved: the next start has nothing to say.
  FrameSession again(tree, {}, false);
  EXPECT_TRUE(again.messages.empty());
}

TEST(MainFrame, F6WalksThePanesAndAltEnterOpensTheFocusedResultsProperties) {
  testing::TempTree tree({"docs/a.txt=1", "docs/b.txt=2"});
  FrameSession session(tree);
  MainFrame& frame = session.frame();
  frame.show();
  QApplication::setActiveWindow(&frame);
  session.SetSearch(tree.path("docs"), {MakeRule("System.ItemNameDisplay", "*.txt")});
  ASSERT_EQ(session.RunSearch(), 2);
  frame.search_pane()->boxes().front()->valueWidget()->setFocus();
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_F6);
  EXPECT_TRUE(frame.filter_bar()->isAncestorOf(QApplication::focusWidget()));
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_F6);
  EXPECT_TRUE(frame.results()->isAncestorOf(QApplication::focusWidget()));
  // From the list the key goes round to a control of the panel a reader can name.
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_F6);
  QWidget* focus = QApplication::focusWidget();
  ASSERT_TRUE(frame.search_pane()->isAncestorOf(focus));
  EXPECT_NE(focus->focusPolicy(), Qt::NoFocus) << focus->metaObject()->className();
  EXPECT_EQ(focus->accessibleName(), "Rule 1 value");
  QTest::keyClick(focus, Qt::Key_F6, Qt::ShiftModifier);
  EXPECT_TRUE(frame.results()->isAncestorOf(QApplication::focusWidget()));
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_F6, Qt::ShiftModifier);
  EXPECT_TRUE(frame.filter_bar()->isAncestorOf(QApplication::focusWidget()));
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_F6);

  QTest::keyClick(QApplication::focusWidget(), Qt::Key_Down);
  ASSERT_TRUE(frame.results()->FocusedItem());
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return, Qt::AltModifier);
  auto* box = frame.results()->findChild<PropertiesDialog*>();
  ASSERT_NE(box, nullptr);
  box->close();
}

}  // namespace
}  // namespace trovix::views
