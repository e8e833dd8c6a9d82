// The results pane as the user meets it: real files in a temporary folder, real widgets on
// the offscreen platform, messages recorded through the list's message hook.
#include <gtest/gtest.h>

#include <QAccessible>
#include <QApplication>
#include <QBrush>
#include <QPalette>
#include <QClipboard>
#include <QCheckBox>
#include <QHeaderView>
#include <QImage>
#include <QListView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabWidget>
#include <QVBoxLayout>
#include <QTableView>
#include <QTest>
#include <QToolButton>
#include <filesystem>
#include <string>
#include <vector>

#include "app/settings/settings_store.h"
#include "props/catalogue.h"
#include "tests/support/temp_tree.h"
#include "tests/views/screenshots.h"
#include "tests/views/qt_wait.h"
#include "engine/results/column_set.h"
#include "views/frame/filter_bar.h"
#include "views/program/message_box.h"
#include "views/results/results_model.h"
#include "views/results/results_pane.h"

QT_BEGIN_NAMESPACE
// Readable failures.
inline void PrintTo(const QString& s, std::ostream* os) { *os << '"' << s.toStdString() << '"'; }
QT_END_NAMESPACE

namespace trovix::views {
namespace {

using props::ShellItemPtr;

class ResultsPaneTest : public ::testing::Test {
 protected:
  void SetUp() override {
    previous_hook_ = SetMessageBoxHook([this](const MessageBoxCall& box) {
      messages_.push_back(box.string_id);
      return QMessageBox::Ok;
    });
  }
  void TearDown() override { SetMessageBoxHook(previous_hook_); }

  std::vector<ShellItemPtr> Items(const testing::TempTree& tree, std::initializer_list<const char*> names) {
    std::vector<ShellItemPtr> items;
    for (const char* n : names) items.push_back(props::ShellItem::FromPath(tree.path(n)));
    return items;
  }
  // Runs a whole search that found `items`.
  void Search(ResultsPane& pane, std::vector<ShellItemPtr> items, bool index_answered = false) {
    pane.BeginSearch();
    pane.AddResults(std::move(items));
    pane.EndSearch(index_answered);
  }
  QStringList Column0(ResultsPane& pane) {
    QStringList names;
    for (int r = 0; r < pane.VisibleCount(); ++r) names << pane.model()->CellText(r, 0);
    return names;
  }
  void SelectRows(ResultsPane& pane, std::initializer_list<int> rows) {
    pane.view()->clearSelection();
    for (int r : rows)
      pane.view()->selectionModel()->select(pane.model()->index(r, 0),
                                            QItemSelectionModel::Select | QItemSelectionModel::Rows);
    pane.view()->selectionModel()->setCurrentIndex(pane.model()->index(*rows.begin(), 0), QItemSelectionModel::NoUpdate);
  }
  // A printable key with its own time stamp, as the window system would deliver it.
  bool SendKey(QWidget* to, char c, unsigned long time) {
    QKeyEvent press(QEvent::KeyPress, Qt::Key_A + (c - 'a'), Qt::NoModifier, QString(QChar(c)));
    press.setTimestamp(time);
    QApplication::sendEvent(to, &press);
    return press.isAccepted();
  }

