// The Properties box lists what the rules see of a real file, and says so when the file is gone.
#include "views/frame/properties_dialog.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QLabel>
#include <QSignalSpy>
#include <QTest>
#include <QTableWidget>

#include "tests/support/extract_env.h"
#include "tests/support/temp_tree.h"
#include "tests/views/screenshots.h"

namespace trovix::views {
namespace {

QString ValueOf(QTableWidget* table, const QString& name) {
  for (int r = 0; r < table->rowCount(); ++r)
    if (table->item(r, 2)->text() == name) return table->item(r, 1)->text();
  return QString();
}

TEST(PropertiesDialog, ListsTheValuesOfAFileAndSaysWhenItIsGone) {
  testing::UseBuiltExtractionHelper();
  testing::TempTree tree({"notes/report 2024.txt=twelve bytes"});
  PropertiesDialog dialog(tree.path("notes/report 2024.txt"));
  dialog.show();
  QSignalSpy loaded(&dialog, &PropertiesDialog::loaded);
  ASSERT_TRUE(loaded.wait(20000));
  EXPECT_EQ(ValueOf(dialog.table(), "System.ItemNameDisplay"), "report 2024.txt");
  EXPECT_EQ(ValueOf(dialog.table(), "System.Size"), "12");
  EXPECT_EQ(ValueOf(dialog.table(), "System.FileExtension"), ".txt");
  // Contents are text, not a property: never listed.
  EXPECT_TRUE(ValueOf(dialog.table(), "System.Search.Contents").isEmpty());
  testing::SaveScreenshot(&dialog, "properties_dialog");

  PropertiesDialog gone(tree.path("notes/moved away.txt"));
  QSignalSpy gone_loaded(&gone, &PropertiesDialog::loaded);
  ASSERT_TRUE(gone_loaded.wait(20000));
  EXPECT_EQ(gone.table()->rowCount(), 0);
  EXPECT_TRUE(gone.findChild<QLabel*>()->text().contains("cannot be read"));
}

TEST(PropertiesDialog, ClosingWhileReadingIsSafe) {
  testing::TempTree tree({"a.txt=x"});
  for (int i = 0; i < 20; ++i) {
    auto* dialog = ShowProperties(nullptr, tree.path("a.txt"));
    dialog->close();  // deleted later, possibly before its values arrive
  }
  // The deferred deletions and the late values both run here; neither may touch a dead box.
  for (int i = 0; i < 50; ++i) {
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QTest::qWait(20);
  }
}

}  // namespace
}  // namespace trovix::views
