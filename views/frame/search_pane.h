// The search panel: the root-folder box, the Start/Stop button with its busy animation, and
// the rule boxes (one row per rule, then the "Add new rule" row). The panel only edits: it
// hands its rule list out with CollectRules and asks for a search with startStopRequested;
// the frame runs the search and tells the panel with SetRunning.
//
// Plain mode (the setting bPlainMode) offers only the "Simple/Common" properties in the
// pickers and hides the context and indent controls.
//
// UI thread only.
#pragma once

#include <QPointer>
#include <QString>
#include <QWidget>
#include <string>
#include <vector>

#include "app/settings/saved_lists.h"
#include "rules/rule.h"

class QLabel;
class QProgressBar;
class QPushButton;
class QVBoxLayout;

namespace trovix::views {

class RootBox;
class RuleBox;

class SearchPane : public QWidget {
  Q_OBJECT
 public:
  explicit SearchPane(QWidget* parent = nullptr);

  // The rule list as the boxes hold it, without the "Add new rule" row; empty boxes give no
  // rule. False with a reason (and the offending box marked and focused) when a box's text
  // does not parse.
  bool CollectRules(std::vector<rules::RulePtr>* rules, QString* why);
  // Replaces the boxes with one box per rule (restoring binLastRule or a saved search); with
  // no rule, the default box.
  void SetRules(const std::vector<rules::RulePtr>& rules);
  QString RootText() const;
  void SetRootText(const QString& text);
  // Offered in the root box's drop-down, most used first.
  void SetFrequentFolders(const std::vector<app::FrequentFolder>& folders);
  // Start <-> Stop text and the busy animation.
  void SetRunning(bool running);
  bool Running() const { return running_; }
  void SetPlainMode(bool plain);
  bool PlainMode() const { return plain_; }
  // The setting szSimplePropertyList: the properties of the "Simple/Common" group.
  void SetSimplePropertyList(const std::string& list);
  // The general option "Disable wildcards": typed text rules match verbatim.
  void SetDisableWildcards(bool disable);
  // A message below the boxes, cleared on the next edit.
  void ShowRuleError(const QString& text);
  QString RuleErrorText() const;

  // "Add new search property\nAdd rule": a new box on the file name (on "Find" in plain mode),
  // below the focused box, and focused.
  void AddRule();
  // "Close rule\nRemove": removes the focused box (the last box focused).
  void RemoveRule();
  // "Clear all search filters\nClear all (F8)": empties every box's value, keeps the boxes.
  void ClearAll();
  // The first box on `property`, or a new empty one at the end of the boxes.
  RuleBox* FindOrAddBox(const props::PropertyInfo& property);
  // "Reset to default search parameters\nDefault rules": one empty name box ("Find" in plain
  // mode).
  void DefaultRules();

  // The boxes as a layout record (see rule_box_layout.h for the fields of the records).
  app::RuleBoxLayout CaptureLayout(const std::string& name) const;
  // Rebuilds the boxes, empty, from a layout; a layout that breaks the length rules, or names
  // no property this program knows, leaves the boxes as they are.
  void RestoreLayout(const app::RuleBoxLayout& layout);

  // Puts the focus on a control of the panel: the value of the rule box used last, else of
  // the first box (the next-pane key lands here).
  void FocusRules();

  QPushButton* startButton();
  QPushButton* addRuleButton() const { return add_rule_; }
  RootBox* rootBox() const { return root_; }
  QProgressBar* busyIndicator() const { return busy_; }
  const std::vector<RuleBox*>& boxes() const { return boxes_; }

 signals:
  // Start/Stop pressed, or Enter in any box or the root box.
  void startStopRequested();
  // Any edit (the frame clears stale error texts).
  void rulesEdited();

 protected:
  void keyPressEvent(QKeyEvent* event) override;

 private:
  RuleBox* InsertBox(RuleBox* box, int at);
  void RemoveBox(RuleBox* box);
  void RemoveAllBoxes();
  void ChangeIndent(RuleBox* box, int delta);
  // No box deeper than one level below the box above it; the first at level 0.
  void RepairIndents();
  void UpdateIndentButtons();
  // Tells each box its place in the list (its controls are named by it).
  void Renumber();
  void NoteEdit();
  int IndexOf(const RuleBox* box) const;
  const props::PropertyInfo* DefaultProperty() const;

  RootBox* root_;
  QPushButton* start_;
  QProgressBar* busy_;
  QVBoxLayout* rows_;
  QPushButton* add_rule_;
  QLabel* error_;
  std::vector<RuleBox*> boxes_;
  QPointer<RuleBox> current_;
  bool running_ = false;
  bool plain_ = false;
  bool disable_wildcards_ = false;
  std::string simple_list_;
};

}  // namespace trovix::views