  std::vector<uint32_t> messages_;
  MessageBoxHook previous_hook_;
  testing::TempTree tree_{{"file2.txt=22", "file11.txt=1", "report.pdf=0123456789", "docs/", "docs/inner.txt=x"}};
};

TEST_F(ResultsPaneTest, BatchesFillTheListAndTheCountTexts) {
  ResultsPane pane;
  QSignalSpy status(&pane, &ResultsPane::statusText);
  pane.BeginSearch();
  EXPECT_EQ(status.last().at(0).toString(), "Loading items...");
  pane.AddResults(Items(tree_, {"file2.txt", "file11.txt"}));
  pane.AddResults(Items(tree_, {"report.pdf"}));
  EXPECT_EQ(pane.ItemCount(), 3);
  EXPECT_EQ(pane.view()->model()->rowCount(), 3);
  pane.EndSearch(false);
  EXPECT_EQ(status.last().at(0).toString(), "3 item(s) found");
  EXPECT_EQ(Column0(pane), (QStringList{"file2.txt", "file11.txt", "report.pdf"}));  // the order found
  EXPECT_EQ(pane.model()->CellText(2, 1), "10 B");                                     // as the size formatter writes it
  EXPECT_EQ(pane.model()->CellText(2, 3), QString::fromStdString(tree_.root()));
  EXPECT_FALSE(pane.findChild<QPushButton*>()->isVisibleTo(&pane));

  // A new search replaces the items; nothing found says so in the list.
  QSignalSpy robust(&pane, &ResultsPane::robustSearchRequested);
  Search(pane, {}, true);
  EXPECT_EQ(pane.ItemCount(), 0);
  EXPECT_EQ(status.last().at(0).toString(), "0 item(s) found");
  bool nothing_shown = false;
  for (QLabel* label : pane.view()->viewport()->findChildren<QLabel*>())
    nothing_shown |= label->isVisibleTo(&pane) && label->text().startsWith("Nothing found; try searching");
  EXPECT_TRUE(nothing_shown);
  QPushButton* link = pane.findChild<QPushButton*>();
  ASSERT_TRUE(link->isVisibleTo(&pane));
  EXPECT_EQ(link->text(), "Click for robust search");
  link->click();
  EXPECT_EQ(robust.count(), 1);
}

TEST_F(ResultsPaneTest, AHugeBatchGoesInOverSeveralTurnsAndEndsInOrder) {
  ResultsPane pane;
  QSignalSpy status(&pane, &ResultsPane::statusText);
  std::vector<ShellItemPtr> items;
  for (int i = 0; i < 45000; ++i)
    items.push_back(props::ShellItem::FromListing("/made/up/f" + std::to_string(i), platform::FileType::kRegular));
  pane.BeginSearch();
  pane.AddResults(std::move(items));
  pane.AddResults({props::ShellItem::FromListing("/made/up/last", platform::FileType::kRegular)});
  pane.EndSearch(false);
  EXPECT_EQ(pane.ItemCount(), 45001);
  EXPECT_LT(pane.VisibleCount(), 45001);  // the rest waits for the next turns
  WAIT_EQ(status.last().at(0).toString(), QString("45001 item(s) found"));
  EXPECT_EQ(pane.VisibleCount(), 45001);
  EXPECT_EQ(pane.model()->CellText(45000, 0), "last");
  EXPECT_EQ(pane.model()->CellText(44999, 0), "f44999");
}

TEST_F(ResultsPaneTest, SortCommandsAndHeaderClicks) {
  ResultsPane pane;
  pane.SetGeneralFlags(kSortFoldersFirst | kNaturalNumberSort);
  Search(pane, Items(tree_, {"report.pdf", "file11.txt", "docs", "file2.txt"}));
  pane.SortByCommand(32892);  // Ctrl+Alt+N
  EXPECT_EQ(Column0(pane), (QStringList{"docs", "file2.txt", "file11.txt", "report.pdf"}));
  pane.SortByCommand(32899);  // reversed: the folder stays on top
  EXPECT_EQ(Column0(pane), (QStringList{"docs", "report.pdf", "file11.txt", "file2.txt"}));
  pane.SortByCommand(32893);  // size, smallest first
  EXPECT_EQ(Column0(pane), (QStringList{"docs", "file11.txt", "file2.txt", "report.pdf"}));
  pane.SortByCommand(32897);  // the order found
  EXPECT_EQ(Column0(pane), (QStringList{"report.pdf", "file11.txt", "docs", "file2.txt"}));

  // Natural order off: "file11" sorts before "file2".
  pane.SetGeneralFlags(0);
  pane.SortByCommand(32892);
  EXPECT_EQ(Column0(pane), (QStringList{"docs", "file11.txt", "file2.txt", "report.pdf"}));

  // A header click sorts by that column, a second one reverses it.
  QHeaderView* header = pane.view()->horizontalHeader();
  emit header->sectionClicked(1);
  ASSERT_EQ(pane.SortOptions().keys.size(), 1u);
  EXPECT_EQ(pane.SortOptions().keys[0].property->name, "System.Size");
  EXPECT_TRUE(pane.SortOptions().keys[0].ascending);
  emit header->sectionClicked(1);
  EXPECT_FALSE(pane.SortOptions().keys[0].ascending);
  EXPECT_EQ(Column0(pane).front(), "report.pdf");
  // Shift+click adds the column as the next key; a plain click makes it the only one.
  pane.resize(800, 400);
  pane.show();
  auto click = [&](int section, Qt::KeyboardModifiers modifiers) {
    QPoint at(header->sectionViewportPosition(section) + header->sectionSize(section) / 2, header->height() / 2);
    QTest::mouseClick(header->viewport(), Qt::LeftButton, modifiers, at);
  };
  click(2, Qt::ShiftModifier);
  ASSERT_EQ(pane.SortOptions().keys.size(), 2u);
  EXPECT_EQ(pane.SortOptions().keys[0].property->name, "System.Size");
  EXPECT_EQ(pane.SortOptions().keys[1].property->name, "System.DateModified");
  click(0, Qt::NoModifier);
  ASSERT_EQ(pane.SortOptions().keys.size(), 1u);
  EXPECT_EQ(pane.SortOptions().keys[0].property->name, "System.ItemNameDisplay");

  // The commands carry their keys.
  EXPECT_EQ(pane.ActionFor(32892)->shortcut(), QKeySequence("Ctrl+Alt+N"));
  EXPECT_EQ(pane.ActionFor(32899)->shortcut(), QKeySequence("Ctrl+Alt+A"));
  EXPECT_EQ(pane.ActionFor(32796)->statusTip(), "Remove selected items from this pane (real files not affected)");
}

TEST_F(ResultsPaneTest, TypeAheadJumpsToTheFilterBoxAfterMoreThanTheSetCount) {
  ResultsPane pane;
  FilterBar bar;
  pane.SetFilterBar(&bar);
  pane.SetAutoFilterChars(3);
  Search(pane, Items(tree_, {"file2.txt", "report.pdf"}));
  QWidget* list = pane.view();

  SendKey(list, 'a', 1000);
  SendKey(list, 'b', 1400);
  SendKey(list, 'c', 1800);
  EXPECT_EQ(bar.box()->text(), "");
  SendKey(list, 'd', 2200);
  EXPECT_EQ(bar.box()->text(), "abcd");
  EXPECT_EQ(bar.box()->cursorPosition(), 4);

  // A pause of more than 500 ms before the fourth key starts the count again from that key.
  bar.box()->clear();
  SendKey(list, 'a', 5000);
  SendKey(list, 'b', 5100);
  SendKey(list, 'c', 5200);
  SendKey(list, 'd', 5701);
  EXPECT_EQ(bar.box()->text(), "");
  SendKey(list, 'e', 5800);
  SendKey(list, 'f', 5900);
  SendKey(list, 'g', 6000);
  EXPECT_EQ(bar.box()->text(), "defg");

  // 0 never jumps; without a filter box nothing jumps either.
  bar.box()->clear();
  pane.SetAutoFilterChars(0);
  for (int i = 0; i < 6; ++i) SendKey(list, 'a', 9000 + 10 * i);
  EXPECT_EQ(bar.box()->text(), "");
  pane.SetAutoFilterChars(3);
  pane.SetFilterBar(nullptr);
  for (int i = 0; i < 6; ++i) SendKey(list, 'a', 12000 + 10 * i);
  EXPECT_EQ(bar.box()->text(), "");
}

TEST_F(ResultsPaneTest, QuickFilterMatchesNameOrAnyShownTextAndLosesNothing) {
  ResultsPane pane;
  FilterBar bar;
  pane.SetFilterBar(&bar);
  Search(pane, Items(tree_, {"file2.txt", "file11.txt", "report.pdf", "docs/inner.txt"}));
  bar.box()->setText("FILE");  // case does not matter
  EXPECT_EQ(pane.VisibleCount(), 2);
  EXPECT_EQ(pane.ItemCount(), 4);
  // The folder path column holds "docs" for inner.txt only; the name matches for the folder.
  bar.box()->setText("docs");
  EXPECT_EQ(Column0(pane), (QStringList{"inner.txt"}));
  bar.nameOnlyBox()->setChecked(true);
  EXPECT_EQ(pane.VisibleCount(), 0);
  bar.box()->setText("INNER");
  EXPECT_EQ(Column0(pane), (QStringList{"inner.txt"}));
  bar.showAllButton()->click();
  EXPECT_EQ(bar.box()->text(), "");
  EXPECT_EQ(pane.VisibleCount(), 4);
}

TEST_F(ResultsPaneTest, CheckBoxModeActsOnTickedRowsOnly) {
  ResultsPane pane;
  pane.SetCheckBoxMode(true);
  Search(pane, Items(tree_, {"file2.txt", "file11.txt", "report.pdf"}));
  SelectRows(pane, {0, 1});
  EXPECT_TRUE(pane.TargetItems().empty());  // the selection does not count
  pane.RemoveTargets();
  EXPECT_EQ(messages_, (std::vector<uint32_t>{10024}));
  EXPECT_EQ(pane.ItemCount(), 3);

  QAbstractItemModel* model = pane.view()->model();
  EXPECT_TRUE(model->flags(model->index(2, 0)) & Qt::ItemIsUserCheckable);
  model->setData(model->index(2, 0), Qt::Checked, Qt::CheckStateRole);
  ASSERT_EQ(pane.TargetItems().size(), 1u);
  EXPECT_EQ(pane.TargetItems()[0]->name(), "report.pdf");
  pane.RemoveTargets();  // drops the row; the file stays
  EXPECT_EQ(Column0(pane), (QStringList{"file2.txt", "file11.txt"}));
  EXPECT_TRUE(std::filesystem::exists(tree_.path("report.pdf")));
}

TEST_F(ResultsPaneTest, StatusTellsSelectionAndFocusedItem) {
  ResultsPane pane;
  QSignalSpy status(&pane, &ResultsPane::statusText);
  Search(pane, Items(tree_, {"file2.txt", "report.pdf", "docs"}));
  SelectRows(pane, {0, 1});
  QApplication::processEvents();
  EXPECT_EQ(status.last().at(0).toString(), "Selected 2 (12 B)");
  SelectRows(pane, {1});
  QApplication::processEvents();
  QString line = status.last().at(0).toString();
  EXPECT_TRUE(line.startsWith("Size: 10 B; Date modified: ")) << line.toStdString();
  SelectRows(pane, {2});
  QApplication::processEvents();
  line = status.last().at(0).toString();
  EXPECT_TRUE(line.startsWith("Size: Folder; Date modified: ")) << line.toStdString();
  pane.view()->clearSelection();
  pane.view()->setCurrentIndex({});
  QApplication::processEvents();
  EXPECT_EQ(status.last().at(0).toString(), "3 item(s)");
}

TEST_F(ResultsPaneTest, RenameInPlaceUpdatesTheRowAndReportsFailures) {
  ResultsPane pane;
  Search(pane, Items(tree_, {"file2.txt", "report.pdf"}));
  QAbstractItemModel* model = pane.view()->model();
  model->setData(model->index(0, 0), "renamed.txt", Qt::EditRole);
  EXPECT_TRUE(std::filesystem::exists(tree_.path("renamed.txt")));
  EXPECT_FALSE(std::filesystem::exists(tree_.path("file2.txt")));
  EXPECT_EQ(pane.model()->CellText(0, 0), "renamed.txt");
  EXPECT_TRUE(messages_.empty());

  // F2 opens the editor in place; Enter there renames (and opens nothing).
  pane.show();
  pane.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&pane));
  pane.view()->setFocus();
  pane.view()->setCurrentIndex(model->index(0, 0));
  QTest::keyClick(pane.view(), Qt::Key_F2);
  QLineEdit* editor = pane.view()->viewport()->findChild<QLineEdit*>();
  ASSERT_TRUE(editor);
  editor->selectAll();
  QTest::keyClicks(editor, "typed.txt");
  EXPECT_EQ(editor->text(), "typed.txt");
  QTest::keyClick(editor, Qt::Key_Return);
  WAIT_UNTIL(std::filesystem::exists(tree_.path("typed.txt")));  // the editor commits on the next turn
  EXPECT_EQ(pane.model()->CellText(0, 0), "typed.txt");
  EXPECT_TRUE(messages_.empty());
  model->setData(model->index(0, 0), "renamed.txt", Qt::EditRole);

