#include "views/rule_boxes/property_picker.h"

#include <QAccessibleWidget>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLineEdit>
#include <QScreen>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>

#include "props/catalogue.h"
#include "rules/rule.h"
#include "views/qt_text.h"

namespace trovix::views {
namespace {

constexpr int kSimpleGroup = 1;  // "Simple/Common" in props::PropertyGroups()
constexpr int kPropertyRole = Qt::UserRole + 1;


// A property a rule can be made on: its value type gives a rule kind.
bool Offerable(const props::PropertyInfo& info) {
  return rules::KindForValueType(info.var_type()) != rules::kKindInvalid;
}

const props::PropertyInfo* PropertyOf(const QTreeWidgetItem* item) {
  return item ? static_cast<const props::PropertyInfo*>(item->data(0, kPropertyRole).value<const void*>()) : nullptr;
}

// The picker as assistive technology meets it: a button with a "Press" (and "ShowMenu") action
// that opens the list, and the open list as its child. The list is a window of its own, and Qt
// leaves such windows out of the tree; without this a reader could neither open the list nor
// find it.
class PickerAccessible : public QAccessibleWidget {
 public:
  explicit PickerAccessible(PropertyPicker* picker)
      : QAccessibleWidget(picker, QAccessible::ButtonDropDown) {}

  int childCount() const override { return Popup() ? 1 : 0; }
  QAccessibleInterface* child(int index) const override {
    PropertyPopup* popup = Popup();
    return index == 0 && popup ? QAccessible::queryAccessibleInterface(popup) : nullptr;
  }
  int indexOfChild(const QAccessibleInterface* child) const override {
    PropertyPopup* popup = Popup();
    return child && popup && child->object() == popup ? 0 : -1;
  }
  QAccessible::State state() const override {
    QAccessible::State s = QAccessibleWidget::state();
    s.hasPopup = true;
    s.expandable = true;
    s.expanded = Popup() != nullptr;
    s.collapsed = !s.expanded;
    return s;
  }
  QStringList actionNames() const override {
    QStringList names;
    if (widget()->isEnabled()) names << pressAction() << showMenuAction();
    return names + QAccessibleWidget::actionNames();
  }
  void doAction(const QString& name) override {
    if (name != pressAction() && name != showMenuAction()) return QAccessibleWidget::doAction(name);
    if (!widget()->isEnabled()) return;
    // Opened after the call returns: the caller (a reader over the bus) gets its answer first.
    QPointer<PropertyPicker> picker(static_cast<PropertyPicker*>(widget()));
    QMetaObject::invokeMethod(
        picker,
        [picker] {
          if (picker && !picker->popup()) picker->OpenPopup();
        },
        Qt::QueuedConnection);
  }
  QStringList keyBindingsForAction(const QString& name) const override {
    if (name == pressAction() || name == showMenuAction()) return {QStringLiteral("Space")};
    return QAccessibleWidget::keyBindingsForAction(name);
  }

