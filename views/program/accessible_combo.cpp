#include "views/program/accessible_combo.h"

#include <QAbstractItemView>
#include <QAccessibleWidget>
#include <QComboBox>
#include <QLineEdit>
#include <QPointer>

namespace trovix::views {
namespace {

// Qt's combo box interface with the name taken from accessibleName: the same children (the
// drop-down list, and the line of an editable box), the same action to open the list.
class NamedComboAccessible : public QAccessibleWidget {
 public:
  explicit NamedComboAccessible(QComboBox* combo)
      : QAccessibleWidget(combo, QAccessible::ComboBox) {}

  QString text(QAccessible::Text t) const override {
    if (t == QAccessible::Value)
      return Combo()->isEditable() && Combo()->lineEdit() ? Combo()->lineEdit()->text()
                                                          : Combo()->currentText();
    return QAccessibleWidget::text(t);
  }
  int childCount() const override { return Combo()->lineEdit() ? 2 : 1; }
  QAccessibleInterface* child(int index) const override {
    if (index == 0) return QAccessible::queryAccessibleInterface(Combo()->view());
    if (index == 1 && Combo()->lineEdit())
      return QAccessible::queryAccessibleInterface(Combo()->lineEdit());
    return nullptr;
  }
  int indexOfChild(const QAccessibleInterface* child) const override {
    if (!child) return -1;
    if (child->object() == Combo()->view()) return 0;
    if (Combo()->lineEdit() && child->object() == Combo()->lineEdit()) return 1;
    return -1;
  }
  QAccessible::State state() const override {
    QAccessible::State s = QAccessibleWidget::state();
    s.expandable = true;
    s.expanded = Combo()->view()->isVisible();
    s.collapsed = !s.expanded;
    s.editable = Combo()->isEditable();
    return s;
  }
  QStringList actionNames() const override {
    return QStringList{showMenuAction(), pressAction()} + QAccessibleWidget::actionNames();
  }
  void doAction(const QString& name) override {
    if (name != showMenuAction() && name != pressAction()) return QAccessibleWidget::doAction(name);
    // Opened after the call returns, so that the reader's call is answered first.
    QPointer<QComboBox> combo(Combo());
    QMetaObject::invokeMethod(
        combo,
        [combo] {
          if (combo) combo->showPopup();
        },
        Qt::QueuedConnection);
  }

 private:
  QComboBox* Combo() const { return static_cast<QComboBox*>(widget()); }
};

QAccessibleInterface* Factory(const QString& class_name, QObject* object) {
  if (class_name == QLatin1String(NamedComboBox::staticMetaObject.className()) && object &&
      object->isWidgetType())
    return new NamedComboAccessible(static_cast<QComboBox*>(object));
  return nullptr;
}

}  // namespace

NamedComboBox::NamedComboBox(QWidget* parent) : QComboBox(parent) {
  static const bool installed = [] {
    QAccessible::installFactory(Factory);
    return true;
  }();
  (void)installed;
}

}  // namespace trovix::views