  // A name that is taken is refused and nothing is replaced.
  model->setData(model->index(0, 0), "report.pdf", Qt::EditRole);
  EXPECT_EQ(messages_, (std::vector<uint32_t>{10030}));
  EXPECT_TRUE(std::filesystem::exists(tree_.path("renamed.txt")));

  // An item whose file vanished cannot be renamed at all; opening it is refused too.
  tree_.Remove("report.pdf");
  pane.view()->setCurrentIndex(model->index(1, 0));
  pane.RenameFocused();
  EXPECT_EQ(messages_.back(), 10029u);
  SelectRows(pane, {1});
  messages_.clear();
  QTest::keyClick(pane.view(), Qt::Key_Return);  // Enter opens: the file is gone
  EXPECT_EQ(messages_, (std::vector<uint32_t>{10025}));
}

TEST_F(ResultsPaneTest, DeleteMovesToTheTrashAndDropsTheRows) {
  testing::TempTree data_home;
  QByteArray saved = qgetenv("XDG_DATA_HOME");
  qputenv("XDG_DATA_HOME", QByteArray::fromStdString(data_home.root()));
  ResultsPane pane;
  Search(pane, Items(tree_, {"file2.txt", "file11.txt", "report.pdf"}));
  SelectRows(pane, {0, 2});
  pane.ActionFor(32791)->trigger();
  EXPECT_FALSE(std::filesystem::exists(tree_.path("file2.txt")));
  EXPECT_FALSE(std::filesystem::exists(tree_.path("report.pdf")));
  EXPECT_TRUE(std::filesystem::exists(data_home.path("Trash/files/report.pdf")));
  EXPECT_EQ(Column0(pane), (QStringList{"file11.txt"}));
  EXPECT_TRUE(messages_.empty());
  if (saved.isNull()) {
    qunsetenv("XDG_DATA_HOME");
  } else {
    qputenv("XDG_DATA_HOME", saved);
  }
}