 private:
  PropertyPopup* Popup() const { return static_cast<PropertyPicker*>(widget())->popup(); }
};

// The open list: a window whose parent in the tree is its picker, as the picker names it as
// its child.
class PopupAccessible : public QAccessibleWidget {
 public:
  explicit PopupAccessible(PropertyPopup* popup) : QAccessibleWidget(popup, QAccessible::Window) {}
  QAccessibleInterface* parent() const override {
    QObject* picker = widget()->parent();
    return picker ? QAccessible::queryAccessibleInterface(picker) : QAccessibleWidget::parent();
  }
};

QAccessibleInterface* PickerAccessibleFactory(const QString& class_name, QObject* object) {
  if (!object || !object->isWidgetType()) return nullptr;
  if (class_name == QLatin1String(PropertyPicker::staticMetaObject.className()))
    return new PickerAccessible(static_cast<PropertyPicker*>(object));
  if (class_name == QLatin1String(PropertyPopup::staticMetaObject.className()))
    return new PopupAccessible(static_cast<PropertyPopup*>(object));
  return nullptr;
}

}  // namespace

std::vector<PickerGroup> PickerGroups(bool plain, const std::string& simple_list) {
  const props::Catalogue& catalogue = props::DefaultCatalogue();
  const std::vector<std::string>& names = props::PropertyGroups();
  std::vector<PickerGroup> groups;

  // The simple list, led by the any-text property so that plain mode can always search all
  // common text.
  PickerGroup simple{FromUtf8(names[kSimpleGroup]), {}};
  auto add_simple = [&](const props::PropertyInfo* info) {
    if (info && Offerable(*info) &&
        std::find(simple.properties.begin(), simple.properties.end(), info) == simple.properties.end())
      simple.properties.push_back(info);
  };
  add_simple(catalogue.FindProperty(std::string_view("*")));
  for (const std::string& name : props::SimplePropertyList(simple_list)) add_simple(catalogue.Resolve(name));
  groups.push_back(std::move(simple));
  if (plain) return groups;

  // The catalogue's own groups; the first two ("All properties", "Simple/Common") are not
  // groups of properties but ways of listing them.
  std::vector<PickerGroup> by_group(names.size());
  for (size_t g = 0; g < names.size(); ++g) by_group[g].name = FromUtf8(names[g]);
  for (const auto& entry : catalogue.entries()) {
    if (!Offerable(*entry)) continue;
    const int g = props::PropertyGroupOf(entry->name);
    if (g > kSimpleGroup && g < static_cast<int>(by_group.size())) by_group[g].properties.push_back(entry.get());
  }
  for (size_t g = kSimpleGroup + 1; g < by_group.size(); ++g) {
    PickerGroup& group = by_group[g];
    if (group.properties.empty()) continue;
    std::stable_sort(group.properties.begin(), group.properties.end(),
                     [](const props::PropertyInfo* a, const props::PropertyInfo* b) {
                       return QString::compare(FromUtf8(a->label), FromUtf8(b->label), Qt::CaseInsensitive) < 0;
                     });
    groups.push_back(std::move(group));
  }
  return groups;
}

PropertyPopup::PropertyPopup(std::vector<PickerGroup> groups, QWidget* parent)
    : QFrame(parent, Qt::Popup), filter_(new QLineEdit(this)), tree_(new QTreeWidget(this)) {
  setAttribute(Qt::WA_DeleteOnClose);
  setFrameShape(QFrame::StyledPanel);
  setAccessibleName(tr("Property list"));
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(4, 4, 4, 4);
  layout->setSpacing(4);

  filter_->setPlaceholderText(tr("Type to filter properties"));
  filter_->setAccessibleName(tr("Property filter"));
  filter_->setClearButtonEnabled(true);
  filter_->installEventFilter(this);
  layout->addWidget(filter_);

  tree_->setAccessibleName(tr("Properties"));
  tree_->setColumnCount(1);
  tree_->header()->hide();
  tree_->setUniformRowHeights(true);
  tree_->setRootIsDecorated(true);
  for (const PickerGroup& group : groups) {
    auto* heading = new QTreeWidgetItem(tree_, QStringList(group.name));
    heading->setFlags(Qt::ItemIsEnabled);
    QFont bold = heading->font(0);
    bold.setBold(true);
    heading->setFont(0, bold);
    for (const props::PropertyInfo* info : group.properties) {
      auto* item = new QTreeWidgetItem(heading, QStringList(FromUtf8(info->label)));
      item->setData(0, kPropertyRole, QVariant::fromValue(static_cast<const void*>(info)));
      item->setToolTip(0, FromUtf8(info->name) + (info->description.empty() ? QString() : "\n" + FromUtf8(info->description)));
    }
  }
  // The simple list is open; the rest is a click (or a typed filter) away.
  if (tree_->topLevelItemCount() > 0) tree_->topLevelItem(0)->setExpanded(true);
  layout->addWidget(tree_);

  connect(filter_, &QLineEdit::textChanged, this, &PropertyPopup::ApplyFilter);
  connect(tree_, &QTreeWidget::itemActivated, this, [this](QTreeWidgetItem* item) { Choose(item); });
  connect(tree_, &QTreeWidget::itemClicked, this, [this](QTreeWidgetItem* item) { Choose(item); });
  resize(320, 380);
}

void PropertyPopup::ApplyFilter(const QString& text) {
  const QString wanted = text.trimmed();
  for (int g = 0; g < tree_->topLevelItemCount(); ++g) {
    QTreeWidgetItem* heading = tree_->topLevelItem(g);
    int shown = 0;
    for (int i = 0; i < heading->childCount(); ++i) {
      QTreeWidgetItem* item = heading->child(i);
      const props::PropertyInfo* info = PropertyOf(item);
      const bool keep = wanted.isEmpty() || item->text(0).contains(wanted, Qt::CaseInsensitive) ||
                        (info && FromUtf8(info->name).contains(wanted, Qt::CaseInsensitive));
      item->setHidden(!keep);
      shown += keep ? 1 : 0;
    }
    heading->setHidden(shown == 0);
    // A filtered list is short enough to show open; the whole list starts folded.
    heading->setExpanded(!wanted.isEmpty() || g == 0);
  }
}

std::vector<const props::PropertyInfo*> PropertyPopup::VisibleProperties() const {
  std::vector<const props::PropertyInfo*> out;
  for (int g = 0; g < tree_->topLevelItemCount(); ++g) {
    QTreeWidgetItem* heading = tree_->topLevelItem(g);
    if (heading->isHidden()) continue;
    for (int i = 0; i < heading->childCount(); ++i)
      if (!heading->child(i)->isHidden()) out.push_back(PropertyOf(heading->child(i)));
  }
  return out;
}

bool PropertyPopup::eventFilter(QObject* watched, QEvent* event) {
  if (watched == filter_ && event->type() == QEvent::KeyPress) {
    auto* key = static_cast<QKeyEvent*>(event);
    if (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) {
      // Enter takes the current row, or the first property still shown.
      const props::PropertyInfo* info = PropertyOf(tree_->currentItem());
      if (!info || tree_->currentItem()->isHidden()) {
        std::vector<const props::PropertyInfo*> shown = VisibleProperties();
        info = shown.empty() ? nullptr : shown.front();
      }
      if (info) {
        emit chosen(info);
        close();
      }
      return true;
    }
    if (key->key() == Qt::Key_Down) {
      tree_->setFocus();
      return false;
    }
  }
  return QFrame::eventFilter(watched, event);
}

void PropertyPopup::Choose(QTreeWidgetItem* item) {
  const props::PropertyInfo* info = PropertyOf(item);
  if (!info) return;
  emit chosen(info);
  close();
}

PropertyPicker::PropertyPicker(QWidget* parent) : QToolButton(parent) {
  static const bool factory_installed = [] {
    QAccessible::installFactory(PickerAccessibleFactory);
    return true;
  }();
  (void)factory_installed;
  setToolButtonStyle(Qt::ToolButtonTextOnly);
  setArrowType(Qt::NoArrow);
  setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
  connect(this, &QToolButton::clicked, this, [this] { OpenPopup(); });
}

void PropertyPicker::SetProperty(const props::PropertyInfo* property) {
  property_ = property;
  const QString label = property ? FromUtf8(property->label) : tr("(property)");
  setText(label + QStringLiteral(" \u25BE"));
  setToolTip(property ? FromUtf8(property->name) + (property->description.empty() ? QString()
                                                                             : "\n" + FromUtf8(property->description))
                      : QString());
  // The rule box names the button by the rule it belongs to; the chosen property is what the
  // button says, and its description.
  setAccessibleDescription(label);
}

void PropertyPicker::SetOffer(bool plain, const std::string& simple_list) {
  plain_ = plain;
  simple_list_ = simple_list;
}

PropertyPopup* PropertyPicker::OpenPopup() {
  auto* popup = new PropertyPopup(PickerGroups(plain_, simple_list_), this);
  popup_ = popup;
  connect(popup, &PropertyPopup::chosen, this, [this](const props::PropertyInfo* info) {
    emit propertyChosen(info);
  });
  QPoint below = mapToGlobal(QPoint(0, height()));
  if (const QScreen* s = screen()) {
    const QRect area = s->availableGeometry();
    below.setX(std::min(below.x(), area.right() - popup->width()));
    if (below.y() + popup->height() > area.bottom()) below.setY(mapToGlobal(QPoint(0, 0)).y() - popup->height());
  }
  popup->move(below);
  popup->show();
  popup->filterEdit()->setFocus();
  // The reader learns that the list is open and where it is.
  QAccessibleEvent opened(popup, QAccessible::PopupMenuStart);
  QAccessible::updateAccessibility(&opened);
  QAccessible::State changed;
  changed.expanded = true;
  changed.collapsed = true;
  QAccessibleStateChangeEvent expanded(this, changed);
  QAccessible::updateAccessibility(&expanded);
  connect(popup, &QObject::destroyed, this, [this, changed] {
    QAccessibleStateChangeEvent collapsed(this, changed);
    QAccessible::updateAccessibility(&collapsed);
  });
  return popup;
}

}  // namespace trovix::views
