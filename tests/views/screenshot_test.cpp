// Pictures of the main window for a look by eye, in the build folder's screenshots/: empty,
// during a search, with results and a selection, long names beside long paths, the detective's
// box, the column menu, the property picker and each rule dialog, at 100% and (by running this
// test again in a child with QT_SCALE_FACTOR=2) at 200%, "@2x". The test checks what a picture
// cannot show by itself: the column menu opens, nothing is drawn outside its widget's parent and
// no two visible controls of a pane overlap.
#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QHeaderView>
#include <QLineEdit>
#include <QTableView>
#include <QTest>
#include <QTimer>

#include "tests/views/frame_test_util.h"
#include "tests/views/screenshots.h"
#include "views/results/results_pane.h"
#include "views/rule_boxes/property_picker.h"
#include "views/rule_boxes/rule_box.h"
#include "views/rule_boxes/rule_dialogs.h"
#include "views/frame/search_pane.h"
#include "views/frame/settings_dialog.h"

namespace trovix::views {
namespace {

using testing::FrameSession;
using testing::MakeRule;

void Save(QWidget* widget, const QString& name) { testing::SaveScreenshot(widget, name); }

// Visible buttons, boxes and fields of `pane` lie inside it and do not cover each other.
void ExpectNoOverlap(QWidget* pane) {
  std::vector<QWidget*> controls;
  for (QWidget* w : pane->findChildren<QWidget*>()) {
    if (!w->isVisible() || w->width() <= 1) continue;
    if (qobject_cast<QAbstractButton*>(w) || qobject_cast<QComboBox*>(w) ||
        (qobject_cast<QLineEdit*>(w) && !qobject_cast<QComboBox*>(w->parentWidget())))
      controls.push_back(w);
  }
  for (QWidget* w : controls) {
    const QRect r(w->mapTo(pane, QPoint(0, 0)), w->size());
    EXPECT_TRUE(pane->rect().contains(r)) << w->accessibleName().toStdString() << " is clipped";
  }
  for (size_t i = 0; i < controls.size(); ++i)
    for (size_t j = i + 1; j < controls.size(); ++j) {
      if (controls[i]->isAncestorOf(controls[j]) || controls[j]->isAncestorOf(controls[i])) continue;
      const QRect a(controls[i]->mapTo(pane, QPoint(0, 0)), controls[i]->size());
      const QRect b(controls[j]->mapTo(pane, QPoint(0, 0)), controls[j]->size());
      EXPECT_FALSE(a.intersects(b)) << controls[i]->accessibleName().toStdString() << " overlaps "
                                    << controls[j]->accessibleName().toStdString();
    }
}

// Photographs the modal dialog that `open` shows, then cancels it.
void SaveModal(const QString& name, const std::function<void()>& open) {
  QTimer::singleShot(300, [name] {
    if (QWidget* dialog = QApplication::activeModalWidget()) {
      dialog->adjustSize();
      Save(dialog, name);
      ExpectNoOverlap(dialog);
      dialog->close();
    } else {
      ADD_FAILURE() << "no dialog for " << name.toStdString();
    }
  });
  open();
}

TEST(Screenshots, MainWindowInItsStates) {
  testing::TempTree tree({"docs/", "docs/plans/", "docs/2024 budget.txt=figures", "docs/notes.txt=a few words",
                          "docs/readme.md=# read me", "docs/plans/q3.txt=third quarter", "docs/photo.jpg=x"});
  FrameSession session(tree);
  MainFrame& frame = session.frame();
  frame.resize(1100, 720);
  frame.show();
  Save(&frame, "main_empty");
  ExpectNoOverlap(frame.search_pane());

  session.SetSearch(tree.path("docs"), {MakeRule("System.ItemNameDisplay", "*.txt"),
                                 MakeRule("System.Size", "< 10 MB"),
                                 MakeRule("System.DateModified", "this year")});
  // The running state as a search shows it while items stream in.
  frame.results()->BeginSearch();
  frame.search_pane()->SetRunning(true);
  Save(&frame, "main_running");
  frame.search_pane()->SetRunning(false);

  EXPECT_EQ(session.RunSearch(), 3);
  frame.results()->view()->selectRow(0);
  frame.results()->view()->setFocus();
  Save(&frame, "main_results");
  ExpectNoOverlap(frame.search_pane());

  // Long names beside long folder paths: the names keep their room, the paths take the rest.
  for (const char* entry :
       {"long/projects/2024/customer correspondence/archive/Minutes of the steering committee "
        "meeting, March 2024 (final).txt=m",
        "long/projects/2024/customer correspondence/archive/deeper/still deeper/and deeper "
        "again/budget.txt=b",
        "long/Quarterly report for the board with appendices and figures.txt=q"})
    tree.Add(entry);
  session.SetSearch(tree.path("long"), {MakeRule("System.ItemNameDisplay", "*.txt")});
  EXPECT_EQ(session.RunSearch(), 3);
  Save(&frame, "main_long_names");

  // The detective's box, as the frame shows it for a single file.
  views::SetMessageBoxHook([](const MessageBoxCall& call) {
    QMessageBox box(call.icon, QString::fromStdString(call.caption), QString::fromStdString(call.text), call.buttons);
    box.show();
    Save(&box, "detective");
    return QMessageBox::Ok;
  });
  frame.search_pane()->SetRootText(QString::fromStdString(tree.path("docs/notes.txt")));
  frame.StartOrStop();

  // The header's menu: columns to show and the check boxes.
  QTimer::singleShot(300, [] {
    QWidget* popup = QApplication::activePopupWidget();
    ASSERT_NE(popup, nullptr);
    Save(popup, "column_menu");
    popup->close();
  });
  emit frame.results()->view()->horizontalHeader()->customContextMenuRequested(QPoint(20, 10));

  // The property picker, filtered as a user types into it.
  PropertyPopup* popup = frame.search_pane()->boxes().front()->picker()->OpenPopup();
  QTest::keyClicks(popup->filterEdit(), "date");
  Save(popup, "property_picker");
  popup->close();

  auto text_rule = MakeRule("System.ItemNameDisplay", "report*");
  SaveModal("text_rule_dialog", [&] { EditTextRule(&frame, *text_rule); });
  auto size_rule = MakeRule("System.Size", "~ 10 KB");
  SaveModal("number_dialog", [&] { EditNumberRule(&frame, *size_rule); });
  auto date_rule = MakeRule("System.DateModified", "1/2/2014");
  SaveModal("date_rule_dialog", [&] { EditNumberRule(&frame, *date_rule); });
  std::string expression = "$System.Size > 1000";
  SaveModal("complex_rule_editor", [&] { EditComplexRule(&frame, &expression); });
  app::Settings settings;
  SaveModal("settings_dialog", [&] { EditSettings(&frame, &settings); });
}

TEST(Screenshots, AtTwiceTheScale) {
  if (testing::InScreenshotChild()) GTEST_SKIP() << "already the child";
  testing::RunAtTwiceTheScale("Screenshots.MainWindowInItsStates");
}

}  // namespace
}  // namespace trovix::views