TEST_F(ResultsPaneTest, CopyAndExportPutFilesAndTextOnTheClipboard) {
  ResultsPane pane;
  Search(pane, Items(tree_, {"file2.txt", "report.pdf"}));
  SelectRows(pane, {0, 1});
  pane.CopyTargets();
  const QMimeData* mime = QGuiApplication::clipboard()->mimeData();
  ASSERT_TRUE(mime);
  ASSERT_EQ(mime->urls().size(), 2);
  EXPECT_EQ(mime->urls()[1].toLocalFile().toStdString(), tree_.path("report.pdf"));
  EXPECT_TRUE(mime->hasFormat("text/uri-list"));

  pane.ExportSelectionAsText();
  QStringList lines = QGuiApplication::clipboard()->text().split('\n', Qt::SkipEmptyParts);
  ASSERT_EQ(lines.size(), 2);
  QStringList cells = lines[1].split('\t');
  ASSERT_EQ(cells.size(), 4);
  EXPECT_EQ(cells[0], "report.pdf");
  EXPECT_EQ(cells[1], "10 B");
  EXPECT_EQ(cells[3], QString::fromStdString(tree_.root()));
}

TEST_F(ResultsPaneTest, ViewOptionsSurviveASettingsFile) {
  testing::TempTree folder;
  std::string file = folder.path("trovix.ini");
  {
    auto store = app::SettingsStore::OpenFile(file);
    ResultsPane pane;
    pane.LoadViewOptions(*store, 0xe81b);  // nothing stored: the defaults
    EXPECT_EQ(pane.model()->columns().size(), 4);
    EXPECT_FALSE(pane.CheckBoxMode());
    pane.SetCheckBoxMode(true);
    ColumnSet columns = pane.model()->columns();
    columns.Add({PropertyNamed("System.FileExtension"), 0, 0});
    pane.model()->SetColumns(columns);
    pane.SortByProperty(PropertyNamed("System.Size"), false, false);
    pane.SortByProperty(NameProperty(), true, true);
    pane.view()->horizontalHeader()->resizeSection(0, 333);
    pane.SaveViewOptions(*store, 0xe81b);
    ASSERT_EQ(store->Commit(), 0u);
  }
  auto store = app::SettingsStore::OpenFile(file);
  EXPECT_EQ(store->Open("view_e81b\\Sort", true).GetFlags("nAscending", 99), 0x2u);
  ResultsPane pane;
  pane.LoadViewOptions(*store, 0xe81b);
  EXPECT_TRUE(pane.CheckBoxMode());
  ASSERT_EQ(pane.model()->columns().size(), 5);
  EXPECT_EQ(pane.model()->columns().at(4).property->name, "System.FileExtension");
  EXPECT_EQ(pane.view()->horizontalHeader()->sectionSize(0), 333);
  ASSERT_EQ(pane.SortOptions().keys.size(), 2u);
  EXPECT_EQ(pane.SortOptions().keys[0].property->name, "System.Size");
  EXPECT_FALSE(pane.SortOptions().keys[0].ascending);
  EXPECT_TRUE(pane.SortOptions().keys[1].ascending);
  // Another list id has its own section; with nothing stored the list is sorted by name.
  ResultsPane other;
  other.LoadViewOptions(*store, 0xe81c);
  ASSERT_EQ(other.SortOptions().keys.size(), 1u);
  EXPECT_EQ(other.SortOptions().keys[0].property->name, "System.ItemNameDisplay");
}

