// The desktop program as a keyboard and a screen reader meet it, as far as the offscreen
// platform shows it: the names and texts of the accessibility interfaces, the menus' mnemonics
// and key texts, the picker's action, the Properties box's keys, the
// question before a running search is abandoned, and the room the name column gets.
#include <gtest/gtest.h>

#include <QAccessible>
#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPointer>
#include <QPushButton>
#include <QStatusBar>
#include <QTableView>
#include <QTableWidget>
#include <QTest>
#include <QTimer>
#include <QToolButton>
#include <QTreeWidget>

#include "tests/views/frame_test_util.h"
#include "tests/views/qt_wait.h"
#include "views/frame/frame_commands.h"
#include "views/frame/properties_dialog.h"
#include "views/frame/search_pane.h"
#include "views/frame/settings_dialog.h"
#include "views/program/mnemonics.h"
#include "views/results/results_pane.h"
#include "views/rule_boxes/property_picker.h"
#include "views/rule_boxes/rule_box.h"
#include "views/rule_boxes/rule_dialogs.h"

namespace trovix::views {
namespace {

using testing::FrameSession;
using testing::MakeRule;

QString NameOf(QObject* object) {
  QAccessibleInterface* i = QAccessible::queryAccessibleInterface(object);
  return i ? i->text(QAccessible::Name) : QString("(no interface)");
}

QLabel* StatusLabel(MainFrame& frame) { return frame.statusBar()->findChild<QLabel*>(); }

// Every item of `menu` and of its submenus: a mnemonic, unique in its menu unless `shared_ok`,
// and an accessible name without the key text glued on by a tab.
void ExpectMenuReadable(QMenu* menu, const QString& path) {
  QString used;
  QAccessibleInterface* iface = QAccessible::queryAccessibleInterface(menu);
  ASSERT_TRUE(iface);
  for (int i = 0; i < iface->childCount(); ++i) {
    QAccessibleInterface* item = iface->child(i);
    const QString name = item->text(QAccessible::Name);
    EXPECT_FALSE(name.contains('\t')) << path.toStdString() << ": " << name.toStdString();
  }
  for (QAction* a : menu->actions()) {
    if (a->isSeparator()) continue;
    const QString where = path + " > " + a->text();
    const QChar letter = MnemonicOf(a->text());
    EXPECT_FALSE(letter.isNull()) << where.toStdString();
    EXPECT_FALSE(used.contains(letter))
        << where.toStdString() << " repeats &" << QString(letter).toStdString();
    used.append(letter);
    if (a->menu()) ExpectMenuReadable(a->menu(), where);
  }
}

TEST(Accessibility, MenuItemsHaveMnemonicsAndNoTabsInTheirNames) {
  testing::TempTree tree;
  FrameSession session(tree);
  MainFrame& frame = session.frame();
  for (QAction* top : frame.menuBar()->actions()) {
    ASSERT_TRUE(top->menu());
    EXPECT_FALSE(MnemonicOf(top->text()).isNull()) << top->text().toStdString();
    ExpectMenuReadable(top->menu(), top->text());
  }
  // "Open" shows Enter as its key, as a key, not as text after a tab.
  QAction* open = frame.results()->ActionFor(1);
  ASSERT_TRUE(open);
  EXPECT_EQ(open->text(), "&Open");
  EXPECT_EQ(open->shortcut(), QKeySequence(Qt::Key_Enter));
  // Enter in an open menu still takes the highlighted item, not "Open".
  frame.show();
  QApplication::setActiveWindow(&frame);
  frame.results()->view()->setFocus();
  QMenu* edit = frame.menuBar()->actions()[1]->menu();
  QAction* copy = frame.results()->ActionFor(57634);
  QSignalSpy opened(open, &QAction::triggered);
  QSignalSpy copied(copy, &QAction::triggered);
  edit->popup(frame.mapToGlobal(QPoint(20, 20)));
  edit->setActiveAction(copy);
  QTest::keyClick(edit, Qt::Key_Return);
  EXPECT_EQ(opened.size(), 0);
  EXPECT_EQ(copied.size(), 1);
  edit->close();

  // Saved entries are the user's names: an ampersand in one is shown, and each still gets a letter.
  session.SetSearch(tree.root(), {MakeRule("System.ItemNameDisplay", "*.none")});
  session.RunSearch();
  ASSERT_TRUE(frame.SaveSearchAs("Tom & Jerry", false));
  QMenu* saved = nullptr;
  for (QMenu* m : frame.menuBar()->findChildren<QMenu*>())
    if (m->title() == "Saved s&earches") saved = m;
  ASSERT_TRUE(saved);
  ASSERT_EQ(saved->actions().size(), 1);
  EXPECT_EQ(saved->actions()[0]->text(), "&Tom && Jerry");

  // The sort menu of every property: hundreds of items, each with a letter, shared when needed.
  QMenu* other = frame.results()->ActionFor(32898)->menu();
  emit other->aboutToShow();
  ASSERT_GT(other->actions().size(), 40);
  for (QAction* a : other->actions()) {
    const bool has_letter = std::any_of(a->text().begin(), a->text().end(),
                                        [](QChar c) { return c.isLetterOrNumber(); });
    if (has_letter) {
      EXPECT_FALSE(MnemonicOf(a->text()).isNull()) << a->text().toStdString();
    }
  }
}

// Opens the modal dialog of `open` and checks that its buttons can be reached by Alt+letter.
void ExpectButtonMnemonics(const char* what, const std::function<void()>& open) {
  bool seen = false;
  QTimer::singleShot(200, [&] {
    QWidget* dialog = QApplication::activeModalWidget();
    ASSERT_TRUE(dialog) << what;
    seen = true;
    QString used;
    for (QPushButton* b : dialog->findChildren<QPushButton*>()) {
      if (!b->isVisible()) continue;
      const QChar letter = MnemonicOf(b->text());
      EXPECT_FALSE(letter.isNull()) << what << ": " << b->text().toStdString();
      EXPECT_FALSE(used.contains(letter)) << what << ": " << b->text().toStdString();
      used.append(letter);
      // A reader says the word, not the ampersand.
      EXPECT_FALSE(NameOf(b).contains('&')) << what;
    }
    dialog->close();
  });
  open();
  EXPECT_TRUE(seen) << what;
}

TEST(Accessibility, DialogButtonsHaveMnemonics) {
  testing::TempTree tree;
  FrameSession session(tree);
  MainFrame& frame = session.frame();
  session.SetSearch(tree.root(), {MakeRule("System.ItemNameDisplay", "*.none")});
  session.RunSearch();    // saving needs a search first
  SetMessageBoxHook({});  // the real boxes, answered by the timer
  ExpectButtonMnemonics("question", [&] {
    ShowMessageBox(&frame, {0, "trovix", "Really?", QMessageBox::Question,
                            QMessageBox::Yes | QMessageBox::No});
  });
  ExpectButtonMnemonics("warning", [&] { ShowStringBox(&frame, 10025, QMessageBox::Warning); });
  app::Settings settings;
  ExpectButtonMnemonics("settings", [&] { EditSettings(&frame, &settings); });
  auto text_rule = MakeRule("System.ItemNameDisplay", "report*");
  ExpectButtonMnemonics("text rule", [&] { EditTextRule(&frame, *text_rule); });
  auto size_rule = MakeRule("System.Size", "> 10 KB");
  ExpectButtonMnemonics("number rule", [&] { EditNumberRule(&frame, *size_rule); });
  std::string expression = "$System.Size > 1";
  ExpectButtonMnemonics("expression", [&] { EditComplexRule(&frame, &expression); });
  ExpectButtonMnemonics("save search", [&] { frame.command(kCmdSaveSearch)->trigger(); });
  ExpectButtonMnemonics("save layout", [&] {
    for (QMenu* m : frame.menuBar()->findChildren<QMenu*>())
      if (m->title() == "Rule &layouts") m->actions().front()->trigger();
  });
}

TEST(Accessibility, StatusTextsAreReadAsTheyStand) {
  testing::TempTree tree({"docs/a.txt=1", "docs/b.txt=2", "docs/c.txt=3"});
  FrameSession session(tree);
  MainFrame& frame = session.frame();
  session.SetSearch(tree.path("docs"), {MakeRule("System.ItemNameDisplay", "*.txt")});
  ASSERT_EQ(session.RunSearch(), 3);
  WAIT_EQ(NameOf(StatusLabel(frame)), QString("3 item(s) found"));

  // The reason a rule does not parse, beside the boxes.
  {
    frame.search_pane()->boxes().front()->SetProperty(
        *props::DefaultCatalogue().Resolve("System.Size"));
    frame.search_pane()->boxes().front()->SetValueText("lots");
    frame.StartOrStop();
    const QString why = frame.search_pane()->RuleErrorText();
    EXPECT_FALSE(why.isEmpty());
    QLabel* error = nullptr;
    for (QLabel* l : frame.search_pane()->findChildren<QLabel*>())
      if (l->text() == why) error = l;
    ASSERT_TRUE(error);
    EXPECT_EQ(NameOf(error), why);
  }

  // The Properties box's heading: the item and how many values it has.
  PropertiesDialog box(tree.path("docs/a.txt"));
  QSignalSpy loaded(&box, &PropertiesDialog::loaded);
  ASSERT_TRUE(loaded.wait(20000));
  const QString heading = NameOf(box.findChild<QLabel*>());
  EXPECT_TRUE(heading.startsWith(QString::fromStdString(tree.path("docs/a.txt"))))
      << heading.toStdString();
  EXPECT_TRUE(heading.contains("property value(s)")) << heading.toStdString();
}

TEST(Accessibility, RuleBoxControlsAreNamedByTheirRuleAndRenumbered) {
  SearchPane pane;
  pane.SetRules({MakeRule("System.ItemNameDisplay", "*.txt"), MakeRule("System.Size", "> 1 KB"),
                 MakeRule("System.DateModified", "today")});
  RuleBox* second = pane.boxes()[1];
  EXPECT_EQ(NameOf(second), "Rule 2");
  EXPECT_EQ(NameOf(second->picker()), "Rule 2 property");
  EXPECT_EQ(NameOf(second->contextCombo()), "Rule 2 context");
  EXPECT_EQ(NameOf(second->valueWidget()), "Rule 2 value");
  EXPECT_EQ(NameOf(second->removeButton()), "Remove rule 2");
  // The value is said as the value, the property as the description, neither in the name.
  QAccessibleInterface* picker = QAccessible::queryAccessibleInterface(second->picker());
  EXPECT_EQ(picker->text(QAccessible::Description),
            QString::fromStdString(second->Property()->label));
  EXPECT_EQ(QAccessible::queryAccessibleInterface(pane.boxes()[2]->contextCombo())
                ->text(QAccessible::Value),
            "AND");

  // Removing the first renumbers the rest; a new box below the first takes number 2.
  pane.boxes().front()->removeButton()->click();
  EXPECT_EQ(NameOf(second->picker()), "Rule 1 property");
  EXPECT_EQ(NameOf(pane.boxes()[1]->contextCombo()), "Rule 2 context");
  pane.boxes().front()->valueWidget()->setFocus();
  QApplication::setActiveWindow(&pane);
  pane.AddRule();
  ASSERT_EQ(pane.boxes().size(), 3u);
  EXPECT_EQ(NameOf(pane.boxes()[2]->picker()), "Rule 3 property");
  for (size_t i = 0; i < pane.boxes().size(); ++i)
    EXPECT_EQ(NameOf(pane.boxes()[i]->contextCombo()), QString("Rule %1 context").arg(i + 1));

  // Changing a box's property keeps its name.
  second->SetProperty(*props::DefaultCatalogue().Resolve("System.FileExtension"));
  EXPECT_EQ(NameOf(second->picker()), "Rule 1 property");
}

TEST(Accessibility, ARuleAtTheOuterLevelOffersNoOutdent) {
  SearchPane pane;
  pane.resize(900, 300);
  pane.show();
  pane.SetRules({MakeRule("System.ItemNameDisplay", "*.txt"), MakeRule("System.Size", "> 1 KB")});
  RuleBox* first = pane.boxes()[0];
  RuleBox* second = pane.boxes()[1];
  EXPECT_FALSE(first->outdentButton()->isVisible());
  EXPECT_TRUE(QAccessible::queryAccessibleInterface(first->outdentButton())->state().invisible);
  EXPECT_FALSE(second->outdentButton()->isVisible());
  const int picker_x = second->picker()->x();
  second->indentButton()->click();
  EXPECT_EQ(second->Indent(), 1);
  EXPECT_TRUE(second->outdentButton()->isVisible());
  second->outdentButton()->click();
  EXPECT_EQ(second->Indent(), 0);
  EXPECT_FALSE(second->outdentButton()->isVisible());
  // The hidden button keeps its place: the row does not shift.
  QApplication::processEvents();
  EXPECT_EQ(second->picker()->x(), picker_x);
}

TEST(Accessibility, ThePickerOpensThroughItsActionAndShowsItsListInTheTree) {
  SearchPane pane;
  pane.show();
  PropertyPicker* picker = pane.boxes().front()->picker();
  QAccessibleInterface* button = QAccessible::queryAccessibleInterface(picker);
  ASSERT_TRUE(button->actionInterface());
  const QStringList actions = button->actionInterface()->actionNames();
  ASSERT_TRUE(actions.contains(QAccessibleActionInterface::pressAction()))
      << actions.join(",").toStdString();
  EXPECT_EQ(button->childCount(), 0);
  EXPECT_TRUE(button->state().collapsed);

  button->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
  WAIT_UNTIL(picker->popup());
  ASSERT_EQ(button->childCount(), 1);
  QAccessibleInterface* list = button->child(0);
  EXPECT_EQ(list->text(QAccessible::Name), "Property list");
  EXPECT_EQ(list->parent()->object(), picker);
  EXPECT_EQ(button->indexOfChild(list), 0);
  EXPECT_TRUE(button->state().expanded);
  // The tree of properties is there to walk, with the groups in it.
  QAccessibleInterface* tree = nullptr;
  for (int i = 0; i < list->childCount(); ++i)
    if (list->child(i)->text(QAccessible::Name) == "Properties") tree = list->child(i);
  ASSERT_TRUE(tree);
  EXPECT_GT(tree->childCount(), 1);

  // Choosing in the list changes the box's property; the list goes away.
  QSignalSpy chosen(picker, &PropertyPicker::propertyChosen);
  picker->popup()->filterEdit()->setText("System.Size");
  QTest::keyClick(picker->popup()->filterEdit(), Qt::Key_Return);
  ASSERT_EQ(chosen.size(), 1);
  EXPECT_EQ(button->text(QAccessible::Description), "Size");
  WAIT_EQ(button->childCount(), 0);
}

TEST(Accessibility, ThePropertiesBoxTakesTheKeyboardAndEscapeClosesIt) {
  testing::TempTree tree({"docs/a.txt=1"});
  QWidget owner;
  owner.show();
  QApplication::setActiveWindow(&owner);
  QPointer<PropertiesDialog> box = ShowProperties(&owner, tree.path("docs/a.txt"));
  WAIT_EQ(QApplication::activeWindow(), static_cast<QWidget*>(box.data()));
  ASSERT_TRUE(box->isAncestorOf(QApplication::focusWidget()));
  EXPECT_EQ(QApplication::focusWidget(), box->table());
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape);
  WAIT_UNTIL(box.isNull());
}

TEST(Accessibility, ClosingDuringASearchAsksWhetherToAbandonIt) {
  testing::TempTree tree;
  FrameSession session(tree);
  MainFrame& frame = session.frame();
  frame.show();
  // Long enough to be interrupted: a contents rule over many files.
  for (int i = 0; i < 4000; ++i) tree.Add("many/f" + std::to_string(i) + ".dat=x");
  session.SetSearch(tree.path("many"), {MakeRule("System.Search.Contents", "x")});
  frame.StartOrStop();
  ASSERT_TRUE(frame.search()->running());

  // No: the window and its search stay.
  session.answer = QMessageBox::No;
  frame.command(kCmdExit)->trigger();  // Alt+X
  ASSERT_EQ(session.messages.size(), 1u);
  EXPECT_EQ(session.messages[0].text, "Do you want to abandon the current search?");
  EXPECT_EQ(session.messages[0].icon, QMessageBox::Question);
  EXPECT_EQ(session.messages[0].buttons, QMessageBox::Yes | QMessageBox::No);
  EXPECT_TRUE(frame.isVisible());
  EXPECT_EQ(session.app().frames().size(), 1u);
  EXPECT_TRUE(frame.search()->running());

  // The window's own close button asks too; Yes stops the search and closes, asking once.
  session.answer = QMessageBox::Yes;
  QSignalSpy closed(&session.app(), &DesktopApp::lastFrameClosed);
  EXPECT_TRUE(frame.close());
  EXPECT_EQ(session.messages.size(), 2u);
  EXPECT_EQ(closed.size(), 1);
  EXPECT_TRUE(session.app().frames().empty());
}

TEST(Accessibility, ANameColumnGetsRoomForItsNamesUpToAThirdOfTheList) {
  const std::string longer(40, 'n');
  const std::string longest(240, 'w');
  testing::TempTree tree(
      {"docs/short.txt=1", "docs/" + longer + ".txt=2", "deep/er/and/deeper/still/x.txt=3"});
  FrameSession session(tree);
  MainFrame& frame = session.frame();
  frame.resize(1400, 700);
  frame.show();
  session.SetSearch(tree.root(), {MakeRule("System.ItemNameDisplay", "*.txt")});
  ASSERT_EQ(session.RunSearch(), 3);
  QTableView* view = frame.results()->view();
  QHeaderView* header = view->horizontalHeader();
  const int name_width =
      view->fontMetrics().horizontalAdvance(QString::fromStdString(longer + ".txt"));
  EXPECT_GE(header->sectionSize(0), name_width);
  EXPECT_LE(header->sectionSize(0), view->viewport()->width() / 3 + 1);
  // The folder path takes what is left, to the list's right edge.
  const int last = header->count() - 1;
  EXPECT_EQ(header->sectionPosition(last) + header->sectionSize(last), view->viewport()->width());

  // A name longer than a third of the list gets that third.
  tree.Add("docs/" + longest + ".txt=4");
  ASSERT_EQ(session.RunSearch(), 4);
  EXPECT_EQ(header->sectionSize(0), view->viewport()->width() / 3);
}

}  // namespace
}  // namespace trovix::views
