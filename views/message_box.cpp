#include "views/message_box.h"

#include "base/string_table.h"

namespace trovix::views {
namespace {

MessageHook& Hook() {
  static MessageHook hook;
  return hook;
}

}  // namespace

void SetMessageHook(MessageHook hook) { Hook() = std::move(hook); }

QMessageBox::StandardButton ShowMessage(QWidget* parent, const MessageRecord& message) {
  if (Hook()) return Hook()(message);
  QMessageBox box(message.icon, message.caption, message.text, message.buttons, parent);
  box.setAccessibleName(message.caption);
  return static_cast<QMessageBox::StandardButton>(box.exec());
}

QString StringText(uint32_t id, const QString& argument) {
  const std::string_view text = base::LoadString(id);
  QString s = QString::fromUtf8(text.data(), static_cast<int>(text.size()));
  if (!argument.isNull()) s.replace("%1", argument);
  return s;
}

QMessageBox::StandardButton ShowStringMessage(QWidget* parent, QMessageBox::Icon icon, uint32_t id,
                                              const QString& argument, QMessageBox::StandardButtons buttons) {
  return ShowMessage(parent, {icon, "trovix", StringText(id, argument), buttons});
}

}  // namespace trovix::views