TEST_F(ResultsPaneTest, CostlyColumnsArriveFromTheLoaderAndResortTheList) {
  testing::TempTree tree{{"empty.bin", "big.bin=" + std::string(20000, 'x'), "small.bin=abc"}};
  ResultsPane pane;
  pane.show();  // the rows on screen are the ones asked for
  const props::PropertyInfo* on_disk = PropertyNamed("Stock.TotalFileSize");
  ASSERT_TRUE(on_disk);
  ColumnSet columns = pane.model()->columns();
  columns.Add({on_disk, 0, 0});
  pane.model()->SetColumns(columns);
  Search(pane, Items(tree, {"empty.bin", "small.bin", "big.bin"}));
  // Not read on the UI thread: the cell is empty until the loader's answer arrives.
  EXPECT_EQ(pane.model()->CellText(2, 4), "");
  WAIT_UNTIL_FOR(!pane.model()->CellText(2, 4).isEmpty(), 5000);
  EXPECT_FALSE(pane.model()->CellText(0, 4).isEmpty());

  // A sort on a costly column sorts again once every row is loaded.
  pane.BeginSearch();
  pane.AddResults(Items(tree, {"empty.bin", "big.bin", "small.bin"}));
  pane.EndSearch(false);
  pane.SortByProperty(on_disk, false, false);
  WAIT_EQ_FOR(pane.model()->CellText(0, 0), QString("big.bin"), 5000);
  EXPECT_EQ(pane.model()->CellText(2, 0), "empty.bin");
}

