// The property picker of a rule box: a button that shows the box's property and opens a
// searchable list of the properties a rule can test, grouped as the catalogue groups them,
// with the "Simple/Common" list first. Typing into the list's filter line keeps only the
// properties whose label or canonical name contains the typed text.
//
// In plain mode only the "Simple/Common" group is offered (the any-text "Find" property and
// the names of the simple property list).
//
// UI thread only. The catalogue entries handed out belong to the process-wide catalogues.
#pragma once

#include <QFrame>
#include <QPointer>
#include <QString>
#include <QToolButton>
#include <string>
#include <vector>

#include "props/property_info.h"

class QLineEdit;
class QTreeWidget;
class QTreeWidgetItem;

namespace trovix::views {

// One group of the picker: its name and its properties in catalogue order.
struct PickerGroup {
  QString name;
  std::vector<const props::PropertyInfo*> properties;
};

// The groups the picker offers: "Simple/Common" first (in plain mode the only one), then the
// catalogue's groups in their order; empty groups are left out. `simple_list` is the setting
// that names the simple properties (comma-separated canonical names).
std::vector<PickerGroup> PickerGroups(bool plain, const std::string& simple_list);

// The list that drops down from the picker: a filter line above a tree of groups.
class PropertyPopup : public QFrame {
  Q_OBJECT
 public:
  PropertyPopup(std::vector<PickerGroup> groups, QWidget* parent = nullptr);

  QLineEdit* filterEdit() const { return filter_; }
  QTreeWidget* tree() const { return tree_; }
  // Keeps the properties whose label or canonical name contains `text` (case-blind).
  void ApplyFilter(const QString& text);
  // The properties still shown, in order (for tests and for Enter in the filter line).
  std::vector<const props::PropertyInfo*> VisibleProperties() const;

 signals:
  void chosen(const props::PropertyInfo* property);

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void Choose(QTreeWidgetItem* item);

  QLineEdit* filter_;
  QTreeWidget* tree_;
};

class PropertyPicker : public QToolButton {
  Q_OBJECT
 public:
  explicit PropertyPicker(QWidget* parent = nullptr);

  void SetProperty(const props::PropertyInfo* property);
  const props::PropertyInfo* Property() const { return property_; }
  void SetOffer(bool plain, const std::string& simple_list);
  // Opens the list below the button (also what a click does); returns it for tests. The list
  // deletes itself when it closes.
  PropertyPopup* OpenPopup();
  // The list while it is open, else null.
  PropertyPopup* popup() const { return popup_ && popup_->isVisible() ? popup_.data() : nullptr; }

 signals:
  void propertyChosen(const props::PropertyInfo* property);

 private:
  const props::PropertyInfo* property_ = nullptr;
  QPointer<PropertyPopup> popup_;
  bool plain_ = false;
  std::string simple_list_;
};

}  // namespace trovix::views
