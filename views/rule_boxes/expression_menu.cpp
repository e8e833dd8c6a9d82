#include "views/rule_boxes/expression_menu.h"

#include <QLineEdit>
#include <QMenu>

#include <algorithm>

#include "base/string_table.h"
#include "props/catalogue.h"
#include "props/property_key.h"
#include "views/qt_text.h"

namespace trovix::views {
namespace {

// Operators, brackets and sample constants: 11326 "And [&]" to 11342 "Boolean TRUE [-1]".
constexpr uint32_t kFirstOperatorId = 11326;
constexpr uint32_t kLastOperatorId = 11342;
// The functions in the language's own order: 11365 "String length [len()]" to 11374 "Find in
// file [grep()]".
constexpr uint32_t kFirstFunctionId = 11365;
constexpr uint32_t kLastFunctionId = 11374;

// Whether the expression can read the property at all: the contents go through grep(), and
// the free-text entries ("Find", "Complex") have no value to compare.
bool Referable(const props::PropertyInfo& info) {
  return info.base_type() != 0 && info.hash != props::hash::kSearchContents && info.hash != props::hash::kComplex &&
         !info.has_flag(props::kPropFreeText);
}

QAction* AddAction(QMenu* menu, const QString& label, const QString& insert, QLineEdit* edit) {
  // "&" would otherwise mark the next letter as the item's shortcut key.
  QAction* action = menu->addAction(QString(label).replace('&', QStringLiteral("&&")));
  QObject::connect(action, &QAction::triggered, edit, [edit, insert] { InsertExpressionText(edit, insert); });
  return action;
}

// One sub-menu per property group, filled when first opened: the catalogue has hundreds of
// entries and most editors never open this menu.
void AddPropertyMenu(QMenu* menu, QLineEdit* edit) {
  QMenu* properties = menu->addMenu(StringText(kExpressionPropertyMenuId));
  properties->menuAction()->setData(kExpressionPropertyMenuId);
  const std::vector<std::string>& groups = props::PropertyGroups();
  for (int group = 0; group < static_cast<int>(groups.size()); ++group) {
    const auto& entries = props::DefaultCatalogue().entries();
    const bool any = std::any_of(entries.begin(), entries.end(), [group](const auto& info) {
      return Referable(*info) && props::PropertyGroupOf(info->name) == group;
    });
    if (!any) continue;
    QMenu* sub = properties->addMenu(QString::fromStdString(groups[static_cast<size_t>(group)]));
    QObject::connect(sub, &QMenu::aboutToShow, sub, [sub, group, edit] {
      if (!sub->isEmpty()) return;
      std::vector<const props::PropertyInfo*> members;
      for (const auto& info : props::DefaultCatalogue().entries())
        if (Referable(*info) && props::PropertyGroupOf(info->name) == group) members.push_back(info.get());
      std::sort(members.begin(), members.end(), [](const auto* a, const auto* b) {
        return QString::compare(QString::fromStdString(a->label), QString::fromStdString(b->label),
                                Qt::CaseInsensitive) < 0;
      });
      for (const props::PropertyInfo* info : members) {
        AddAction(sub, QStringLiteral("%1 (%2)").arg(QString::fromStdString(info->label), QString::fromStdString(info->name)),
                  QString::fromStdString(PropertyReference(info->name)), edit);
      }
    });
  }
}

}  // namespace

std::vector<uint32_t> ExpressionMenuIds() {
  std::vector<uint32_t> ids;
  for (uint32_t id = kFirstOperatorId; id <= kLastOperatorId; ++id) ids.push_back(id);
  for (uint32_t id = kFirstFunctionId; id <= kLastFunctionId; ++id) ids.push_back(id);
  return ids;
}

QString InsertTextOf(const QString& label) {
  const qsizetype open = label.indexOf('[');
  const qsizetype close = label.lastIndexOf(']');
  if (open < 0 || close <= open) return QString();
  return label.mid(open + 1, close - open - 1);
}

std::string PropertyReference(std::string_view name) {
  // The bare form runs to the next operator character, quote or "$" and must begin with a
  // letter; anything else needs braces.
  bool bare = !name.empty() && ((name[0] >= 'A' && name[0] <= 'Z') || (name[0] >= 'a' && name[0] <= 'z'));
  for (char c : name) {
    const bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '_';
    if (!plain) bare = false;
  }
  return bare ? "$" + std::string(name) : "${" + std::string(name) + "}";
}

void InsertExpressionText(QLineEdit* edit, const QString& text) {
  const QString selection = edit->selectedText();
  const qsizetype open = text.indexOf('(');
  const int start = edit->hasSelectedText() ? edit->selectionStart() : edit->cursorPosition();
  QString insert = text;
  int caret = static_cast<int>(start + text.size());
  if (open >= 0) {
    // "mid( , , )" with "$x" selected becomes "mid($x, , )"; without a selection the caret
    // waits after the "(" for the first argument.
    QString rest = text.mid(open + 1);
    if (!selection.isEmpty() && rest.startsWith(' ')) rest.remove(0, 1);
    insert = text.left(open + 1) + selection + rest;
    caret = static_cast<int>(start + open + 1 + selection.size());
  }
  // insert() replaces the selection and keeps the edit's undo history.
  edit->insert(insert);
  edit->setCursorPosition(caret);
  edit->setFocus();
}

QMenu* CreateExpressionMenu(QLineEdit* edit, QWidget* parent) {
  auto* menu = new QMenu(parent);
  menu->setObjectName("expressionMenu");
  for (uint32_t id : ExpressionMenuIds()) {
    if (id == kFirstFunctionId) menu->addSeparator();
    const QString label = StringText(id);
    AddAction(menu, label, InsertTextOf(label), edit)->setData(id);
  }
  menu->addSeparator();
  AddPropertyMenu(menu, edit);
  return menu;
}

}  // namespace trovix::views