TEST_F(ResultsPaneTest, EveryControlHasAnAccessibleName) {
  ResultsPane pane;
  FilterBar bar;
  std::vector<QWidget*> controls{&pane, pane.view(), pane.view()->horizontalHeader(), pane.findChild<QPushButton*>(),
                                 pane.view()->viewport()->findChild<QLabel*>(), &bar, bar.box(), bar.nameOnlyBox(),
                                 bar.showAllButton()};
  // What a reader says: the name given, or (for the "Nothing found" line) the text itself.
  for (QWidget* w : controls) {
    ASSERT_TRUE(w);
    EXPECT_FALSE(QAccessible::queryAccessibleInterface(w)->text(QAccessible::Name).isEmpty())
        << w->metaObject()->className();
  }
}

// A list filled while it is not on screen (another tab shown, a window not shown yet) has no
// rows on screen to measure: its name column is sized when it is shown, and a width the user
// saved stays.
TEST_F(ResultsPaneTest, AListFilledWhileHiddenSizesItsNameColumnWhenShown) {
  const char* name = "quarterly report 2024.pdf";
  testing::TempTree tree{{std::string(name) + "=x", "notes.txt=y"}};
  auto store = app::SettingsStore::OpenFile(tree.path("trovix.ini"));
  {
    ResultsPane sized;
    sized.view()->horizontalHeader()->resizeSection(0, 150);
    sized.SaveViewOptions(*store, 0xe81b);
  }
  for (bool saved : {false, true}) {
    // As in the program's window: the list on a tab not shown while it fills, in a window not
    // shown yet (its layout has not given the list a size).
    QWidget window;
    auto* tabs = new QTabWidget;
    (new QVBoxLayout(&window))->addWidget(tabs);
    tabs->addTab(new QWidget, "Rules");
    auto* pane = new ResultsPane;
    tabs->addTab(pane, "Results");
    if (saved) pane->LoadViewOptions(*store, 0xe81b);
    Search(*pane, Items(tree, {name, "notes.txt"}));
    window.resize(800, 240);
    window.show();
    tabs->setCurrentIndex(1);
    QHeaderView* header = pane->view()->horizontalHeader();
    if (saved) {
      QApplication::processEvents();
      EXPECT_EQ(header->sectionSize(0), 150);
      continue;
    }
    const int wide_enough = pane->view()->fontMetrics().horizontalAdvance(name);
    WAIT_UNTIL(header->sectionSize(0) >= wide_enough) << header->sectionSize(0);
    testing::SaveScreenshot(&window, "results_filled_while_hidden");
  }
}

// An item of a drive that is not mounted comes from the index: its row is greyed, the others
// keep the list's own colours.
TEST_F(ResultsPaneTest, OfflineItemsAreGreyed) {
  ResultsPane pane;
  // Shown at its size first, as in the window: the name column is sized to the list's width.
  pane.resize(640, 160);
  pane.show();
  std::vector<ShellItemPtr> items = Items(tree_, {"file2.txt", "report.pdf"});
  items[1]->set_offline();
  Search(pane, items);
  ASSERT_EQ(pane.VisibleCount(), 2);
  for (int column = 0; column < pane.model()->columnCount(); ++column) {
    EXPECT_FALSE(pane.model()->index(0, column).data(Qt::ForegroundRole).isValid());
    const QVariant grey = pane.model()->index(1, column).data(Qt::ForegroundRole);
    ASSERT_TRUE(grey.canConvert<QBrush>());
    EXPECT_EQ(grey.value<QBrush>().color(), QGuiApplication::palette().color(QPalette::Disabled, QPalette::Text));
  }
  testing::SaveScreenshot(&pane, "results_offline_row");
}

TEST(ResultsThumbnails, PicturesBecomeThumbnailsAndTheViewIsRemembered) {
  testing::TempTree tree({"notes.txt=words"});
  QImage wide(400, 200, QImage::Format_RGB32);
  wide.fill(Qt::darkCyan);
  ASSERT_TRUE(wide.save(QString::fromStdString(tree.path("wide.png"))));
  tree.File("broken.png", "not a picture");

  ResultsPane pane;
  pane.SetThumbnailSize(64);
  pane.resize(600, 400);
  pane.show();
  pane.BeginSearch();
  pane.AddResults({props::ShellItem::FromPath(tree.path("wide.png")), props::ShellItem::FromPath(tree.path("broken.png")),
                   props::ShellItem::FromPath(tree.path("notes.txt"))});
  pane.EndSearch(false);
  pane.view()->selectRow(1);

  pane.ActionFor(32794)->trigger();
  ASSERT_TRUE(pane.ThumbnailView());
  EXPECT_TRUE(pane.thumbnail_view()->isVisible());
  EXPECT_FALSE(pane.view()->isVisible());
  // One selection for both views.
  EXPECT_EQ(pane.thumbnail_view()->selectionModel()->selectedRows().size(), 1);

  // The picture arrives scaled to the edge, keeping its shape; a file that only claims to be
  // one keeps its type's icon, as does the text file.
  const auto row_of = [&](const char* name) {
    for (int r = 0; r < pane.model()->rowCount(); ++r)
      if (pane.model()->CellText(r, 0) == name) return r;
    return -1;
  };
  QImage thumb;
  for (int i = 0; i < 500 && thumb.isNull(); ++i) {
    QTest::qWait(10);
    const QIcon icon = pane.model()->data(pane.model()->index(row_of("wide.png"), 0), Qt::DecorationRole).value<QIcon>();
    if (!icon.availableSizes().isEmpty() && icon.availableSizes().front() == QSize(64, 64))
      thumb = icon.pixmap(64, 64).toImage();
  }
  ASSERT_FALSE(thumb.isNull());
  // A square of the edge, the 2:1 picture 64 by 32 in its middle.
  EXPECT_EQ(qAlpha(thumb.pixel(32, 8)), 0);
  EXPECT_EQ(QColor(thumb.pixel(32, 32)), QColor(Qt::darkCyan));
  EXPECT_EQ(qAlpha(thumb.pixel(32, 56)), 0);
  QTest::qWait(200);
  const QIcon broken = pane.model()->data(pane.model()->index(row_of("broken.png"), 0), Qt::DecorationRole).value<QIcon>();
  EXPECT_FALSE(broken.isNull());

  // The view mode is kept with the list's options.
  testing::TempTree settings;
  auto store = app::SettingsStore::OpenFile(settings.path("trovix.ini"));
  pane.SaveViewOptions(*store, 0xe900);
  ResultsPane again;
  again.LoadViewOptions(*store, 0xe900);
  EXPECT_TRUE(again.ThumbnailView());
  // F2 renames in the view on screen.
  pane.thumbnail_view()->setCurrentIndex(pane.model()->index(row_of("notes.txt"), 0));
  pane.RenameFocused();
  EXPECT_NE(pane.thumbnail_view()->findChild<QLineEdit*>(), nullptr);
  pane.ActionFor(32793)->trigger();
  EXPECT_FALSE(pane.ThumbnailView());
  EXPECT_TRUE(pane.view()->isVisible());
}

}  // namespace
}  // namespace trovix::views
